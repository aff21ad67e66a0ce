#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "refhost/media/AccessUnit.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// Gathers the RTP packets of one payloader to access units.
///
/// A video unit ends at the marker bit, or where the timestamp changes; so does an AAC frame that was split
/// over several packets. Each packet of other audio is a unit. Threads: one at a time.
class AccessUnitBuilder
{
public:
    /// Larger units are left out: no camera makes them, and one that lies must not fill the memory. Bytes of
    /// packets.
    static constexpr std::size_t maxUnitBytes = 16U << 20U;

    using Deliver = std::function<void(AccessUnitPtr)>;

    /// \param codec    whose table entry says what ends a unit; a unit of H.264 or H.265 with a parameter set
    ///                 and a frame that decoders can start with is a key unit
    /// \param deliver  called by add() with each unit that became whole
    AccessUnitBuilder(Codec codec, Deliver deliver);

    /// Takes the next packet. A packet whose RTP header (RFC 3550, section 5.1) is anything but twelve bytes
    /// of version 2 without padding, extension and contributing sources is not taken, because senders rewrite
    /// exactly such headers.
    /// \param captureTime  as AccessUnit::captureTime
    /// \returns false when the packet was not taken
    bool add(const std::uint8_t* packet, std::size_t size, MonotonicTime captureTime);

    /// Forgets the packets of a unit that is not whole.
    void reset();

private:
    void finish();
    void look(const std::uint8_t* payload, std::size_t size);
    void lookH264(const std::uint8_t* payload, std::size_t size);
    void lookH265(const std::uint8_t* payload, std::size_t size);

    const CodecInfo& info_;
    Deliver deliver_;
    std::shared_ptr<AccessUnit> unit_;
    bool dropping_ = false;  // unit_ is too large: what comes of it is left out
    bool hasParameterSet_ = false;
    bool hasKeyFrame_ = false;
};

}  // namespace refhost

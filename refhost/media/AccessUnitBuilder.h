#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "refhost/media/AccessUnit.h"

namespace refhost
{

/// Gathers the RTP packets of one payloader to access units.
///
/// A video unit ends at the marker bit, or where the timestamp changes; so does an AAC frame that was split
/// over several packets. Each packet of other audio is a unit. Threads: one at a time.
class AccessUnitBuilder
{
public:
    enum class Coding
    {
        h264,         ///< RFC 6184; a unit with a parameter set and an IDR picture is a key unit
        h265,         ///< RFC 7798; a unit with a parameter set and a random access picture is a key unit
        framedAudio,  ///< RFC 3640: the marker ends a unit
        plainAudio    ///< RFC 3551: a packet is a unit
    };

    /// Larger units are left out: no camera makes them, and one that lies must not fill the memory. Bytes of
    /// packets.
    static constexpr std::size_t maxUnitBytes = 16U << 20U;

    using Deliver = std::function<void(AccessUnitPtr)>;

    /// \param deliver  called by add() with each unit that became whole
    AccessUnitBuilder(Coding coding, Deliver deliver);

    /// Takes the next packet. A packet whose RTP header (RFC 3550, section 5.1) is anything but twelve bytes
    /// of version 2 without padding, extension and contributing sources is not taken, because senders rewrite
    /// exactly such headers.
    /// \param captureTimeNs  as AccessUnit::captureTimeNs
    /// \returns false when the packet was not taken
    bool add(const std::uint8_t* packet, std::size_t size, std::int64_t captureTimeNs);

    /// Forgets the packets of a unit that is not whole.
    void reset();

private:
    void finish();
    void look(const std::uint8_t* payload, std::size_t size);
    void lookH264(const std::uint8_t* payload, std::size_t size);
    void lookH265(const std::uint8_t* payload, std::size_t size);

    Coding coding_;
    Deliver deliver_;
    std::shared_ptr<AccessUnit> unit_;
    bool dropping_ = false;  // unit_ is too large: what comes of it is left out
    bool hasParameterSet_ = false;
    bool hasKeyPicture_ = false;
};

}  // namespace refhost

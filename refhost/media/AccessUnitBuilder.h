#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "refhost/media/AccessUnit.h"
#include "refhost/media/Codec.h"
#include "refhost/media/NalSyntax.h"

namespace refhost
{

/// Assembles the RTP packets of one payloader to access units.
///
/// A unit of video, and an AAC frame that spans several packets, ends at the marker bit or where the
/// timestamp changes. Each packet of other audio is a unit. Threads: one at a time.
class AccessUnitBuilder
{
public:
    /// Limit of a unit's packets in bytes. Larger units are dropped: no camera makes them, and a faulty one
    /// must not exhaust the memory.
    static constexpr std::size_t maxUnitBytes = 16U << 20U;

    using Deliver = std::function<void(AccessUnitPtr)>;

    /// \param codec    its table entry says what ends a unit. A unit of H.264 or H.265 is a key frame when it
    ///                 holds a parameter set and a frame that decoders can start with
    /// \param deliver  called by add() with each complete unit
    AccessUnitBuilder(Codec codec, Deliver deliver);

    /// Adds the next packet. Its RTP header (RFC 3550, section 5.1) must be of version 2 without padding,
    /// extension and contributing sources, because senders rewrite exactly such twelve bytes.
    /// \param captureTime  as AccessUnit::captureTime
    /// \returns false when the packet was rejected
    bool add(const std::uint8_t* packet, std::size_t size, MonotonicTime captureTime);

    /// Drops the packets of an incomplete unit.
    void reset();

private:
    void finish();
    void look(ByteSpan payload);
    void note(NalKind kind);

    const CodecInfo& info_;
    const NalSyntax* const nalSyntax_;  ///< null where every unit is a key frame
    Deliver deliver_;
    std::shared_ptr<AccessUnit> unit_;
    bool dropping_ = false;  // unit_ is too large: its remaining packets are dropped
    bool hasParameterSet_ = false;
    bool hasKeyFrame_ = false;
};

}  // namespace refhost

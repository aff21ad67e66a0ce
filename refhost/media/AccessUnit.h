#pragma once
// Tested by tests/refhost/media/AccessUnitBuilder_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// All RTP packets of one frame or one block of audio, as one payloader made them. Immutable once shared.
///
/// The packets stand back to back, each with four bytes of room in front, so that the same layout serves a
/// gathered TCP write ('$', channel, length, packet, …) and a segmented UDP message (packet, packet, …).
/// SSRC, sequence number and payload type in the stored RTP headers are the payloader's; senders write their
/// own.
struct AccessUnit
{
    /// Bytes in front of every packet that are reserved for the interleaved framing.
    static constexpr std::size_t framingSize = 4;
    /// Size of the RTP header of every packet: no CSRC, and no extension unless the host added one.
    static constexpr std::size_t rtpHeaderSize = 12;

    struct Packet
    {
        std::uint32_t offset;  ///< of the RTP header in `bytes`; the framing's room ends there
        std::uint32_t size;    ///< RTP header and payload, in bytes
    };

    std::vector<std::uint8_t> bytes;
    std::vector<Packet> packets;
    /// Sum of the payload bytes of all packets, without RTP headers.
    std::uint32_t payloadBytes = 0;
    /// The payloader's RTP timestamp, the same in every packet.
    std::uint32_t rtpTimestamp = 0;
    /// When it was captured: live media by HostClock::now(). Of recorded media it carries the date in the
    /// recording: nanoseconds since 1970.
    MonotonicTime captureTime;
    /// A decoder can start here: a key frame with its parameter sets, or any block of audio.
    bool keyFrame = false;

    /// Appends one RTP packet, given with its 12-byte header.
    void append(const std::uint8_t* packet, std::size_t size);

    /// Bytes of a packet in front of its payload: the RTP header with its extension, where there is one.
    std::uint32_t headerSize(std::size_t packet) const;
};

using AccessUnitPtr = std::shared_ptr<const AccessUnit>;

/// Takes what one payloader makes, in order.
class AccessUnitSink
{
public:
    virtual ~AccessUnitSink() = default;

    /// Called on the stream's own thread, never by two threads at once.
    virtual void onAccessUnit(AccessUnitPtr unit) = 0;

    /// The source was stopped or starts again: RTP timestamps start over and what came before must not be
    /// sent to a new viewer. Called between two access units or after the last.
    virtual void onDiscontinuity() = 0;
};

}  // namespace refhost

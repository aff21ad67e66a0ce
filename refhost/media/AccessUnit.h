#pragma once
// Tested by tests/refhost/media/AccessUnitBuilder_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// All RTP packets of one video frame or one block of audio, as a payloader made them. Immutable once shared.
///
/// The packets are stored back to back, each preceded by four reserved bytes, so that one layout serves a
/// gathered TCP write ('$', channel, length, packet, …) and a segmented UDP message (packet, packet, …).
/// SSRC, sequence number and payload type in the stored RTP headers are the payloader's; senders replace
/// them.
struct AccessUnit
{
    /// Bytes before every packet that are reserved for interleaved framing (RFC 2326, section 10.12).
    static constexpr std::size_t framingSize = 4;
    /// Bytes of the fixed RTP header of every packet: no CSRC, and an extension only where the host added one.
    static constexpr std::size_t rtpHeaderSize = 12;

    struct Packet
    {
        std::uint32_t offset;  ///< of the RTP header in `bytes`; the framing bytes precede it
        std::uint32_t size;    ///< RTP header and payload, in bytes
    };

    std::vector<std::uint8_t> bytes;
    std::vector<Packet> packets;
    /// Sum of the payload bytes of all packets, without RTP headers.
    std::uint32_t payloadBytes = 0;
    /// The payloader's RTP timestamp, the same in every packet.
    std::uint32_t rtpTimestamp = 0;
    /// Live media: when it was captured, by HostClock::now(). Recorded media: its date in the recording, as
    /// the time since 1970.
    MonotonicTime captureTime;
    /// A decoder can start here: a key frame with its parameter sets, or any block of audio.
    bool keyFrame = false;

    /// Appends one RTP packet, which includes its 12-byte header.
    void append(const std::uint8_t* packet, std::size_t size);

    /// Bytes before a packet's payload: the RTP header and its extension, if any.
    std::uint32_t headerSize(std::size_t packet) const;
};

using AccessUnitPtr = std::shared_ptr<const AccessUnit>;

/// Receives the access units of one payloader in order.
class AccessUnitSink
{
public:
    virtual ~AccessUnitSink() = default;

    /// Called on the stream's thread, never concurrently.
    virtual void onAccessUnit(AccessUnitPtr unit) = 0;

    /// The source was stopped or restarts: RTP timestamps start over, and earlier units must not be sent to a
    /// new viewer. Called between two access units or after the last.
    virtual void onDiscontinuity() = 0;
};

}  // namespace refhost

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rtsporigin
{

using Bytes = std::vector<std::uint8_t>;

/// What a camera sends at one instant of one track: interleaved RTP packets (RFC 2326 section 10.12), ready
/// to be written but for what each connection has of its own (SenderTrack).
struct CannedUnit
{
    Bytes bytes;
    std::vector<std::size_t> packets;  ///< where each packet's '$' is in `bytes`
    bool keyFrame = false;
};

/// H.264 access units, packed once (RFC 6184, packetization mode 1: single NAL units and FU-A).
struct CannedVideo
{
    static constexpr std::size_t maxPayload = 1400;  ///< bytes of an RTP packet's payload
    static constexpr std::uint8_t payloadType = 96;

    std::vector<CannedUnit> units;
    Bytes sps;  ///< the first sequence parameter set, without a start code
    Bytes pps;  ///< the first PPS, likewise

    /// \param stream  an H.264 byte stream (Annex B) without B-frames that starts with a key frame
    /// \throws std::runtime_error when it is not that
    static CannedVideo pack(const Bytes& stream);
    /// pack() of a file. \throws std::runtime_error when it cannot be read
    static CannedVideo read(const std::string& path);

    /// The format's parameters of the description's fmtp line.
    std::string formatParameters() const;
};

/// 40 ms of a PCMU tone, 8000 Hz, as one packet of payload type 0 (RFC 3551).
CannedUnit cannedTone();

}  // namespace rtsporigin

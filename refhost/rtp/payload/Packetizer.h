#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/media/AccessUnit.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// Makes the RTP packets of coded units of one track: H.264 (RFC 6184, packetization mode 1), H.265 (RFC
/// 7798), AAC (RFC 3640, AAC-hbr), PCMU and PCMA (RFC 3551), Opus (RFC 7587), MJPEG (RFC 2435).
///
/// Pure computation. Threads: one at a time; no locks.
class Packetizer
{
public:
    /// \param payloadSize  max bytes of RTP payload in a packet; less than the codec's headers with a byte of
    ///                     media (3 bytes for H.264, 4 for H.265, 5 for AAC, 145 for MJPEG, a sample of each
    ///                     channel for PCM) counts as that
    /// \returns never null
    static std::unique_ptr<Packetizer> make(Codec codec, int payloadSize);

    virtual ~Packetizer() = default;
    Packetizer(const Packetizer&) = delete;
    Packetizer& operator=(const Packetizer&) = delete;

    /// Packs one unit to one access unit, or to several where a block of PCM does not fit into one packet.
    ///
    /// The headers carry the timestamp, and the marker on the last packet of frames and of AAC; payload type,
    /// sequence number and SSRC are 0. Key frames of H.264 and H.265 get the parameter sets of their format in
    /// front where they bring none. The capture time is the unit's.
    /// \param unit          its format is of this packetizer's codec
    /// \param rtpTimestamp  of the unit, in ticks of the codec's clock
    /// \param[in,out] out   what was made is appended; on failure it is left as it was
    /// \returns null on success, otherwise why the unit cannot be packed, a constant text
    const char* pack(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                     std::vector<std::shared_ptr<AccessUnit>>& out);

    /// Describes a track of such media as pack() sends it: encoding name, payload type, clock rate, format
    /// parameters, size. The frame rate is that of the parameter sets, 0 where these do not say it.
    /// \param[out] out  filled on success, otherwise left as it was
    /// \returns false when the format lacks what a player needs, such as the parameter sets
    static bool describe(const MediaFormat& format, const std::string& trackId, SubMediaInfo& out);

protected:
    explicit Packetizer(Codec codec) : codec_(codec) {}

    /// As pack(), with a unit of the right codec that is not empty.
    virtual const char* packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                                 std::vector<std::shared_ptr<AccessUnit>>& out) = 0;

private:
    const Codec codec_;
};

}  // namespace refhost

#pragma once

#include <cstddef>
#include <cstdint>

namespace refhost
{

/// What a receiver reported of one sender (RFC 3550, section 6.4.1).
struct ReceptionReport
{
    std::uint8_t fractionLost = 0;       ///< since the report before, in 1/256
    std::int32_t cumulativeLost = 0;     ///< packets; negative when more came than were expected
    std::uint32_t highestSequence = 0;   ///< extended by the number of cycles
    std::uint32_t jitter = 0;            ///< in RTP ticks
    std::uint32_t lastReport = 0;        ///< compact NTP time of the last sender report; 0: none received
    std::uint32_t delaySinceReport = 0;  ///< in 1/65536 s
};

/// The contents of one compound packet from a client.
struct RtcpFindings
{
    std::uint32_t reporter = 0;  ///< SSRC of the client, from its first report
    bool reported = false;       ///< `report` is filled
    bool sent = false;           ///< a sender report: `sentNtp` is filled
    bool bye = false;            ///< the client leaves
    ReceptionReport report;
    std::uint32_t sentNtp = 0;  ///< compact NTP time of its sender report
};

/// Reads compound RTCP packets from the network.
class RtcpReader
{
public:
    /// Reads a whole compound packet.
    /// \param ssrc           the sender whose reception reports are looked for
    /// \param[out] findings  filled on success, otherwise left as it was
    /// \returns false when the packet is malformed: it fails a check of RFC 3550, appendix A.2, or its blocks
    ///          do not fit
    static bool read(const std::uint8_t* data, std::size_t size, std::uint32_t ssrc, RtcpFindings& findings);
};

}  // namespace refhost

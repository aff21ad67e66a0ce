#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "bench/load/FrameStart.h"
#include "bench/load/Pace.h"

namespace rtspload
{

/// Judges one track of one session by what arrives: sequence, SSRC, first frame, sender reports.
class TrackWatch
{
public:
    /// Forgets everything for a new session.
    /// \param encoding  the rtpmap's name
    /// \param ordered   packets must arrive in order. A network may change the order of datagrams, and so
    ///                  does the loopback interface of a busy machine when a sender moves to another core.
    void start(std::string encoding, bool ordered);

    /// The SSRC of the answer to SETUP.
    void expectSsrc(std::uint32_t ssrc);
    /// The values of RTP-Info; before or after the packet arrives.
    void expectFirst(std::uint16_t sequence, std::optional<std::uint32_t> rtpTime);

    /// One RTP packet. \returns what its payload says of its frame
    FrameStart onRtp(const std::uint8_t* data, std::size_t size);

    /// One compound RTCP packet.
    void onRtcp(const std::uint8_t* data, std::size_t size);

    std::uint64_t packets() const
    {
        return packets_;
    }
    /// Packets that the sequence numbers skipped and that did not come later either.
    std::uint64_t lost() const
    {
        return lost_;
    }
    /// Packets that came after a later one.
    std::uint64_t outOfOrder() const
    {
        return outOfOrder_;
    }

    /// Of video; of other media empty.
    const Pace& pace() const
    {
        return pace_;
    }

    /// All faults so far, in words, separated by "; "; empty without any.
    /// \param senderReportDue  a sender report should have come by now
    std::string faults(bool senderReportDue) const;

private:
    std::string encoding_;
    bool ordered_ = true;
    std::optional<std::uint32_t> expectedSsrc_;
    std::optional<std::uint16_t> expectedSequence_;
    std::optional<std::uint32_t> expectedRtpTime_;
    std::uint32_t ssrc_ = 0;
    std::uint16_t firstSequence_ = 0;
    std::uint32_t firstRtpTime_ = 0;
    std::uint16_t lastSequence_ = 0;
    std::uint64_t packets_ = 0;
    std::uint64_t lost_ = 0;
    std::uint64_t outOfOrder_ = 0;
    std::uint64_t foreignSsrc_ = 0;
    std::uint64_t malformed_ = 0;
    std::uint64_t senderReports_ = 0;
    std::uint64_t badRtcp_ = 0;
    FrameStart firstFrame_ = FrameStart::unknown;
    Pace pace_;
};

}  // namespace rtspload

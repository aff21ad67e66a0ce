#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "bench/origin/CannedVideo.h"

namespace rtsporigin
{

/// One RTP stream on one connection: numbers its packets and reports about them. Threads: one.
class SenderTrack
{
public:
    /// \param random  seeds SSRC, first sequence number and first timestamp (RFC 3550 section 5.1)
    SenderTrack(int clockRate, std::uint64_t random);

    void setChannels(std::uint8_t rtp, std::uint8_t rtcp)
    {
        rtp_ = rtp;
        rtcp_ = rtcp;
    }

    /// Writes this stream's channel, sequence numbers, timestamp and SSRC into a unit's packets.
    /// \param capture  since the stream's own beginning
    void stamp(CannedUnit& unit, std::chrono::nanoseconds capture);

    /// A sender report with a CNAME (RFC 3550 sections 6.4.1 and 6.5), interleaved.
    /// \param capture  the instant that it is about, since the stream's own beginning
    /// \param wall     the same by the wall clock, since 1970
    Bytes report(std::chrono::nanoseconds capture, std::chrono::nanoseconds wall) const;

    std::uint16_t nextSequence() const
    {
        return sequence_;
    }
    std::uint32_t timestamp(std::chrono::nanoseconds capture) const;

private:
    const int clockRate_;
    const std::uint32_t ssrc_;
    const std::uint32_t timestampBase_;
    std::uint16_t sequence_;
    std::uint8_t rtp_ = 0;
    std::uint8_t rtcp_ = 1;
    std::uint32_t packets_ = 0;
    std::uint32_t octets_ = 0;
};

}  // namespace rtsporigin

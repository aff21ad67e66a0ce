#pragma once

#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/rtp/RtcpReader.h"

namespace refhost
{

/// What a receiver counts of one source and reports to it (RFC 3550, section 6.4.1 and appendices A.1, A.3
/// and A.8).
///
/// Threads: one at a time.
class ReceptionStatistics
{
public:
    enum class Verdict
    {
        counted,
        /// Far from the expected sequence number; not counted. If the next packet follows it, the source
        /// restarted, and counting restarts with that one.
        outOfSequence,
        /// The first packet, or the first after a restart of the source.
        started
    };

    struct Arrival
    {
        Verdict verdict;
        std::uint32_t sequence;  ///< extended by the cycles; not set for `outOfSequence`
    };

    /// \param clock  of the source's RTP timestamps
    explicit ReceptionStatistics(RtpClock clock);

    /// Counts a packet.
    Arrival count(std::uint16_t sequence, std::uint32_t timestamp, MonotonicTime arrival);

    /// Notes a sender report of the source.
    /// \param compactNtp  the middle 32 bits of its NTP time
    void noteSenderReport(std::uint32_t compactNtp, MonotonicTime arrival);

    /// True when a packet was counted.
    bool any() const
    {
        return started_;
    }

    /// Makes the next report. Its fraction lost is that since the previous call.
    ReceptionReport report(MonotonicTime now);

    /// Packets expected but not received, bounded to the 24 bits of a report.
    std::int32_t lost() const;

private:
    void restart(std::uint16_t sequence);
    void measure(std::uint32_t timestamp, MonotonicTime arrival);
    std::uint32_t highest() const;
    std::uint32_t expected() const;

    RtpClock clock_;
    bool started_ = false;
    std::uint32_t base_ = 0;
    std::uint32_t cycles_ = 0;  // counted in packets: 65536 for each
    std::uint16_t highest_ = 0;
    std::uint32_t outOfSequenceNext_ = 0;  // successor of the last packet out of sequence; out of range: none
    std::uint32_t received_ = 0;
    std::uint32_t expectedBefore_ = 0;
    std::uint32_t receivedBefore_ = 0;
    bool measured_ = false;
    std::uint32_t transit_ = 0;
    std::uint32_t jitter_ = 0;  // in 1/16 tick
    std::uint32_t lastReport_ = 0;
    MonotonicTime lastReportArrival_;
};

}  // namespace refhost

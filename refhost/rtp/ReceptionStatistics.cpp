#include "refhost/rtp/ReceptionStatistics.h"

#include <algorithm>

namespace refhost
{
namespace
{

constexpr std::uint32_t cycle = 1U << 16U;
constexpr std::uint32_t noneOutOfSequence = cycle;
// RFC 3550, appendix A.1.
constexpr std::uint16_t maxDropped = 3000;
constexpr std::uint16_t maxMisordered = 100;

}  // namespace

ReceptionStatistics::ReceptionStatistics(RtpClock clock)
    : clock_(clock), outOfSequenceNext_(noneOutOfSequence)
{
}

void ReceptionStatistics::restart(std::uint16_t sequence)
{
    started_ = true;
    base_ = sequence;
    highest_ = sequence;
    cycles_ = 0;
    outOfSequenceNext_ = noneOutOfSequence;
    received_ = 0;
    expectedBefore_ = 0;
    receivedBefore_ = 0;
    measured_ = false;
    jitter_ = 0;
}

ReceptionStatistics::Arrival ReceptionStatistics::count(std::uint16_t sequence, std::uint32_t timestamp,
                                                        MonotonicTime arrival)
{
    Arrival counted{Verdict::counted, 0};
    const auto ahead = static_cast<std::uint16_t>(sequence - highest_);
    if (!started_)
    {
        restart(sequence);
        counted.verdict = Verdict::started;
    }
    else if (ahead < maxDropped)
    {
        cycles_ += sequence < highest_ ? cycle : 0;
        highest_ = sequence;
    }
    else if (ahead <= cycle - maxMisordered)
    {
        if (sequence != outOfSequenceNext_)
        {
            outOfSequenceNext_ = (sequence + 1U) & (cycle - 1U);
            return {Verdict::outOfSequence, 0};
        }
        restart(sequence);
        counted.verdict = Verdict::started;
    }
    // Otherwise it is late or a duplicate, which counts as received (RFC 3550, section 6.4.1).
    ++received_;
    measure(timestamp, arrival);
    counted.sequence = cycles_ + sequence - (sequence > highest_ ? cycle : 0);
    return counted;
}

void ReceptionStatistics::measure(std::uint32_t timestamp, MonotonicTime arrival)
{
    const std::uint32_t transit = clock_.timestampAt(arrival) - timestamp;
    if (measured_)
    {
        const auto change = static_cast<std::int32_t>(transit - transit_);
        const std::uint32_t size =
            change < 0 ? 0U - static_cast<std::uint32_t>(change) : static_cast<std::uint32_t>(change);
        jitter_ += size - ((jitter_ + 8U) >> 4U);
    }
    measured_ = true;
    transit_ = transit;
}

void ReceptionStatistics::noteSenderReport(std::uint32_t compactNtp, MonotonicTime arrival)
{
    lastReport_ = compactNtp;
    lastReportArrival_ = arrival;
}

std::uint32_t ReceptionStatistics::highest() const
{
    return cycles_ + highest_;
}

std::uint32_t ReceptionStatistics::expected() const
{
    return started_ ? highest() - base_ + 1U : 0U;
}

std::int32_t ReceptionStatistics::lost() const
{
    constexpr std::int32_t max = 0x7fffff;
    return std::clamp(static_cast<std::int32_t>(expected() - received_), -max - 1, max);
}

ReceptionReport ReceptionStatistics::report(MonotonicTime now)
{
    const std::uint32_t expectedNow = expected() - expectedBefore_;
    const std::uint32_t receivedNow = received_ - receivedBefore_;
    expectedBefore_ = expected();
    receivedBefore_ = received_;
    ReceptionReport report;
    if (expectedNow > receivedNow)
    {
        const std::uint64_t fraction = (std::uint64_t{expectedNow - receivedNow} << 8U) / expectedNow;
        report.fractionLost = static_cast<std::uint8_t>(std::min<std::uint64_t>(fraction, 255));
    }
    report.cumulativeLost = lost();
    report.highestSequence = highest();
    report.jitter = jitter_ >> 4U;
    report.lastReport = lastReport_;
    if (lastReport_ != 0)
    {
        report.delaySinceReport = compactNtpOf(now - lastReportArrival_);
    }
    return report;
}

}  // namespace refhost

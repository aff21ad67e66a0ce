#include "refhost/rtp/ReceptionStatistics.h"

#include <algorithm>

namespace refhost
{
namespace
{

constexpr std::uint32_t cycle = 1U << 16U;
constexpr std::uint32_t noneOutOfSequence = cycle;
// As RFC 3550, appendix A.1, has them.
constexpr std::uint16_t maxDropped = 3000;
constexpr std::uint16_t maxMisordered = 100;
constexpr std::int64_t nsPerSecond = 1'000'000'000;

/// An instant in ticks of a clock. Only differences of two such matter, so the high bits may be lost.
std::uint32_t ticksAt(std::int64_t ns, int rate)
{
    const std::int64_t seconds = ns / nsPerSecond;
    const std::int64_t rest = ns % nsPerSecond;
    return static_cast<std::uint32_t>(seconds * rate + rest * rate / nsPerSecond);
}

}  // namespace

ReceptionStatistics::ReceptionStatistics(int clockRate)
    : clockRate_(clockRate), outOfSequenceNext_(noneOutOfSequence)
{
}

void ReceptionStatistics::begin(std::uint16_t sequence)
{
    began_ = true;
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
                                                        std::int64_t arrivalNs)
{
    Arrival arrival{Verdict::counted, 0};
    const auto ahead = static_cast<std::uint16_t>(sequence - highest_);
    if (!began_)
    {
        begin(sequence);
        arrival.verdict = Verdict::begun;
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
        begin(sequence);
        arrival.verdict = Verdict::begun;
    }
    // Otherwise it comes late or a second time, which counts as come all the same.
    ++received_;
    measure(timestamp, arrivalNs);
    arrival.sequence = cycles_ + sequence - (sequence > highest_ ? cycle : 0);
    return arrival;
}

void ReceptionStatistics::measure(std::uint32_t timestamp, std::int64_t arrivalNs)
{
    const std::uint32_t transit = ticksAt(arrivalNs, clockRate_) - timestamp;
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

void ReceptionStatistics::noteSenderReport(std::uint32_t compactNtp, std::int64_t arrivalNs)
{
    lastReport_ = compactNtp;
    lastReportNs_ = arrivalNs;
}

std::uint32_t ReceptionStatistics::highest() const
{
    return cycles_ + highest_;
}

std::uint32_t ReceptionStatistics::expected() const
{
    return began_ ? highest() - base_ + 1U : 0U;
}

std::int32_t ReceptionStatistics::lost() const
{
    constexpr std::int32_t max = 0x7fffff;
    return std::clamp(static_cast<std::int32_t>(expected() - received_), -max - 1, max);
}

ReceptionReport ReceptionStatistics::report(std::int64_t nowNs)
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
        report.delaySinceReport = ticksAt(nowNs - lastReportNs_, 1 << 16);
    }
    return report;
}

}  // namespace refhost

#include "refhost/recording/RecordingRetention.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "refhost/recording/FileUse.h"

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1000000000;
/// Recordings may be dated a little ahead of the clock that is being corrected.
constexpr std::int64_t toleranceNs = 10 * second;
/// While they are removed slowly: of all segments, in a nanosecond.
constexpr double minRate = 0.01 / (3600.0 * static_cast<double>(second));

std::string utc(std::int64_t timeNs)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}Z", fmt::gmtime(static_cast<std::time_t>(timeNs / second)));
}

}  // namespace

RecordingRetention::Outcome RecordingRetention::apply(RecordingIndex& index, const Now& now)
{
    Outcome outcome;
    if (limits_.maxAgeNs > 0)
    {
        outcome.clockDoubt = clockDoubt(index, now.wallNs);
        watchClock(index, now);
    }
    const bool byAge = limits_.maxAgeNs > 0 && outcome.clockDoubt.empty();
    Ids stuck;
    Ids passed;  // stuck ones, and those that are in use
    std::int64_t bytes = index.totalBytes();
    bool sparesUsed = true;
    while (stuck.size() < maxFailures)
    {
        const std::optional<Oldest> found = oldest(index, passed);
        if (sparesUsed && !found && passed.size() > stuck.size())
        {
            // Nothing else is left.
            sparesUsed = false;
            passed = stuck;
            continue;
        }
        const bool tooMuch = limits_.maxBytes > 0 && bytes > limits_.maxBytes;
        const bool tooOld = found && byAge && isTooOld(*found, now.wallNs);
        outcome.slowly = !tooMuch && tooOld && slowly_ && allowance_ < 1;
        if (!found || outcome.slowly || !(tooMuch || tooOld))
        {
            slowly_ = slowly_ && (outcome.slowly || !byAge);
            break;
        }
        const RecordedSegment& segment = found->segment;
        if (sparesUsed && !tooOld && FileUse::isOpenElsewhere(segment.path))
        {
            passed.insert(segment.id);
            continue;
        }
        // The file first: it makes room where the disk is full and the index cannot be changed.
        std::error_code problem;
        std::filesystem::remove(segment.path, problem);
        if (problem)
        {
            outcome.problem = segment.path + ": " + problem.message();
            stuck.insert(segment.id);
            passed.insert(segment.id);
            continue;
        }
        if (!index.remove(segment.id))
        {
            outcome.problem = index.lastError();
            break;
        }
        bytes -= segment.bytes;
        allowance_ -= tooMuch ? 0 : 1;
        ++outcome.removed;
    }
    return outcome;
}

std::string RecordingRetention::clockDoubt(const RecordingIndex& index, std::int64_t nowNs) const
{
    if (nowNs < limits_.clockSinceNs)
    {
        return fmt::format("the clock shows {}, before this program was built", utc(nowNs));
    }
    const std::optional<std::int64_t> newestNs = index.newestBegin();
    if (newestNs && nowNs + toleranceNs < *newestNs)
    {
        return fmt::format("the clock shows {}, before the newest recording, of {}", utc(nowNs),
                           utc(*newestNs));
    }
    return std::string();
}

void RecordingRetention::watchClock(const RecordingIndex& index, const Now& now)
{
    const std::optional<std::int64_t> newestNs = index.newestBegin();
    const bool allTooOld = !last_ && newestNs && *newestNs < now.wallNs - limits_.maxAgeNs;
    const bool setForward = last_ && now.stepsForward != last_->stepsForward;
    if (!slowly_ && (setForward || allTooOld))
    {
        slowly_ = true;
        allowance_ = 0;
        count_ = static_cast<double>(index.count());
    }
    else if (slowly_ && last_)
    {
        const double rate = std::max(2.0 / static_cast<double>(limits_.maxAgeNs), minRate);
        const auto elapsedNs =
            static_cast<double>(std::max<std::int64_t>(now.monotonicNs - last_->monotonicNs, 0));
        allowance_ =
            std::min(std::max(allowance_, 0.0) + elapsedNs * rate * count_, std::max(maxShare * count_, 1.0));
    }
    last_ = now;
}

/// By the date from which its age counts.
std::optional<RecordingRetention::Oldest> RecordingRetention::oldest(const RecordingIndex& index,
                                                                     const Ids& besides) const
{
    std::optional<Oldest> found;
    if (const auto dated = index.oldestClosed(besides, limits_.datesSinceNs))
    {
        found = Oldest{*dated, dated->beginNs + dated->durationNs};
    }
    const auto misdated = index.firstBefore(limits_.datesSinceNs, besides);
    if (!misdated)
    {
        return found;
    }
    const std::optional<std::int64_t> dateNs = index.beginAfter(misdated->id, limits_.datesSinceNs);
    const bool older = !found || (dateNs && *dateNs < *found->endNs);
    return older ? Oldest{*misdated, dateNs} : found;
}

bool RecordingRetention::isTooOld(const Oldest& oldest, std::int64_t nowNs) const
{
    return oldest.endNs && *oldest.endNs < nowNs - limits_.maxAgeNs;
}

}  // namespace refhost

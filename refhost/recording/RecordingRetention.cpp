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

/// Recordings may be dated slightly ahead of a clock that is being corrected.
constexpr Duration tolerance = std::chrono::seconds(10);
/// Of slow removal: share of all segments in a second.
constexpr double minRate = 0.01 / 3600.0;

std::string utc(WallTime date)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}Z", fmt::gmtime(static_cast<std::time_t>(unixSeconds(date))));
}

}  // namespace

RecordingRetention::Outcome RecordingRetention::apply(RecordingIndex& index, const Now& now)
{
    Outcome outcome;
    const bool limitsAge = limits_.maxAge > Duration::zero();
    if (limitsAge)
    {
        outcome.clockDoubt = clockDoubt(index, now.wall);
        watchClock(index, now);
    }
    const bool byAge = limitsAge && outcome.clockDoubt.empty();
    Ids stuck;
    Ids passed;  // stuck ones and those in use
    std::int64_t bytes = index.totalBytes();
    bool sparesUsed = true;
    while (stuck.size() < maxFailures)
    {
        const std::optional<Oldest> found = oldest(index, passed);
        if (sparesUsed && !found && passed.size() > stuck.size())
        {
            // Only segments in use are left.
            sparesUsed = false;
            passed = stuck;
            continue;
        }
        const bool tooMuch = limits_.maxBytes > 0 && bytes > limits_.maxBytes;
        const bool tooOld = found && byAge && isTooOld(*found, now.wall);
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
        // The file first: on a full disk the index cannot be changed before.
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

std::string RecordingRetention::clockDoubt(const RecordingIndex& index, WallTime now) const
{
    if (now < limits_.clockSince)
    {
        return fmt::format("the clock reads {}, before this program was built", utc(now));
    }
    const std::optional<WallTime> newest = index.newestBegin();
    if (newest && now + tolerance < *newest)
    {
        return fmt::format("the clock reads {}, before the newest recording, of {}", utc(now), utc(*newest));
    }
    return std::string();
}

void RecordingRetention::watchClock(const RecordingIndex& index, const Now& now)
{
    const std::optional<WallTime> newest = index.newestBegin();
    const bool allTooOld = !last_ && newest && *newest < now.wall - limits_.maxAge;
    const bool setForward = last_ && now.stepsForward != last_->stepsForward;
    if (!slowly_ && (setForward || allTooOld))
    {
        slowly_ = true;
        allowance_ = 0;
        count_ = static_cast<double>(index.count());
    }
    else if (slowly_ && last_)
    {
        const double rate = std::max(2.0 / secondsOf(limits_.maxAge), minRate);
        const double elapsed = std::max(secondsOf(now.monotonic - last_->monotonic), 0.0);
        allowance_ =
            std::min(std::max(allowance_, 0.0) + elapsed * rate * count_, std::max(maxShare * count_, 1.0));
    }
    last_ = now;
}

/// The segment with the earliest date from which its age counts.
std::optional<RecordingRetention::Oldest> RecordingRetention::oldest(const RecordingIndex& index,
                                                                     const Ids& besides) const
{
    std::optional<Oldest> found;
    if (const auto dated = index.oldestClosed(besides, limits_.datesSince))
    {
        found = Oldest{*dated, dated->end()};
    }
    const auto misdated = index.firstBefore(limits_.datesSince, besides);
    if (!misdated)
    {
        return found;
    }
    const std::optional<WallTime> date = index.beginAfter(misdated->id, limits_.datesSince);
    const bool older = !found || (date && *date < *found->end);
    return older ? Oldest{*misdated, date} : found;
}

bool RecordingRetention::isTooOld(const Oldest& oldest, WallTime now) const
{
    return oldest.end && *oldest.end < now - limits_.maxAge;
}

}  // namespace refhost

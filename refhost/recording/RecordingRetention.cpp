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
    keepCameraLimits(index, outcome);
    const std::int64_t minFree = limits_.minFree.bytesOf(now.disk.capacity);
    std::int64_t available = now.disk.available + outcome.bytes;
    std::int64_t bytes = index.totalBytes();
    Sweep sweep{index, outcome};
    while (sweep.goesOn())
    {
        const std::optional<Oldest> found = next(sweep, std::nullopt);
        const bool tooFull = available < minFree;
        const bool tooMuch = (limits_.maxBytes > 0 && bytes > limits_.maxBytes) || tooFull;
        const bool tooOld = found && byAge && isTooOld(*found, now.wall);
        outcome.slowly = !tooMuch && tooOld && slowly_ && allowance_ < 1;
        if (!found || outcome.slowly || !(tooMuch || tooOld))
        {
            slowly_ = slowly_ && (outcome.slowly || !byAge);
            break;
        }
        if (remove(sweep, found->segment, tooOld))
        {
            bytes -= found->segment.bytes;
            available += found->segment.bytes;
            allowance_ -= tooMuch ? 0 : 1;
            outcome.removedForRoom += tooFull ? 1 : 0;
        }
    }
    return outcome;
}

void RecordingRetention::keepCameraLimits(RecordingIndex& index, Outcome& outcome) const
{
    for (const auto& [camera, maxBytes] : limits_.maxBytesOf)
    {
        std::int64_t bytes = index.bytesOf(camera);
        Sweep sweep{index, outcome};
        while (bytes > maxBytes && sweep.goesOn())
        {
            const std::optional<Oldest> found = next(sweep, camera);
            if (!found)
            {
                break;
            }
            if (remove(sweep, found->segment, false))
            {
                bytes -= found->segment.bytes;
            }
        }
    }
}

/// The oldest segment that may be removed; those in use once no others are left.
std::optional<RecordingRetention::Oldest> RecordingRetention::next(Sweep& sweep,
                                                                   std::optional<int> camera) const
{
    std::optional<Oldest> found = oldest(sweep.index, sweep.passed, camera);
    if (!found && sweep.sparesUsed && sweep.passed.size() > sweep.stuck.size())
    {
        sweep.sparesUsed = false;
        sweep.passed = sweep.stuck;
        found = oldest(sweep.index, sweep.passed, camera);
    }
    return found;
}

/// \param mayBeUsed  remove it even if it is open elsewhere
/// \returns false when it was passed over: it is in use, or cannot be removed
bool RecordingRetention::remove(Sweep& sweep, const RecordedSegment& segment, bool mayBeUsed)
{
    if (sweep.sparesUsed && !mayBeUsed && FileUse::isOpenElsewhere(segment.path))
    {
        sweep.passed.insert(segment.id);
        return false;
    }
    // The file first: on a full disk the index cannot be changed before.
    std::error_code problem;
    std::filesystem::remove(segment.path, problem);
    if (problem)
    {
        sweep.outcome.problem = segment.path + ": " + problem.message();
        sweep.stuck.insert(segment.id);
        sweep.passed.insert(segment.id);
        return false;
    }
    if (!sweep.index.remove(segment.id))
    {
        sweep.outcome.problem = sweep.index.lastError();
        sweep.failed = true;
        return false;
    }
    sweep.outcome.bytes += segment.bytes;
    ++sweep.outcome.removed;
    return true;
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
                                                                     const Ids& besides,
                                                                     std::optional<int> camera) const
{
    std::optional<Oldest> found;
    if (const auto dated = index.oldestClosed(besides, limits_.datesSince, camera))
    {
        found = Oldest{*dated, dated->end()};
    }
    const auto misdated = index.firstBefore(limits_.datesSince, besides, camera);
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

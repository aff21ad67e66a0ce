#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "refhost/base/Times.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{

/// Removes the oldest segments where there are more than wanted, file and entry together.
///
/// Age is judged by dates, and dates by clocks that may have been wrong, then or now:
/// - While the clock is implausible, earlier than the newest recording or than this program, nothing is
///   removed by age.
/// - A segment that was recorded with an implausible clock counts as old as the first one with a plausible
///   date that was recorded after it; without such a one it has no age.
/// - After the clock was set forward, and where all recordings are too old at the start, a small share is
///   removed at a time: as much as ages twice as fast as the clock, or a hundredth of all an hour.
///
/// Segments that are being written stay. Threads: one at a time.
class RecordingRetention
{
public:
    struct Limits
    {
        std::int64_t maxBytes = 0;  ///< of all files together; 0: no limit
        Duration maxAge{};          ///< from the end of a segment until now; 0: no limit
        WallTime clockSince{};      ///< a wall clock that shows an earlier time is wrong
        WallTime datesSince{};      ///< nothing was recorded earlier, whatever its date says
    };

    struct Now
    {
        WallTime wall{};
        MonotonicTime monotonic{};
        std::uint32_t stepsForward = 0;  ///< how often the wall clock was set forward
    };

    struct Outcome
    {
        int removed = 0;         ///< segments
        std::string problem;     ///< of one that could not be removed, in plain words; empty without any
        std::string clockDoubt;  ///< why nothing was removed by age, in plain words; empty where it might be
        bool slowly = false;     ///< more is too old, and only a share of it was removed
    };

    /// Files that cannot be removed are passed over, this many in one go: more of them mean that none can.
    static constexpr int maxFailures = 16;
    /// Largest share of all segments that is removed at a time while they are removed slowly.
    static constexpr double maxShare = 0.05;

    explicit RecordingRetention(const Limits& limits) : limits_(limits) {}

    Outcome apply(RecordingIndex& index, const Now& now);

private:
    struct Oldest
    {
        RecordedSegment segment;
        std::optional<WallTime> end;  ///< date from which its age counts; nothing where that is not known
    };
    using Ids = std::set<std::int64_t>;

    std::string clockDoubt(const RecordingIndex& index, WallTime now) const;
    void watchClock(const RecordingIndex& index, const Now& now);
    std::optional<Oldest> oldest(const RecordingIndex& index, const Ids& besides) const;
    bool isTooOld(const Oldest& oldest, WallTime now) const;

    const Limits limits_;
    std::optional<Now> last_;  ///< when apply() was called last
    bool slowly_ = false;
    double count_ = 0;      ///< of all segments when that started
    double allowance_ = 0;  ///< segments that may be removed by age while slowly_
};

}  // namespace refhost

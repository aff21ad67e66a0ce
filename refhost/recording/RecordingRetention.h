#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "refhost/base/DiskSpace.h"
#include "refhost/base/Times.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{

/// Removes the oldest segments, file and entry, when limits of size or age are exceeded or the disk's room
/// falls short.
///
/// Age depends on dates, whose clock may have been wrong, then or now:
/// - While the clock is implausible, earlier than the newest recording or than this program's build, nothing
///   is removed by age.
/// - A segment recorded with an implausible clock has the age of the next segment with a plausible date;
///   without one it has no age.
/// - After the clock was set forward, and when all recordings are too old at the start, segments are removed
///   slowly: at twice the rate of normal ageing, or a hundredth of all in an hour.
///
/// Open segments stay. Threads: one at a time.
class RecordingRetention
{
public:
    struct Limits
    {
        std::int64_t maxBytes = 0;  ///< of all files together; 0: no limit
        Duration maxAge{};          ///< from the end of a segment until now; 0: no limit
        WallTime clockSince{};      ///< an earlier wall clock is wrong
        WallTime datesSince{};      ///< an earlier date of a recording is wrong
        FreeSpace minFree{};        ///< of the disk
        /// Max bytes of a camera's files, by camera; a camera that is missing has no limit of its own.
        std::map<int, std::int64_t> maxBytesOf{};
    };

    struct Now
    {
        WallTime wall{};
        MonotonicTime monotonic{};
        std::uint32_t stepsForward = 0;  ///< number of times that the wall clock was set forward
        DiskSpace disk{};                ///< with a capacity of 0 the disk's room is not limited
    };

    struct Outcome
    {
        int removed = 0;         ///< segments
        std::int64_t bytes = 0;  ///< of these
        std::string problem;     ///< of a segment that could not be removed, in plain words; or empty
        std::string clockDoubt;  ///< why nothing was removed by age, in plain words; or empty
        bool slowly = false;     ///< more segments are too old than were removed
        int removedForRoom = 0;  ///< those of `removed` that went because the disk's room fell short
    };

    /// Max. files of one apply() that cannot be removed: after so many the others cannot, either.
    static constexpr int maxFailures = 16;
    /// Max. share of all segments that is removed at a time while they are removed slowly.
    static constexpr double maxShare = 0.05;

    explicit RecordingRetention(const Limits& limits) : limits_(limits) {}

    /// From now on these limits hold.
    void setLimits(const Limits& limits)
    {
        limits_ = limits;
    }

    Outcome apply(RecordingIndex& index, const Now& now);

private:
    struct Oldest
    {
        RecordedSegment segment;
        std::optional<WallTime> end;  ///< date from which its age counts; nothing if unknown
    };
    using Ids = std::set<std::int64_t>;

    /// One apply().
    struct Sweep
    {
        RecordingIndex& index;
        Outcome& outcome;
        Ids stuck{};             ///< cannot be removed
        Ids passed{};            ///< stuck, or in use
        bool sparesUsed = true;  ///< as long as others can be removed
        bool failed = false;     ///< the index does not take a removal

        bool goesOn() const
        {
            return !failed && stuck.size() < maxFailures;
        }
    };

    void keepCameraLimits(RecordingIndex& index, Outcome& outcome) const;
    std::optional<Oldest> next(Sweep& sweep, std::optional<int> camera) const;
    static bool remove(Sweep& sweep, const RecordedSegment& segment, bool mayBeUsed);
    std::string clockDoubt(const RecordingIndex& index, WallTime now) const;
    void watchClock(const RecordingIndex& index, const Now& now);
    std::optional<Oldest> oldest(const RecordingIndex& index, const Ids& besides,
                                 std::optional<int> camera) const;
    bool isTooOld(const Oldest& oldest, WallTime now) const;

    Limits limits_;
    std::optional<Now> last_;  ///< of the last apply()
    bool slowly_ = false;
    double count_ = 0;      ///< of all segments when slow removal started
    double allowance_ = 0;  ///< segments that may be removed now while slowly_
};

}  // namespace refhost

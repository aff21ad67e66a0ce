#pragma once

#include <cstdint>
#include <string>

#include "refhost/recording/RecordingIndex.h"

namespace refhost
{

/// Removes the oldest segments where there are more than wanted, file and entry together.
///
/// Segments that are being written stay. Of the others, those whose files are open anywhere, as the ones that
/// are being played, go by size only where nothing else is left; by age they go as the others. Threads: one
/// at a time.
class RecordingRetention
{
public:
    struct Limits
    {
        std::int64_t maxBytes = 0;  ///< of all files together; 0: no limit
        std::int64_t maxAgeNs = 0;  ///< from the end of a segment until now; 0: no limit
    };

    struct Outcome
    {
        int removed = 0;      ///< segments
        std::string problem;  ///< of one that could not be removed, in plain words; empty without any
    };

    /// Files that cannot be removed are passed over, this many in one go: more of them mean that none can.
    static constexpr int mostFailures = 16;

    explicit RecordingRetention(const Limits& limits) : limits_(limits) {}

    /// \param nowNs  wall clock, nanoseconds since 1970
    Outcome apply(RecordingIndex& index, std::int64_t nowNs) const;

private:
    bool isTooOld(const RecordedSegment& segment, std::int64_t nowNs) const;
    bool isTooMuch(std::int64_t bytes, const RecordedSegment& oldest, std::int64_t nowNs) const;

    Limits limits_;
};

}  // namespace refhost

#pragma once

#include <cstdint>

#include "refhost/recording/RecordingIndex.h"

namespace refhost
{

/// Removes the oldest segments where there are more than wanted, file and entry together.
///
/// Segments that are being written stay. Threads: one at a time.
class RecordingRetention
{
public:
    struct Limits
    {
        std::int64_t maxBytes = 0;  ///< of all files together; 0: no limit
        std::int64_t maxAgeNs = 0;  ///< from the end of a segment until now; 0: no limit
    };

    explicit RecordingRetention(const Limits& limits) : limits_(limits) {}

    /// \param nowNs  wall clock, nanoseconds since 1970
    /// \returns how many segments were removed; stops at the first that cannot be
    int apply(RecordingIndex& index, std::int64_t nowNs) const;

private:
    bool isTooMuch(std::int64_t bytes, const RecordedSegment& oldest, std::int64_t nowNs) const;

    Limits limits_;
};

}  // namespace refhost

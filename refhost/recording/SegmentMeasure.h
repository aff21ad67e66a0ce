#pragma once
// Tested by tests/refhost/recording/SegmentWriter_test.cpp.

#include <atomic>
#include <cstdint>
#include <string>

#include "refhost/base/Times.h"

namespace refhost
{

/// How much of a Matroska file can be played, found by reading it to its end.
struct SegmentMeasure
{
    enum class Result
    {
        media,      ///< it was measured
        nothing,    ///< nothing in it can be played, or there is no file
        unreadable  ///< the system does not give its bytes: nobody knows
    };

    /// A single frame lasts that long at least: timestamps are milliseconds.
    static constexpr Duration minDuration = std::chrono::milliseconds(1);

    Duration duration{};     ///< up to the end of the last frame, or of the last audio without any
    std::int64_t bytes = 0;  ///< size of the file

    /// Measures a file, finished or not.
    /// \param[out] measure  set where there is recorded media
    /// \param stopping  ends it soon when it becomes true, as if the file could not be read; null: never
    static Result take(const std::string& path, SegmentMeasure& measure,
                       const std::atomic<bool>* stopping = nullptr);
};

}  // namespace refhost

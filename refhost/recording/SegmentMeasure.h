#pragma once
// Tested by tests/refhost/recording/SegmentWriter_test.cpp.

#include <atomic>
#include <cstdint>
#include <string>

#include "refhost/base/Times.h"

namespace refhost
{

/// Playable duration and size of a Matroska file, measured by reading all of it.
struct SegmentMeasure
{
    enum class Result
    {
        media,      ///< measured
        nothing,    ///< nothing playable, or no file
        unreadable  ///< the file cannot be read now
    };

    /// Min. duration of a single frame: timestamps are milliseconds.
    static constexpr Duration minDuration = std::chrono::milliseconds(1);

    Duration duration{};     ///< up to the end of the last frame, without video of the last audio
    std::int64_t bytes = 0;  ///< size of the file

    /// Measures a file, finished or not.
    /// \param[out] measure  set for Result::media
    /// \param stopping      set to end it soon with Result::unreadable; null: never
    static Result take(const std::string& path, SegmentMeasure& measure,
                       const std::atomic<bool>* stopping = nullptr);
};

}  // namespace refhost

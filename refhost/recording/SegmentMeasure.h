#pragma once

#include <cstdint>
#include <string>

namespace refhost
{

/// How much of a Matroska file can be played, found by reading it to its end.
struct SegmentMeasure
{
    std::int64_t durationNs = 0;  ///< up to the end of the last picture, or of the last sound without any
    std::int64_t bytes = 0;       ///< size of the file

    /// Measures a file, finished or not.
    /// \param[out] measure  set on success
    /// \returns false when nothing in it can be played or it cannot be read
    static bool take(const std::string& path, SegmentMeasure& measure);
};

}  // namespace refhost

#pragma once

#include <optional>
#include <string>

#include "refhost/base/Times.h"

namespace refhost
{

/// Where a segment lies: `<camera>/<stream>/<begin>.mkv` below the directory of all recordings, the begin in
/// UTC with microseconds, such as `1/0/20260131T235959.123456Z.mkv`.
struct SegmentPath
{
    int cameraId = 0;
    int streamId = 0;
    WallTime begin;  ///< whole microseconds in a path

    /// The path below the directory.
    std::string toString() const;

    /// \returns nothing when `path`, below the directory, is no segment's
    static std::optional<SegmentPath> parse(const std::string& path);
};

}  // namespace refhost

#pragma once

#include <optional>
#include <string>

#include "refhost/base/Times.h"

namespace refhost
{

/// Path of a segment below the directory of all recordings: `<camera>/<stream>/<begin>.mkv`, the begin in UTC
/// with microseconds, such as `1/0/20260131T235959.123456Z.mkv`.
struct SegmentPath
{
    int cameraId = 0;
    int streamId = 0;
    WallTime begin;  ///< whole microseconds in a path

    /// The path below the directory.
    std::string toString() const;

    /// \param path  below the directory
    /// \returns nothing when toString() does not make such a path
    static std::optional<SegmentPath> parse(const std::string& path);
};

}  // namespace refhost

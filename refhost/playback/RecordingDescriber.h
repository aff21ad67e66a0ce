#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/playback/SegmentFile.h"

namespace refhost
{

/// Describes the tracks of a recorded interval by its first segments.
///
/// An unreadable segment, or one with corrupt parameter sets, counts only where no segment is whole; a
/// segment whose parameter sets differ from those of the next two does not count. Caches descriptions of
/// segments. Threads: one at a time. Reads from a disk.
class RecordingDescriber
{
public:
    /// \param[out] out  the tracks, video first; left as it was on failure
    /// \returns 0; hostRecordingUnknown when nothing is recorded; hostRecordingsIncomplete when that is not
    ///          known yet; hostStreamFailed when no segment can be read
    int describe(const RecordingDirectory& directory, int cameraId, WallTime begin, WallTime end,
                 std::vector<SubMediaInfo>& out);

private:
    using Tracks = std::vector<SubMediaInfo>;

    struct Described
    {
        Tracks tracks;
        bool whole = true;  ///< all tracks are described, and a decoder accepts their parameters
    };

    bool describeSegment(const RecordedSegment& segment, Described& out);
    static bool describeFile(const std::string& path, Described& out);
    static bool describeTrack(SegmentFile& file, bool video, SubMediaInfo& out);
    static bool agree(const Described& left, const Described& right);
    static void addBitRate(const RecordedSegment& segment, Tracks& tracks);

    std::vector<std::pair<std::string, Described>> known_;  // by path, most recently used last
};

}  // namespace refhost

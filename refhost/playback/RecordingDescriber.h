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

/// Finds out what the recorded media of an interval is made of, by its first segments. One that cannot be read or
/// whose parameter sets are damaged does not count where another one is whole, nor one whose parameter sets
/// differ from those that the next two agree on. Remembers what it read lately. Threads: one at a time. Reads
/// from a disk.
class RecordingDescriber
{
public:
    /// \param[out] out  the tracks, video first; left as it was on failure
    /// \returns 0; hostRecordingUnknown when there is no recorded media; hostRecordingsIncomplete when that is not
    ///          known yet; hostStreamFailed when none can be read
    int describe(const RecordingDirectory& directory, int cameraId, WallTime begin, WallTime end,
                 std::vector<SubMediaInfo>& out);

private:
    using Tracks = std::vector<SubMediaInfo>;

    struct Described
    {
        Tracks tracks;
        bool whole = true;  ///< every track of the file is there, and a decoder takes its parameters
    };

    bool describeSegment(const RecordedSegment& segment, Described& out);
    static bool describeFile(const std::string& path, Described& out);
    static bool describeTrack(SegmentFile& file, bool video, SubMediaInfo& out);
    static bool agree(const Described& left, const Described& right);
    static void addBitRate(const RecordedSegment& segment, Tracks& tracks);

    std::vector<std::pair<std::string, Described>> known_;  // by path, the latest last
};

}  // namespace refhost

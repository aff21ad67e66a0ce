#pragma once
// Tested by tests/refhost/recording/RecordingIndex_test.cpp.

#include <cstdint>
#include <string>

#include "refhost/base/Times.h"

namespace refhost
{

/// One file of recorded media.
///
/// The wall clock of a media instant is `begin` plus its Matroska timestamp; the first frame, a key
/// frame, has timestamp 0.
struct RecordedSegment
{
    std::int64_t id = 0;
    int cameraId = 0;
    int streamId = 0;
    /// Number of times that the clock had been set back before: keeps media apart that were recorded twice at
    /// one date. The index assigns it.
    int epoch = 0;
    WallTime begin;          ///< capture time of the first frame
    Duration duration{};     ///< up to the end of the last frame; of an open segment as far as known
    std::int64_t bytes = 0;  ///< size of the file; of an open segment as far as known
    std::string path;        ///< of the file, including the index's directory
    bool closed = false;     ///< false while it is written, or after a crash

    /// End of the last frame; of an open segment as far as known.
    WallTime end() const
    {
        return begin + duration;
    }
};

/// A place in the order of a stream's segments: by epoch, and by begin within one.
struct SegmentPlace
{
    int epoch = -1;
    WallTime begin = WallTime::max();
};

/// A contiguous range of a stream's recordings.
struct RecordedInterval
{
    WallTime begin;
    WallTime end;          ///< exclusive
    bool growing = false;  ///< its last segment is open
};

/// A stream with recordings.
struct RecordedStream
{
    int cameraId = 0;
    int streamId = 0;
};

}  // namespace refhost

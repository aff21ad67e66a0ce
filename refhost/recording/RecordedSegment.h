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
    /// Counts from 0 how often the clock had been set back when it was recorded, so that what was recorded at
    /// one time of the clock twice is kept apart. The index assigns it.
    int epoch = 0;
    WallTime begin;          ///< capture time of the first frame
    Duration duration{};     ///< up to the end of the last frame; of an open segment what is known so far
    std::int64_t bytes = 0;  ///< size of the file; of an open segment what is known so far
    std::string path;        ///< of the file, with the index's directory in front
    bool closed = false;     ///< false while it is written, or when that ended with a crash

    /// End of the last frame; of an open segment as far as it is known.
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

/// A time without a seam in which a stream was recorded.
struct RecordedInterval
{
    WallTime begin;
    WallTime end;          ///< exclusive
    bool growing = false;  ///< true when it goes on
};

/// A stream that there is recorded media of.
struct RecordedStream
{
    int cameraId = 0;
    int streamId = 0;
};

}  // namespace refhost

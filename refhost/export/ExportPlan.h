#pragma once
// Tested by tests/refhost/export/Mp4Export_test.cpp.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/export/ExportTrack.h"
#include "refhost/playback/RecordingDirectory.h"

namespace refhost
{

/// What an export consists of: the samples of an interval, in order, and the files that hold them.
///
/// Of what was recorded twice, because the clock was set back or segments overlap, the first stays. Segments
/// that cannot be read, or have another codec than the first one, are left out with a line in the log.
/// Reads from a disk. Threads: one at a time.
class ExportPlan
{
public:
    struct Request
    {
        int cameraId = 0;
        std::optional<int> streamId;  ///< default: the lowest one with recordings in the interval
        WallTime begin;
        WallTime end;  ///< exclusive
    };

    enum class Problem
    {
        none,
        interval,  ///< empty, or longer than maxLength
        nothing,   ///< nothing was recorded in it
        tooLarge,  ///< more than maxSamples
        notReady   ///< the index of the recordings is incomplete now
    };

    struct Segment
    {
        std::string path;
        std::uint64_t device = 0;  ///< of the file, with its inode
        std::uint64_t inode = 0;
    };

    /// Max length of the interval. Gaps of a day still fit into the tables of MP4.
    static constexpr Duration maxLength = std::chrono::hours(24);
    /// Max samples of all tracks: about 16 hours of 25 frames and 47 blocks of audio a second. An export holds
    /// some 30 bytes in memory for each.
    static constexpr std::size_t maxSamples = std::size_t{1} << 22U;

    /// \param[out] error  why not, in plain words; set for any problem
    Problem make(const RecordingDirectory& directory, const Request& request, std::string& error);

    const Request& request() const
    {
        return request_;
    }
    ExportTrack& track(bool video)
    {
        return video ? video_ : audio_;
    }
    const ExportTrack& track(bool video) const
    {
        return video ? video_ : audio_;
    }
    /// Length of the interval.
    ExportTrack::Milliseconds length() const
    {
        return end_;
    }
    const std::vector<Segment>& segments() const
    {
        return segments_;
    }
    /// Number of segments in the interval that are left out.
    int leftOut() const
    {
        return leftOut_;
    }

private:
    using Milliseconds = ExportTrack::Milliseconds;

    /// A segment that is read.
    struct Reading
    {
        std::uint32_t number = 0;
        std::optional<std::uint32_t> video;  ///< number of its format
        std::optional<std::uint32_t> audio;
        bool fresh = true;  ///< no frame was accepted yet
        bool videoDone = false;
        bool audioDone = false;
    };

    Problem readSegments(const RecordingDirectory& directory, int streamId, std::string& error);
    bool readSegment(const RecordedSegment& segment);
    bool enter(const RecordedSegment& segment, SegmentTable& table, Reading& reading);
    bool addUnits(const RecordedSegment& segment, SegmentTable& table, Reading& reading);
    void addFrame(const SegmentTable::Sample& sample, Milliseconds time, Reading& reading);
    void addBlock(const SegmentTable::Sample& sample, Milliseconds time, Reading& reading);
    std::optional<Milliseconds> timeOf(const RecordedSegment& segment, Duration offset) const;

    Request request_;
    Milliseconds end_ = 0;
    std::vector<Segment> segments_;
    ExportTrack video_{true};
    ExportTrack audio_{false};
    bool waitsForKey_ = true;
    Milliseconds start_ = 0;                 // of the frames that can be decoded
    std::optional<Milliseconds> lastFrame_;  // the latest
    std::optional<Milliseconds> nextFrame_;  // the earliest behind the interval
    std::optional<Milliseconds> lastBlock_;
    Milliseconds recordedEnd_ = 0;  // of the last segment
    int leftOut_ = 0;
};

}  // namespace refhost

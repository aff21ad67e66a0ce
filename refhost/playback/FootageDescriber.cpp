#include "refhost/playback/FootageDescriber.h"

#include <algorithm>

#include "refhost/base/HostStatus.h"
#include "refhost/playback/Packetiser.h"

namespace refhost
{
namespace
{

/// Segments that are tried until one can be read.
constexpr int mostTried = 8;
/// Segments whose tracks are remembered.
constexpr std::size_t mostKnown = 64;
/// Units that are looked at until a track can be described.
constexpr int mostUnits = 500;
/// Any size does: the description is the same for all.
constexpr int payloadSize = 1364;

}  // namespace

int FootageDescriber::describe(const FootageDirectory& directory, int cameraId, std::int64_t beginNs,
                               std::int64_t endNs, std::vector<SubMediaInfo>& out)
{
    const auto streamId = directory.streamOf(cameraId, beginNs, endNs);
    if (!streamId)
    {
        return hostRecordingUnknown;
    }
    const auto segments = directory.find(cameraId, *streamId, beginNs, endNs, mostTried);
    if (segments.empty())
    {
        return hostRecordingUnknown;
    }
    for (const RecordedSegment& segment : segments)
    {
        if (describeSegment(segment, out))
        {
            return 0;
        }
    }
    return hostStreamFailed;
}

bool FootageDescriber::describeSegment(const RecordedSegment& segment, Tracks& out)
{
    const auto known = std::find_if(known_.begin(), known_.end(),
                                    [&](const auto& entry) { return entry.first == segment.path; });
    if (known != known_.end())
    {
        out = known->second;
        std::rotate(known, std::next(known), known_.end());
        return true;
    }
    Tracks tracks;
    bool complete = false;
    if (!describeFile(segment.path, tracks, complete))
    {
        return false;
    }
    addBitRate(segment, tracks);
    if (!complete && !segment.closed)
    {
        // The rest is still to be written.
        out = std::move(tracks);
        return true;
    }
    if (known_.size() == mostKnown)
    {
        known_.erase(known_.begin());
    }
    known_.emplace_back(segment.path, tracks);
    out = std::move(tracks);
    return true;
}

/// \param[out] complete  every track of the file is described
bool FootageDescriber::describeFile(const std::string& path, Tracks& out, bool& complete)
{
    complete = true;
    for (const bool video : {true, false})
    {
        std::string error;
        const auto file = SegmentFile::open(path, error);
        if (!file)
        {
            return false;
        }
        SubMediaInfo track;
        if (describeTrack(*file, video, track))
        {
            out.push_back(track);
            continue;
        }
        complete = complete && (video ? file->video() : file->sound()) == nullptr;
    }
    return !out.empty();
}

bool FootageDescriber::describeTrack(SegmentFile& file, bool video, SubMediaInfo& out)
{
    const SegmentFile::Track* const track = video ? file.video() : file.sound();
    std::string error;
    const auto packetiser = track == nullptr ? nullptr : Packetiser::make(track->coding, payloadSize, error);
    if (!packetiser)
    {
        return false;
    }
    CodedUnit unit;
    std::vector<AccessUnitPtr> ignored;
    for (int i = 0; i < mostUnits && file.read(unit) == SegmentFile::Result::unit; ++i)
    {
        if (unit.video != video)
        {
            continue;
        }
        GST_BUFFER_PTS(unit.buffer.get()) = static_cast<GstClockTime>(std::max<std::int64_t>(unit.timeNs, 0));
        packetiser->push(track->caps.get(), std::move(unit.buffer), ignored);
        if (packetiser->describe(out))
        {
            return true;
        }
    }
    return false;
}

/// The pictures' share of a file that is whole.
void FootageDescriber::addBitRate(const RecordedSegment& segment, Tracks& tracks)
{
    const std::int64_t ms = segment.durationNs / 1'000'000;
    if (!segment.closed || ms <= 0 || tracks.front().mediaType != "video")
    {
        return;
    }
    int rest = static_cast<int>(std::min<std::int64_t>(segment.bytes * 8 / ms, 1'000'000));
    for (const SubMediaInfo& track : tracks)
    {
        rest -= track.bitRate;
    }
    tracks.front().bitRate = std::max(rest, 0);
}

}  // namespace refhost

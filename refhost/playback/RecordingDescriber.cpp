#include "refhost/playback/RecordingDescriber.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "refhost/base/HostStatus.h"
#include "refhost/media/PacketSize.h"
#include "refhost/rtp/payload/Packetizer.h"

namespace refhost
{
namespace
{

/// Max. segments that are tried until one can be read.
constexpr int maxTried = 8;
/// Segments whose descriptions are compared.
constexpr std::size_t maxCompared = 3;
/// Max. segments in the cache.
constexpr std::size_t maxKnown = 64;
/// Max. units that are read until a track can be described.
constexpr int maxUnits = 500;

}  // namespace

int RecordingDescriber::describe(const RecordingDirectory& directory, int cameraId, WallTime begin,
                                 WallTime end, std::vector<SubMediaInfo>& out)
{
    const auto streamId = directory.streamOf(cameraId, begin, end);
    if (!streamId)
    {
        return directory.isComplete() ? hostRecordingUnknown : hostRecordingsIncomplete;
    }
    const auto segments = directory.find(cameraId, *streamId, begin, end, maxTried, SegmentPlace());
    if (segments.empty())
    {
        return hostRecordingUnknown;
    }
    std::vector<Described> whole;
    std::optional<Described> partial;
    for (const RecordedSegment& segment : segments)
    {
        Described described;
        if (!describeSegment(segment, described))
        {
            continue;
        }
        if (described.whole)
        {
            whole.push_back(std::move(described));
        }
        else if (!partial || partial->tracks.size() < described.tracks.size())
        {
            partial = std::move(described);
        }
        if (whole.size() == maxCompared || (whole.size() == 2 && agree(whole[0], whole[1])))
        {
            break;
        }
    }
    if (whole.empty() && !partial)
    {
        return hostStreamFailed;
    }
    // Corruption that a decoder does not notice affects one segment only.
    const bool firstIsOdd =
        whole.size() == maxCompared && !agree(whole[0], whole[2]) && agree(whole[1], whole[2]);
    out = whole.empty() ? partial->tracks : whole[firstIsOdd ? 1 : 0].tracks;
    return 0;
}

bool RecordingDescriber::agree(const Described& left, const Described& right)
{
    const SubMediaInfo& one = left.tracks.front();
    const SubMediaInfo& other = right.tracks.front();
    return one.encodingName == other.encodingName && one.formatParameters == other.formatParameters;
}

bool RecordingDescriber::describeSegment(const RecordedSegment& segment, Described& out)
{
    const auto known = std::find_if(known_.begin(), known_.end(),
                                    [&](const auto& entry) { return entry.first == segment.path; });
    if (known != known_.end())
    {
        out = known->second;
        std::rotate(known, std::next(known), known_.end());
        return true;
    }
    Described described;
    if (!describeFile(segment.path, described))
    {
        return false;
    }
    addBitRate(segment, described.tracks);
    if (!described.whole && !segment.closed)
    {
        // More is still to be written.
        out = std::move(described);
        return true;
    }
    if (known_.size() == maxKnown)
    {
        known_.erase(known_.begin());
    }
    known_.emplace_back(segment.path, described);
    out = std::move(described);
    return true;
}

bool RecordingDescriber::describeFile(const std::string& path, Described& out)
{
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
            out.tracks.push_back(track);
            out.whole = out.whole && file->isDecodable(video);
            continue;
        }
        out.whole = out.whole && (video ? file->video() : file->audio()) == nullptr;
    }
    return !out.tracks.empty();
}

bool RecordingDescriber::describeTrack(SegmentFile& file, bool video, SubMediaInfo& out)
{
    const FileTrack* const track = video ? file.video() : file.audio();
    if (track == nullptr || !Packetizer::describe(*track->format, trackIdOf(track->codec()), out))
    {
        return false;
    }
    out.frameRate = track->frameRate > 0 ? track->frameRate : out.frameRate;
    // A file that still grows may announce a track of which nothing is there yet.
    CodedUnit unit;
    bool found = false;
    for (int i = 0; i < maxUnits && !found && file.read(unit) == SegmentFile::Result::unit; ++i)
    {
        found = unit.video == video;
    }
    return found;
}

/// Sets the video's bit rate: the file's, less that of the other tracks.
void RecordingDescriber::addBitRate(const RecordedSegment& segment, Tracks& tracks)
{
    const std::int64_t ms = std::chrono::floor<std::chrono::milliseconds>(segment.duration).count();
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

#include "refhost/playback/PlaybackCatalog.h"

#include <optional>
#include <utility>

#include "refhost/base/ChangeSignal.h"
#include "refhost/base/HostStatus.h"
#include "refhost/media/Codec.h"
#include "refhost/playback/RecordingReader.h"

namespace refhost
{
namespace
{

constexpr std::int64_t nsPerSecond = 1'000'000'000;

/// When the first frame was taken that a player of all these tracks is sent.
std::optional<std::int64_t> startOf(const std::shared_ptr<const RecordingDirectory>& directory,
                                    const HostClock& clock, int cameraId, std::int64_t beginNs,
                                    std::int64_t endNs, const std::vector<SubMediaInfo>& tracks)
{
    RecordingReader::Request request;
    request.cameraId = cameraId;
    request.streamId = directory->streamOf(cameraId, beginNs, endNs).value_or(0);
    request.fromNs = beginNs;
    request.endNs = endNs;
    for (const SubMediaInfo& track : tracks)
    {
        (track.mediaType == "video" ? request.video : request.audio) = codecEncodedAs(track.encodingName);
    }
    return RecordingReader::startOf(directory, clock, request);
}

}  // namespace

PlaybackCatalog::PlaybackCatalog(RecordedMedia recordings, PlaybackScheduler& scheduler,
                                 const HostClock& clock)
    : recordings_(std::move(recordings)), scheduler_(scheduler), clock_(clock)
{
}

PlaybackCatalog::~PlaybackCatalog() = default;

int PlaybackCatalog::describe(const RecordInfo& record, MediaInfo& out)
{
    const auto begin = static_cast<std::int64_t>(record.getRecordBeginTime());
    const auto end = static_cast<std::int64_t>(record.getRecordEndTime());
    if (end <= begin)
    {
        return hostRecordingUnknown;
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto entry = find({record.getCameraId(), begin, end});
    if (entry->asked)
    {
        scheduler_.wake(shared_from_this());
        return hostStreamNotReady;
    }
    if (entry->status != 0)
    {
        return entry->status;
    }
    out.clearAllSubMediaInfo();
    for (const SubMediaInfo& track : entry->tracks)
    {
        out.addSubMediaInfo(track);
    }
    out.recordBeginTime = entry->startNs;
    out.recordSeconds = static_cast<double>(end * nsPerSecond - entry->startNs) / 1e9;
    return 0;
}

/// The entry of a recording; one to be looked up, when there is none or it is too old.
PlaybackCatalog::Entries::iterator PlaybackCatalog::find(const Key& key)
{
    const auto known = byKey_.find(key);
    if (known == byKey_.end())
    {
        entries_.emplace_front();
        entries_.front().key = key;
        byKey_[key] = entries_.begin();
        if (entries_.size() > max)
        {
            byKey_.erase(entries_.back().key);
            entries_.pop_back();
        }
        return entries_.begin();
    }
    entries_.splice(entries_.begin(), entries_, known->second);
    Entry& entry = *known->second;
    entry.asked = entry.asked || clock_.monotonicMs() >= entry.untilMs;
    return known->second;
}

bool PlaybackCatalog::nextAsked(Key& key) const
{
    for (const Entry& entry : entries_)
    {
        if (entry.asked)
        {
            key = entry.key;
            return true;
        }
    }
    return false;
}

std::int64_t PlaybackCatalog::run(std::int64_t nowMs)
{
    Key key;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!nextAsked(key))
        {
            return never;
        }
    }
    Entry found;
    const int status = lookUp(key, found);
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const auto known = byKey_.find(key);
        if (known != byKey_.end())
        {
            Entry& entry = *known->second;
            entry.asked = false;
            entry.status = status;
            entry.tracks = std::move(found.tracks);
            entry.startNs = found.startNs;
            entry.untilMs = nowMs + (status == 0 ? foundMs : nothingMs);
        }
    }
    ChangeSignal::instance().announce();
    return nowMs;
}

int PlaybackCatalog::lookUp(const Key& key, Entry& out)
{
    const auto [camera, begin, end] = key;
    const auto directory = recordings_();
    if (!directory)
    {
        return hostRecordingUnknown;
    }
    const std::int64_t beginNs = begin * nsPerSecond;
    const std::int64_t endNs = end * nsPerSecond;
    const int status = describer_.describe(*directory, camera, beginNs, endNs, out.tracks);
    if (status != 0)
    {
        return status;
    }
    const auto startNs = startOf(directory, clock_, camera, beginNs, endNs, out.tracks);
    out.startNs = startNs.value_or(beginNs);
    return startNs ? 0 : hostRecordingUnknown;
}

}  // namespace refhost

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

/// Date of the first unit that a player of all these tracks is sent.
std::optional<WallTime> startOf(const std::shared_ptr<const RecordingDirectory>& directory,
                                const HostClock& clock, int cameraId, WallTime begin, WallTime end,
                                const std::vector<SubMediaInfo>& tracks)
{
    RecordingReader::Request request;
    request.cameraId = cameraId;
    request.streamId = directory->streamOf(cameraId, begin, end).value_or(0);
    request.from = begin;
    request.end = end;
    for (const SubMediaInfo& track : tracks)
    {
        (track.mediaType == "video" ? request.video : request.audio) = codecEncodedAs(track.encodingName);
    }
    return RecordingReader::startOf(directory, clock, request);
}

}  // namespace

PlaybackCatalog::PlaybackCatalog(RecordedMedia recordings, WorkPool& pool, const HostClock& clock)
    : recordings_(std::move(recordings)), pool_(pool), clock_(clock)
{
}

PlaybackCatalog::~PlaybackCatalog() = default;

int PlaybackCatalog::describe(const RecordInfo& record, MediaInfo& out)
{
    const WallTime begin = wallTimeOfUnix(static_cast<std::int64_t>(record.getRecordBeginTime()));
    const WallTime end = wallTimeOfUnix(static_cast<std::int64_t>(record.getRecordEndTime()));
    if (end <= begin)
    {
        return hostRecordingUnknown;
    }
    const MutexLock guard(mutex_);
    const auto entry = find({record.getCameraId(), begin, end});
    if (entry->pending)
    {
        pool_.wake(shared_from_this());
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
    out.recordBeginTime = entry->start.time_since_epoch().count();
    out.recordSeconds = secondsOf(end - entry->start);
    return 0;
}

/// The entry of a recording; a pending one when there is none or it is too old.
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
    entry.pending = entry.pending || clock_.now() >= entry.until;
    return known->second;
}

bool PlaybackCatalog::nextPending(Key& key) const
{
    for (const Entry& entry : entries_)
    {
        if (entry.pending)
        {
            key = entry.key;
            return true;
        }
    }
    return false;
}

MonotonicTime PlaybackCatalog::run(MonotonicTime now)
{
    Key key;
    {
        const MutexLock guard(mutex_);
        if (!nextPending(key))
        {
            return never;
        }
    }
    Entry found;
    const int status = lookUp(key, found);
    {
        const MutexLock guard(mutex_);
        const auto known = byKey_.find(key);
        if (known != byKey_.end())
        {
            Entry& entry = *known->second;
            entry.pending = false;
            entry.status = status;
            entry.tracks = std::move(found.tracks);
            entry.start = found.start;
            entry.until = now + (status == 0 ? maxFoundAge : maxNothingAge);
        }
    }
    ChangeSignal::instance().announce();
    return now;
}

int PlaybackCatalog::lookUp(const Key& key, Entry& out)
{
    const auto [camera, begin, end] = key;
    const auto directory = recordings_();
    if (!directory)
    {
        return hostRecordingUnknown;
    }
    const int status = describer_.describe(*directory, camera, begin, end, out.tracks);
    if (status != 0)
    {
        return status;
    }
    const auto start = startOf(directory, clock_, camera, begin, end, out.tracks);
    out.start = start.value_or(begin);
    return start ? 0 : hostRecordingUnknown;
}

}  // namespace refhost

#include "refhost/playback/PlaybackCatalog.h"

#include <utility>

#include "refhost/base/ChangeSignal.h"
#include "refhost/base/HostStatus.h"

namespace refhost
{

PlaybackCatalog::PlaybackCatalog(Footage footage, PlaybackScheduler& scheduler, const HostClock& clock)
    : footage_(std::move(footage)), scheduler_(scheduler), clock_(clock)
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
    out.recordBeginTime = begin;
    out.recordSeconds = static_cast<double>(end - begin);
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
        if (entries_.size() > most)
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
    constexpr std::int64_t nsPerSecond = 1'000'000'000;
    Key key;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!nextAsked(key))
        {
            return never;
        }
    }
    const auto [camera, begin, end] = key;
    std::vector<SubMediaInfo> tracks;
    const auto directory = footage_();
    const int status =
        directory ? describer_.describe(*directory, camera, begin * nsPerSecond, end * nsPerSecond, tracks)
                  : hostRecordingUnknown;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const auto known = byKey_.find(key);
        if (known != byKey_.end())
        {
            Entry& entry = *known->second;
            entry.asked = false;
            entry.status = status;
            entry.tracks = std::move(tracks);
            entry.untilMs = nowMs + (status == 0 ? foundMs : nothingMs);
        }
    }
    ChangeSignal::instance().announce();
    return nowMs;
}

}  // namespace refhost

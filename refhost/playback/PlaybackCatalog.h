#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RecordInfo.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/playback/RecordingDescriber.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/threads/WorkPool.h"

namespace refhost
{

/// Descriptions of the recordings that clients request. A worker looks them up; results are cached, because
/// each client requests them several times. Threads: any; describe() never waits.
class PlaybackCatalog : public PooledWork, public std::enable_shared_from_this<PlaybackCatalog>
{
public:
    using RecordedMedia = std::function<std::shared_ptr<const RecordingDirectory>()>;

    /// How long a result is cached: recorded media was found, and was not found.
    static constexpr Duration maxFoundAge = std::chrono::seconds(30);
    static constexpr Duration maxNothingAge = std::chrono::seconds(2);
    /// Max. results in the cache; the least recently requested one is dropped.
    static constexpr std::size_t max = 256;

    /// \param pool, clock  outlive the catalog
    PlaybackCatalog(RecordedMedia recordings, WorkPool& pool, const HostClock& clock);
    ~PlaybackCatalog() override;

    /// Describes a recording: its tracks, its start, which is the key frame at or before its begin, and the
    /// length from there. Leaves `mediaUrl` alone.
    /// \param[out] out  filled on success, otherwise left as it was
    /// \returns 0; hostStreamNotReady while it is looked up, ChangeSignal is announced afterwards;
    ///          hostRecordingUnknown when there is no recorded media; hostRecordingsIncomplete when that is
    ///          not known yet; hostStreamFailed when none of it can be read
    int describe(const RecordInfo& record, MediaInfo& out);

    MonotonicTime run(MonotonicTime now) override;

private:
    using Key = std::tuple<int, WallTime, WallTime>;  // camera, begin, end

    struct Entry
    {
        Key key;
        bool pending = true;  // not looked up yet
        int status = 0;
        MonotonicTime until;
        std::vector<SubMediaInfo> tracks;
        WallTime start;
    };
    using Entries = std::list<Entry>;  // the latest first

    Entries::iterator find(const Key& key) OV_REQUIRES(mutex_);
    bool nextPending(Key& key) const OV_REQUIRES(mutex_);
    int lookUp(const Key& key, Entry& out);

    const RecordedMedia recordings_;
    WorkPool& pool_;
    const HostClock& clock_;
    RecordingDescriber describer_;  // run() alone
    mutable Mutex mutex_;
    Entries entries_ OV_GUARDED_BY(mutex_);
    std::map<Key, Entries::iterator> byKey_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/playback/PlaybackDispatcher_test.cpp.

#include <functional>
#include <memory>
#include <optional>

#include "hostapi/description/RecordInfo.h"
#include "refhost/base/Mutex.h"
#include "refhost/playback/PlaybackCatalog.h"
#include "refhost/playback/PlaybackScheduler.h"
#include "refhost/playback/PlaybackSession.h"
#include "refhost/playback/PlaybackSettings.h"
#include "refhost/playback/RecordingDirectory.h"

namespace refhost
{

/// What all playback of the process shares: the workers, where recorded media is found, and what is known of it.
/// Threads: any.
class PlaybackService
{
public:
    /// Tells where recorded media is found now; null where nothing is recorded.
    using RecordedMedia = std::function<std::shared_ptr<const RecordingDirectory>()>;

    /// Workers of the process: one that waits for a disk does not hold up the other.
    static constexpr unsigned workers = 2;

    /// The one of the process, over Device::recordings(); made at the first call, never destroyed. Its
    /// workers start with the first work.
    static PlaybackService& instance();

    /// One of one's own; a test's.
    /// \param threads  workers; 0: the test runs the work
    PlaybackService(const PlaybackSettings& settings, RecordedMedia recordings, unsigned threads);
    ~PlaybackService();
    PlaybackService(const PlaybackService&) = delete;
    PlaybackService& operator=(const PlaybackService&) = delete;

    /// A session on a recording; nothing is opened yet.
    /// \param settings  its own
    /// \param start     where the presentation's time is 0; nothing for the begin of `record`
    std::shared_ptr<PlaybackSession> makeSession(const RecordInfo& record, const PlaybackSettings& settings,
                                                 std::optional<WallTime> start = {});

    const PlaybackSettings& settings() const
    {
        return settings_;
    }

    PlaybackCatalog& catalog();

    PlaybackScheduler& scheduler()
    {
        return scheduler_;
    }

    /// Ends the workers; what was not done is left. Before the process ends.
    void stop();

private:
    void ensureWorkers();

    const PlaybackSettings settings_;
    const RecordedMedia recordings_;
    const unsigned threads_;
    Mutex mutex_;
    bool started_ OV_GUARDED_BY(mutex_) = false;
    PlaybackScheduler scheduler_;
    const std::shared_ptr<PlaybackCatalog> catalog_;
};

}  // namespace refhost

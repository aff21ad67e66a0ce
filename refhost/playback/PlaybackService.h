#pragma once
// Tested by tests/refhost/playback/PlaybackDispatcher_test.cpp.

#include <functional>
#include <memory>
#include <optional>

#include "hostapi/description/RecordInfo.h"
#include "refhost/playback/PlaybackCatalog.h"
#include "refhost/playback/PlaybackSession.h"
#include "refhost/playback/PlaybackSettings.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/threads/WorkPool.h"

namespace refhost
{

/// What all playback sessions of the process share: workers, access to the recordings and the catalog.
/// Threads: any.
class PlaybackService
{
public:
    /// Returns the present recordings; null where nothing is recorded.
    using RecordedMedia = std::function<std::shared_ptr<const RecordingDirectory>()>;

    /// Number of workers: one that waits for a disk does not block the other.
    static constexpr unsigned workers = 2;

    /// The process's instance, over Device::recordings(); made by the first call, never destroyed. Workers
    /// start with the first work.
    static PlaybackService& instance();

    /// A separate instance, for tests.
    /// \param threads  number of workers; 0: the test runs the work
    PlaybackService(const PlaybackSettings& settings, RecordedMedia recordings, unsigned threads);
    ~PlaybackService();
    PlaybackService(const PlaybackService&) = delete;
    PlaybackService& operator=(const PlaybackService&) = delete;

    /// Makes a session on a recording; opens nothing yet.
    /// \param settings  of this session
    /// \param start     date of position 0; nothing for the begin of `record`
    std::shared_ptr<PlaybackSession> makeSession(const RecordInfo& record, const PlaybackSettings& settings,
                                                 std::optional<WallTime> start = {});

    const PlaybackSettings& settings() const
    {
        return settings_;
    }

    PlaybackCatalog& catalog();

    WorkPool& pool()
    {
        return pool_;
    }

    /// Ends the workers, without the work that is left. Call it before the process ends.
    void stop();

private:
    const PlaybackSettings settings_;
    const RecordedMedia recordings_;
    WorkPool pool_;
    const std::shared_ptr<PlaybackCatalog> catalog_;
};

}  // namespace refhost

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "hostapi/description/RecordInfo.h"
#include "refhost/base/Mutex.h"
#include "refhost/playback/PlaybackService.h"
#include "refhost/playback/PlaybackSession.h"

namespace refhost
{

/// The playback dispatch behind RTPPlayBackDispacherMgr: which RTSP session plays which recording. Threads:
/// any. No operation waits for a disk or a client.
class PlaybackDispatcher
{
public:
    /// The one dispatcher of the process; made at the first call, never destroyed.
    static PlaybackDispatcher& instance();

    /// A separate dispatcher, for tests.
    /// \param service  outlives the dispatcher
    explicit PlaybackDispatcher(PlaybackService& service);
    ~PlaybackDispatcher();
    PlaybackDispatcher(const PlaybackDispatcher&) = delete;
    PlaybackDispatcher& operator=(const PlaybackDispatcher&) = delete;

    /// Makes a session; an existing one stays as it is.
    /// \param start  date of position 0; nothing for the begin of `record`
    void init(const std::string& sessionId, const RecordInfo& record, std::optional<WallTime> start = {});

    /// Sets up a track; replaces an existing one.
    /// \returns 0; hostTrackUnknown without such a session; hostConnectionUnusable for a connection that this
    ///          host did not make: a session that has no track is dropped then
    int setup(const std::string& sessionId, const SubMediaInfo& info, int payloadSize,
              const SafePointer<IConnection>& connection);

    /// \returns null when there is none
    std::shared_ptr<PlaybackSession> find(const std::string& sessionId);

    /// Ends a track, and with the last one the session.
    /// \returns 0 or hostTrackUnknown
    int stop(const std::string& sessionId, const std::string& trackId);

    /// Drops a session that has no track: its SETUP was refused.
    void dropEmpty(const std::string& sessionId);

    /// How many sessions there are; 0 after the last TEARDOWN.
    std::size_t sessionCount() const;

private:
    PlaybackService& service_;
    mutable Mutex mutex_;
    std::unordered_map<std::string, std::shared_ptr<PlaybackSession>> sessions_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

#include "refhost/playback/PlaybackDispatcher.h"

#include <utility>

#include "refhost/base/HostStatus.h"

namespace refhost
{

PlaybackDispatcher& PlaybackDispatcher::instance()
{
    // Never destroyed: connections may be served until the very end of the process.
    static PlaybackDispatcher* const dispatcher = new PlaybackDispatcher(PlaybackService::instance());
    return *dispatcher;
}

PlaybackDispatcher::PlaybackDispatcher(PlaybackService& service) : service_(service) {}

PlaybackDispatcher::~PlaybackDispatcher() = default;

void PlaybackDispatcher::init(const std::string& sessionId, const RecordInfo& record,
                              std::optional<WallTime> start)
{
    const MutexLock guard(mutex_);
    std::shared_ptr<PlaybackSession>& session = sessions_[sessionId];
    if (!session)
    {
        session = service_.makeSession(record, service_.settings(), start);
    }
}

int PlaybackDispatcher::setup(const std::string& sessionId, const SubMediaInfo& info, int payloadSize,
                              const SafePointer<IConnection>& connection)
{
    const auto session = find(sessionId);
    if (!session)
    {
        return hostTrackUnknown;
    }
    session->addTrack(info, payloadSize);
    const int status = session->connect(info.trackId, connection);
    if (status != 0)
    {
        stop(sessionId, info.trackId);
    }
    return status;
}

std::shared_ptr<PlaybackSession> PlaybackDispatcher::find(const std::string& sessionId)
{
    const MutexLock guard(mutex_);
    const auto found = sessions_.find(sessionId);
    return found == sessions_.end() ? nullptr : found->second;
}

int PlaybackDispatcher::stop(const std::string& sessionId, const std::string& trackId)
{
    const auto session = find(sessionId);
    bool empty = false;
    const int status = session ? session->remove(trackId, empty) : hostTrackUnknown;
    if (status == 0 && empty)
    {
        const MutexLock guard(mutex_);
        sessions_.erase(sessionId);
    }
    return status;
}

void PlaybackDispatcher::dropEmpty(const std::string& sessionId)
{
    const MutexLock guard(mutex_);
    const auto found = sessions_.find(sessionId);
    if (found != sessions_.end() && found->second->empty())
    {
        sessions_.erase(found);
    }
}

std::size_t PlaybackDispatcher::sessionCount() const
{
    const MutexLock guard(mutex_);
    return sessions_.size();
}

}  // namespace refhost

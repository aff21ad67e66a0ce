#include "hostapi/playback/RTPPlayBackDispacher.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "refhost/base/HostStatus.h"
#include "refhost/base/Mutex.h"
#include "refhost/media/PacketSize.h"
#include "refhost/playback/PlaybackService.h"
#include "refhost/playback/PlaybackSession.h"

using namespace refhost;

/// The same sessions as behind RTPPlayBackDispacherMgr, but known to this object alone.
struct RTPPlayBackDispacher::Impl
{
    using SessionPtr = std::shared_ptr<PlaybackSession>;

    SessionPtr find(const std::string& sessionId)
    {
        const MutexLock guard(mutex);
        const auto found = sessions.find(sessionId);
        return found == sessions.end() ? nullptr : found->second;
    }

    template <class... Parameters, class... Arguments>
    int call(const std::string& sessionId, int (PlaybackSession::*operation)(Parameters...),
             Arguments&&... arguments)
    {
        const SessionPtr session = find(sessionId);
        return session ? ((*session).*operation)(std::forward<Arguments>(arguments)...) : hostTrackUnknown;
    }

    MTUParam mtu;
    Mutex mutex;
    std::optional<RecordInfo> record OV_GUARDED_BY(mutex);
    PlaybackSettings settings OV_GUARDED_BY(mutex) = PlaybackService::instance().settings();
    bool started OV_GUARDED_BY(mutex) = false;
    std::map<std::string, SessionPtr> sessions OV_GUARDED_BY(mutex);
};

RTPPlayBackDispacher::RTPPlayBackDispacher() : impl_(new Impl)
{
    impl_->mtu.setMTUValue(PacketSize::mtu);
}

RTPPlayBackDispacher::~RTPPlayBackDispacher() noexcept(false)
{
    for (const auto& entry : impl_->sessions)
    {
        entry.second->end();
    }
    delete impl_;
}

void RTPPlayBackDispacher::setMediaSource(const SafePointer<IMediaSource>& source)
{
    const MutexLock guard(impl_->mutex);
    impl_->record = source->getRecordInfo();
}

void RTPPlayBackDispacher::setTransferMixStreamFlag(bool) {}

void RTPPlayBackDispacher::setRTCPTimeout(int seconds)
{
    const MutexLock guard(impl_->mutex);
    impl_->settings.maxSilence = std::chrono::seconds(std::max(seconds, 0));
}

void RTPPlayBackDispacher::setRTCPFrequence(int seconds)
{
    const MutexLock guard(impl_->mutex);
    if (seconds <= 0)
    {
        return;
    }
    impl_->settings.reportInterval = std::chrono::seconds(seconds);
    for (const auto& entry : impl_->sessions)
    {
        entry.second->setReportInterval(impl_->settings.reportInterval);
    }
}

void RTPPlayBackDispacher::setFramePacketMode(bool) {}

int RTPPlayBackDispacher::start()
{
    const MutexLock guard(impl_->mutex);
    impl_->started = impl_->record.has_value();
    return impl_->started ? 0 : hostRecordingUnknown;
}

MTUParam& RTPPlayBackDispacher::getMTUParam()
{
    return impl_->mtu;
}

int RTPPlayBackDispacher::initRTPBuilder(const std::string& sessionId, const std::string& trackId,
                                         const SubMediaInfo& info, int payloadSize)
{
    const MutexLock guard(impl_->mutex);
    if (!impl_->started)
    {
        return hostRecordingUnknown;
    }
    Impl::SessionPtr& session = impl_->sessions[sessionId];
    if (!session)
    {
        session = PlaybackService::instance().makeSession(*impl_->record, impl_->settings);
    }
    SubMediaInfo named = info;
    named.trackId = trackId;
    session->addTrack(named, payloadSize);
    return 0;
}

int RTPPlayBackDispacher::addSessionConnection(const std::string& sessionId, const std::string& trackId,
                                               const SafePointer<IConnection>& connection)
{
    return impl_->call(sessionId, &PlaybackSession::connect, trackId, connection);
}

int RTPPlayBackDispacher::play(const std::string& sessionId, const std::string& trackId)
{
    return impl_->call(sessionId, &PlaybackSession::play, trackId);
}

int RTPPlayBackDispacher::pause(const std::string& sessionId, const std::string& trackId)
{
    return impl_->call(sessionId, &PlaybackSession::pause, trackId);
}

int RTPPlayBackDispacher::setPauseRange(const std::string& trackId, double instant)
{
    const MutexLock guard(impl_->mutex);
    int status = hostTrackUnknown;
    for (const auto& entry : impl_->sessions)
    {
        status = entry.second->setPausePosition(trackId, instant) == 0 ? 0 : status;
    }
    return status;
}

int RTPPlayBackDispacher::setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                                   double speed)
{
    return impl_->call(sessionId, &PlaybackSession::setSpeed, trackId, scale, speed);
}

int RTPPlayBackDispacher::getCurPlayRange(const std::string& sessionId, const std::string& trackId,
                                          double& start, double& end)
{
    return impl_->call(sessionId, &PlaybackSession::range, trackId, start, end);
}

int RTPPlayBackDispacher::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    return impl_->call(sessionId, &PlaybackSession::ssrc, trackId, ssrc);
}

// The host contract passes the texts by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int RTPPlayBackDispacher::getConnectionState(std::string sessionId, std::string trackId, bool& connected)
{
    return impl_->call(sessionId, &PlaybackSession::connectionState, trackId, connected);
}

int RTPPlayBackDispacher::deleteSessionConnection(const std::string& sessionId, const std::string& trackId)
{
    const auto session = impl_->find(sessionId);
    bool empty = false;
    const int status = session ? session->remove(trackId, empty) : hostTrackUnknown;
    if (status == 0 && empty)
    {
        const MutexLock guard(impl_->mutex);
        impl_->sessions.erase(sessionId);
    }
    return status;
}

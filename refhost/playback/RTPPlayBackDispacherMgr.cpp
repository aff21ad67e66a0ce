#include "hostapi/playback/RTPPlayBackDispacherMgr.h"

#include <utility>

#include "refhost/base/HostStatus.h"
#include "refhost/media/PacketSize.h"
#include "refhost/playback/PlaybackDispatcher.h"

using refhost::hostTrackUnknown;
using refhost::PlaybackDispatcher;
using refhost::PlaybackSession;

namespace
{

/// The description that this thread was given last.
MediaInfo& ownMediaInfo()
{
    thread_local MediaInfo info;
    return info;
}

/// Calls an operation of a session.
template <class... Parameters, class... Arguments>
int call(const std::string& sessionId, int (PlaybackSession::*operation)(Parameters...),
         Arguments&&... arguments)
{
    const auto session = PlaybackDispatcher::instance().find(sessionId);
    return session ? ((*session).*operation)(std::forward<Arguments>(arguments)...) : hostTrackUnknown;
}

}  // namespace

struct RTPPlayBackDispacherMgr::Impl
{
};

RTPPlayBackDispacherMgr::RTPPlayBackDispacherMgr() : impl_(nullptr) {}

RTPPlayBackDispacherMgr::~RTPPlayBackDispacherMgr() noexcept(false) = default;

SafePointer<RTPPlayBackDispacherMgr> RTPPlayBackDispacherMgr::getInstance()
{
    static const SafePointer<RTPPlayBackDispacherMgr> instance(new RTPPlayBackDispacherMgr);
    return instance;
}

int RTPPlayBackDispacherMgr::setMediaInfo(const MediaInfo& info)
{
    ownMediaInfo() = info;
    return 0;
}

int RTPPlayBackDispacherMgr::initDispatcher(const std::string& sessionId, const DeviceInfoEx&,
                                            const DeviceExAbility&, const RecordInfo& record)
{
    const std::int64_t start = ownMediaInfo().recordBeginTime;
    PlaybackDispatcher::instance().init(
        sessionId, record,
        start > 0 ? std::optional<refhost::WallTime>(refhost::WallTime(refhost::Duration(start)))
                  : std::nullopt);
    return 0;
}

int RTPPlayBackDispacherMgr::setup(const std::string& sessionId, const std::string& trackId,
                                   const SafePointer<IConnection>& connection)
{
    SubMediaInfo track;
    if (!ownMediaInfo().getSubMediaInfo(trackId, track))
    {
        PlaybackDispatcher::instance().dropEmpty(sessionId);
        return hostTrackUnknown;
    }
    return PlaybackDispatcher::instance().setup(sessionId, track, refhost::PacketSize::payload, connection);
}

int RTPPlayBackDispacherMgr::play(const std::string& sessionId, const std::string& trackId)
{
    return call(sessionId, &PlaybackSession::play, trackId);
}

int RTPPlayBackDispacherMgr::setPlayRange(const std::string& sessionId, const std::string& trackId,
                                          double start, double end, int rangeKind, bool rangeFlag)
{
    return call(sessionId, &PlaybackSession::setRange, trackId, start, end, rangeKind, rangeFlag);
}

int RTPPlayBackDispacherMgr::getCurPlayRange(const std::string& sessionId, const std::string& trackId,
                                             double& start, double& end)
{
    return call(sessionId, &PlaybackSession::range, trackId, start, end);
}

int RTPPlayBackDispacherMgr::getCurRTPPacketInfo(const std::string& sessionId, const std::string& trackId,
                                                 RTPPacketInfo& info)
{
    return call(sessionId, &PlaybackSession::firstPacket, trackId, info);
}

int RTPPlayBackDispacherMgr::pause(const std::string& sessionId, const std::string& trackId)
{
    return call(sessionId, &PlaybackSession::pause, trackId);
}

int RTPPlayBackDispacherMgr::setPauseRange(const std::string& sessionId, const std::string& trackId,
                                           double instant)
{
    return call(sessionId, &PlaybackSession::setPausePosition, trackId, instant);
}

int RTPPlayBackDispacherMgr::setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                                      double speed)
{
    return call(sessionId, &PlaybackSession::setSpeed, trackId, scale, speed);
}

int RTPPlayBackDispacherMgr::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    return call(sessionId, &PlaybackSession::ssrc, trackId, ssrc);
}

// The host contract passes the texts by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int RTPPlayBackDispacherMgr::getConnectionState(std::string sessionId, std::string trackId, bool& connected)
{
    return call(sessionId, &PlaybackSession::connectionState, trackId, connected);
}

int RTPPlayBackDispacherMgr::stop(const std::string& sessionId, const std::string& trackId)
{
    return PlaybackDispatcher::instance().stop(sessionId, trackId);
}

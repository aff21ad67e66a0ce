#include "hostapi/playback/RTPPlayBackDispacherMgr.h"

#include <map>
#include <mutex>
#include <set>

#include "tests/fakehost/FakeDescription.h"
#include "tests/fakehost/FakePlaybackTracks.h"
#include "tests/fakehost/FakeStatus.h"

struct RTPPlayBackDispacherMgr::Impl
{
    std::mutex mutex;
    std::set<std::string> sessions;
    FakePlaybackTracks tracks{"RTPPlayBackDispacherMgr", 0};

    bool hasSession(const std::string& sessionId)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return sessions.count(sessionId) != 0;
    }

    /// What the calling thread described last.
    static MediaInfo& describedHere()
    {
        static thread_local MediaInfo info;
        return info;
    }
};

RTPPlayBackDispacherMgr::RTPPlayBackDispacherMgr() : impl_(new Impl) {}

RTPPlayBackDispacherMgr::~RTPPlayBackDispacherMgr() noexcept(false)
{
    delete impl_;
}

SafePointer<RTPPlayBackDispacherMgr> RTPPlayBackDispacherMgr::getInstance()
{
    static SafePointer<RTPPlayBackDispacherMgr> instance(new RTPPlayBackDispacherMgr);
    return instance;
}

int RTPPlayBackDispacherMgr::setMediaInfo(const MediaInfo& info)
{
    const int result = impl_->tracks.outcomeOf("setMediaInfo", info.mediaUrl);
    if (result == 0)
    {
        Impl::describedHere() = info;
    }
    return result;
}

int RTPPlayBackDispacherMgr::initDispatcher(const std::string& sessionId, const DeviceInfoEx& device,
                                            const DeviceExAbility& ability, const RecordInfo& record)
{
    const std::string flag = ability.getAudioBackFlag() ? "true" : "false";
    const int result =
        impl_->tracks.outcomeOf("initDispatcher", sessionId + ", " + device.getDeviceID() + ", " + flag +
                                                      ", " + FakeDescription::textOf(record));
    if (result == 0)
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->sessions.insert(sessionId);
    }
    return result;
}

int RTPPlayBackDispacherMgr::setup(const std::string& sessionId, const std::string& trackId,
                                   const SafePointer<IConnection>& connection)
{
    SubMediaInfo track;
    const bool known = impl_->hasSession(sessionId) && Impl::describedHere().getSubMediaInfo(trackId, track);
    const int result = impl_->tracks.outcomeOf(
        "setup", sessionId + ", " + trackId + ", kind " + std::to_string(connection->transportKind),
        known ? 0 : fakeTrackUnknown);
    if (result == 0)
    {
        impl_->tracks.add(sessionId, trackId);
        impl_->tracks.connect(sessionId, trackId, connection);
    }
    return result;
}

int RTPPlayBackDispacherMgr::play(const std::string& sessionId, const std::string& trackId)
{
    return impl_->tracks.outcomeOf("play", sessionId, trackId);
}

int RTPPlayBackDispacherMgr::setPlayRange(const std::string& sessionId, const std::string& trackId,
                                          double start, double end, int rangeKind, bool rangeFlag)
{
    return impl_->tracks.outcomeOf("setPlayRange", sessionId, trackId,
                                   {start, end, double(rangeKind), rangeFlag ? 1.0 : 0.0});
}

int RTPPlayBackDispacherMgr::getCurPlayRange(const std::string& sessionId, const std::string& trackId,
                                             double& start, double& end)
{
    const int result = impl_->tracks.outcomeOf("getCurPlayRange", sessionId, trackId);
    if (result == 0)
    {
        start = 12.5;
        end = 60;
    }
    return result;
}

int RTPPlayBackDispacherMgr::getCurRTPPacketInfo(const std::string& sessionId, const std::string& trackId,
                                                 RTPPacketInfo& info)
{
    const int result = impl_->tracks.outcomeOf("getCurRTPPacketInfo", sessionId, trackId);
    if (result == 0)
    {
        info.sequenceNumber = 17;
        info.rtpTimestamp = 90000;
    }
    return result;
}

int RTPPlayBackDispacherMgr::pause(const std::string& sessionId, const std::string& trackId)
{
    return impl_->tracks.outcomeOf("pause", sessionId, trackId);
}

int RTPPlayBackDispacherMgr::setPauseRange(const std::string& sessionId, const std::string& trackId,
                                           double instant)
{
    return impl_->tracks.outcomeOf("setPauseRange", sessionId, trackId, {instant});
}

int RTPPlayBackDispacherMgr::setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                                      double speed)
{
    return impl_->tracks.outcomeOf("setSpeed", sessionId, trackId, {scale, speed});
}

int RTPPlayBackDispacherMgr::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    const int result = impl_->tracks.outcomeOf("getTrackSSRC", sessionId, trackId);
    if (result == 0)
    {
        ssrc = impl_->tracks.ssrcOf(sessionId, trackId);
    }
    return result;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the host contract
int RTPPlayBackDispacherMgr::getConnectionState(std::string sessionId, std::string trackId, bool& connected)
{
    const int result = impl_->tracks.outcomeOf("getConnectionState", sessionId, trackId);
    if (result == 0)
    {
        connected = true;
    }
    return result;
}

int RTPPlayBackDispacherMgr::stop(const std::string& sessionId, const std::string& trackId)
{
    const int result = impl_->tracks.outcomeOf("stop", sessionId, trackId);
    impl_->tracks.remove(sessionId, trackId);
    if (!impl_->tracks.hasSession(sessionId))
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->sessions.erase(sessionId);
    }
    return result;
}

#include "live/TalkBackTrack.h"

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "support/StatusCode.h"

TalkBackTrack::TalkBackTrack(std::string& trackId) : trackId_(trackId) {}

bool TalkBackTrack::is(const std::string& trackId) const
{
    return trackId == trackId_;
}

int TalkBackTrack::setup(const std::string& sessionId, const std::string& trackId, const SubMediaInfo& info,
                         int payloadSize, const SafePointer<IConnection>& connection) const
{
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    const int result = manager->initSession(sessionId, trackId, info, payloadSize);
    if (result != statusSuccess)
    {
        return result;
    }
    trackId_ = trackId;
    return manager->addSessionConnection(sessionId, connection);
}

int TalkBackTrack::play(const std::string& sessionId) const
{
    return OVAudioBackDispatcherMgr::getInstance()->startAudio(sessionId);
}

int TalkBackTrack::pause(const std::string& sessionId) const
{
    return OVAudioBackDispatcherMgr::getInstance()->pauseAudio(sessionId);
}

int TalkBackTrack::stop(const std::string& sessionId) const
{
    return OVAudioBackDispatcherMgr::getInstance()->stopAudio(sessionId);
}

int TalkBackTrack::getTrackSSRC(const std::string& sessionId, int& ssrc) const
{
    return OVAudioBackDispatcherMgr::getInstance()->getTrackSSRC(sessionId, ssrc);
}

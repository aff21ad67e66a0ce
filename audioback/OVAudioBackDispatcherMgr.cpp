#include "audioback/OVAudioBackDispatcherMgr.h"

#include <cstdio>

#include "audioback/FailedSessions.h"
#include "hostapi/base/OrvaneTime.h"
#include "support/OVMutexManager.h"
#include "support/StatusCode.h"
#include "support/function.h"

namespace
{

const char* const unit = "OVAudioBackDispatcherMgr";
const int defaultEncoderType = 103;
const int defaultThirdPlatType = 1;
const int defaultMtu = 1440;
const long idleWaitMicroseconds = 300000;
const long activeWaitMicroseconds = 10000;

using BoundRun = bind_funcobj0<int, OVAudioBackDispatcherMgr>;
using EmptyHook = function_obj<int, int (*)()>;

}  // namespace

SafePointer<OVAudioBackDispatcherMgr> OVAudioBackDispatcherMgr::getInstance()
{
    static SafePointer<OVAudioBackDispatcherMgr> instance(new OVAudioBackDispatcherMgr);
    return instance;
}

OVAudioBackDispatcherMgr::OVAudioBackDispatcherMgr()
    : encoderType_(defaultEncoderType), thirdPlatType_(defaultThirdPlatType), playerOpened_(false)
{
    mtuParam_.setMTUValue(defaultMtu);
    const function<int> body(new function_obj<int, BoundRun>(BoundRun{&OVAudioBackDispatcherMgr::run, this}));
    const std::string name(unit);
    const function<int> before(new EmptyHook(&GThread::emptyFun));
    const function<int> after(new EmptyHook(&GThread::emptyFun));
    thread_ = SafePointer<GThread>(new GThread(body, name, before, after));
}

OVAudioBackDispatcherMgr::~OVAudioBackDispatcherMgr() noexcept(false)
{
    stop();
}

void OVAudioBackDispatcherMgr::setDeviceInfoEx(const DeviceInfoEx& info)
{
    deviceInfo_ = info;
}

void OVAudioBackDispatcherMgr::setDeviceExAbility(const DeviceExAbility& ability)
{
    deviceAbility_ = ability;
}

void OVAudioBackDispatcherMgr::setThirdPlatType(int thirdPlatType)
{
    thirdPlatType_ = thirdPlatType;
}

void OVAudioBackDispatcherMgr::setMTUParam(const MTUParam& mtu)
{
    mtuParam_ = mtu;
}

MTUParam& OVAudioBackDispatcherMgr::getMTUParam()
{
    return mtuParam_;
}

void OVAudioBackDispatcherMgr::setMediaPlayer(const SafePointer<IMediaPlayer>& player)
{
    mediaPlayer_ = player;
}

int OVAudioBackDispatcherMgr::setEncoderType(int type)
{
    encoderType_ = type;
    if (mediaPlayer_.isEmpty())
    {
        return statusSuccess;
    }
    if (!playerOpened_)
    {
        mediaPlayer_->setEncoderType(type);
        return statusSuccess;
    }
    mediaPlayer_->close();
    playerOpened_ = false;
    mediaPlayer_->setDeviceInfo(deviceInfo_);
    mediaPlayer_->setEncoderType(type);
    const int result = mediaPlayer_->open();
    if (result == statusSuccess)
    {
        playerOpened_ = true;
    }
    return result;
}

int OVAudioBackDispatcherMgr::start()
{
    if (thread_->IsRunning())
    {
        return statusSuccess;
    }
    if (mediaPlayer_.isEmpty())
    {
        return statusRefused;
    }
    // Both lines name the manager as it was called once; who reads the output looks for them so.
    if (thread_->start() == 0)
    {
        std::puts("OVAudioInterPhoneMgr start Fail!");
        return statusThreadFailed;
    }
    std::puts("OVAudioInterPhoneMgr start Success!");
    return statusSuccess;
}

bool OVAudioBackDispatcherMgr::isRunning()
{
    return thread_->IsRunning();
}

void OVAudioBackDispatcherMgr::stop()
{
    std::puts("~OVAudioBackDispatcherMgr::stop~");
    if (thread_->IsRunning())
    {
        thread_->stop();
    }
    {
        OVMutexManager guard(mutex_, unit, __LINE__);
        for (const auto& session : sessions_)
        {
            session.second->stop();
        }
        sessions_.clear();
    }
    if (!mediaPlayer_.isEmpty() && playerOpened_)
    {
        mediaPlayer_->close();
    }
    playerOpened_ = false;
}

int OVAudioBackDispatcherMgr::initSession(const std::string& sessionId, const std::string& trackId,
                                          const SubMediaInfo& info, int packetSize)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    if (!sessions_.empty() && trackId != audioBackTrackId_)
    {
        return statusRefused;
    }
    if (sessions_.find(sessionId) != sessions_.end())
    {
        return statusRefused;
    }
    const SafePointer<AudioDispatcher> dispatcher(new AudioDispatcher(mediaPlayer_));
    const int result = dispatcher->initRTBBuilder(info, packetSize);
    if (result != statusSuccess)
    {
        return result;
    }
    sessions_.emplace(sessionId, dispatcher);
    audioBackTrackId_ = trackId;
    std::printf("OVAudioBackDispatcherMgr::initSession, after adding, session num is:%d\n",
                static_cast<int>(sessions_.size()));
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::addSessionConnection(const std::string& sessionId,
                                                   const SafePointer<IConnection>& connection)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    const auto found = sessions_.find(sessionId);
    return found == sessions_.end() ? statusRefused : found->second->setConnection(connection);
}

bool OVAudioBackDispatcherMgr::findSession(const std::string& sessionId)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    return sessions_.find(sessionId) != sessions_.end();
}

int OVAudioBackDispatcherMgr::startAudio(const std::string& sessionId)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    const auto found = sessions_.find(sessionId);
    if (found == sessions_.end())
    {
        return statusRefused;
    }
    found->second->play();
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::pauseAudio(const std::string& sessionId)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    const auto found = sessions_.find(sessionId);
    if (found == sessions_.end())
    {
        return statusRefused;
    }
    found->second->pause();
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::stopAudio(const std::string& sessionId)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    const auto found = sessions_.find(sessionId);
    if (found == sessions_.end())
    {
        return statusRefused;
    }
    std::puts("________________OVAudioBackDispatcherMgr::stopAudio");
    sessions_.erase(found);
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::getConnetionState(const std::string& sessionId, bool& state)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    const auto found = sessions_.find(sessionId);
    if (found == sessions_.end())
    {
        return statusRefused;
    }
    state = found->second->isPlaying();
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::getTrackSSRC(const std::string& sessionId, int& ssrc)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    const auto found = sessions_.find(sessionId);
    return found == sessions_.end() ? statusRefused : found->second->getTrackSSRC(ssrc);
}

int OVAudioBackDispatcherMgr::getSessionNum()
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    return static_cast<int>(sessions_.size());
}

void OVAudioBackDispatcherMgr::clearAllSession()
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    sessions_.clear();
}

int OVAudioBackDispatcherMgr::run()
{
    const int player = processPlayer();
    if (player != statusSuccess && player != statusPlayerUnusable)
    {
        return statusNoPlayer;
    }
    if (player == statusPlayerUnusable)
    {
        OrvaneTime::wait(OrvaneTime(0, idleWaitMicroseconds));
        return statusSuccess;
    }
    const int media = recvAndPlayMediaData();
    if (media == statusSuccess)
    {
        const int rtcp = recvAndSendRTCPData();
        if (rtcp != statusSuccess)
        {
            std::printf("OVAudioBackDispatcherMgr:: recvAndSendRTCPData() failed error = %d\n", rtcp);
        }
        OrvaneTime::wait(OrvaneTime(0, activeWaitMicroseconds));
        return statusSuccess;
    }
    if (media == audioDispatcherAgain)
    {
        OrvaneTime::wait(OrvaneTime(0, activeWaitMicroseconds));
        return statusSuccess;
    }
    // The output failed: no wait, so that the next iteration opens it again.
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::processPlayer()
{
    if (mediaPlayer_.isEmpty())
    {
        return statusRefused;
    }
    bool allPaused = true;
    {
        OVMutexManager guard(mutex_, unit, __LINE__);
        allPaused = sessions_.empty() || private_IsPauseAllAudio() != 0;
    }
    if (allPaused)
    {
        if (playerOpened_)
        {
            mediaPlayer_->close();
        }
        playerOpened_ = false;
        return statusPlayerUnusable;
    }
    if (playerOpened_)
    {
        return statusSuccess;
    }
    // Also a closed output is closed first, always: whoever opened it before may have left it half open.
    mediaPlayer_->close();
    mediaPlayer_->setDeviceInfo(deviceInfo_);
    const int result = mediaPlayer_->open();
    if (result != statusSuccess)
    {
        std::printf("OVAudioBackDispatcherMgr::processPlayer MediaPlayer open fail, return nRet = %d\n",
                    result);
        return statusPlayerUnusable;
    }
    playerOpened_ = true;
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::private_IsPauseAllAudio()
{
    for (const auto& session : sessions_)
    {
        if (session.second->isPlaying())
        {
            return 0;
        }
    }
    return 1;
}

int OVAudioBackDispatcherMgr::recvAndPlayMediaData()
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    // One flag for the whole pass, deliberately: once set, the next session with a result ends the pass.
    bool playerFault = false;
    FailedSessions failed;
    for (const auto& session : sessions_)
    {
        if (!session.second->isPlaying())
        {
            continue;
        }
        const int result = session.second->recvAndPlayMediaData(playerFault);
        if (result == statusSuccess)
        {
            continue;
        }
        if (playerFault)
        {
            // What failed before stays in the table, deliberately: with a broken output nobody's code tells
            // much.
            mediaPlayer_->close();
            playerOpened_ = false;
            return statusPlayerUnusable;
        }
        failed.note(session.first, result);
    }
    if (failed.ids().empty())
    {
        return statusSuccess;
    }
    removeSessions(failed.ids());
    std::printf("OVAudioBackDispatcherMgr::recvAndPlayMediaData erase recv error  num is:%d\n",
                static_cast<int>(failed.ids().size()));
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::recvAndSendRTCPData()
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    FailedSessions failed;
    for (const auto& session : sessions_)
    {
        if (session.second->isPlaying())
        {
            failed.note(session.first, session.second->recvAndSendRTCPData());
        }
    }
    if (!failed.ids().empty())
    {
        removeSessions(failed.ids());
        std::printf("OVAudioBackDispatcherMgr::recvAndSendRTCPData erase recv error num is:%d\n",
                    static_cast<int>(failed.ids().size()));
    }
    return statusSuccess;
}

void OVAudioBackDispatcherMgr::clearStopSession()
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    std::vector<std::string> stopped;
    for (const auto& session : sessions_)
    {
        if (!session.second->isPlaying())
        {
            stopped.push_back(session.first);
        }
    }
    removeSessions(stopped);
}

void OVAudioBackDispatcherMgr::removeSessions(const std::vector<std::string>& sessionIds)
{
    for (const std::string& sessionId : sessionIds)
    {
        sessions_.erase(sessionId);
    }
}

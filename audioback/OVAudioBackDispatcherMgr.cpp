#include "audioback/OVAudioBackDispatcherMgr.h"

#include <cstdio>

#include "audioback/FailedSessions.h"
#include "hostapi/base/OrvaneTime.h"
#include "support/HandleMap.h"
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
    : encoderType(defaultEncoderType), thirdPlatType(defaultThirdPlatType), playerOpened(false)
{
    mtuParam.setMTUValue(defaultMtu);
    const function<int> body(new function_obj<int, BoundRun>(BoundRun{&OVAudioBackDispatcherMgr::run, this}));
    const std::string name(unit);
    const function<int> before(new EmptyHook(&GThread::emptyFun));
    const function<int> after(new EmptyHook(&GThread::emptyFun));
    thread = SafePointer<GThread>(new GThread(body, name, before, after));
}

OVAudioBackDispatcherMgr::~OVAudioBackDispatcherMgr() noexcept(false)
{
    stop();
}

void OVAudioBackDispatcherMgr::setDeviceInfoEx(const DeviceInfoEx& info)
{
    deviceInfo = info;
}

void OVAudioBackDispatcherMgr::setDeviceExAbility(const DeviceExAbility& ability)
{
    deviceAbility = ability;
}

void OVAudioBackDispatcherMgr::setThirdPlatType(int type)
{
    thirdPlatType = type;
}

void OVAudioBackDispatcherMgr::setMTUParam(const MTUParam& mtu)
{
    mtuParam = mtu;
}

MTUParam& OVAudioBackDispatcherMgr::getMTUParam()
{
    return mtuParam;
}

void OVAudioBackDispatcherMgr::setMediaPlayer(const SafePointer<IMediaPlayer>& player)
{
    mediaPlayer = player;
}

int OVAudioBackDispatcherMgr::setEncoderType(int type)
{
    encoderType = type;
    if (mediaPlayer.isEmpty())
    {
        return statusSuccess;
    }
    if (!playerOpened)
    {
        mediaPlayer->setEncoderType(type);
        return statusSuccess;
    }
    mediaPlayer->close();
    playerOpened = false;
    mediaPlayer->setDeviceInfo(deviceInfo);
    mediaPlayer->setEncoderType(type);
    const int result = mediaPlayer->open();
    if (result == statusSuccess)
    {
        playerOpened = true;
    }
    return result;
}

int OVAudioBackDispatcherMgr::start()
{
    if (thread->IsRunning())
    {
        return statusSuccess;
    }
    if (mediaPlayer.isEmpty())
    {
        return statusRefused;
    }
    // Both lines deliberately use a former name of the manager: readers of the output search for them.
    if (thread->start() == 0)
    {
        std::puts("OVAudioInterPhoneMgr start Fail!");
        return statusThreadFailed;
    }
    std::puts("OVAudioInterPhoneMgr start Success!");
    return statusSuccess;
}

bool OVAudioBackDispatcherMgr::isRunning()
{
    return thread->IsRunning();
}

void OVAudioBackDispatcherMgr::stop()
{
    std::puts("~OVAudioBackDispatcherMgr::stop~");
    if (thread->IsRunning())
    {
        thread->stop();
    }
    {
        OVMutexManager guard(mutex, unit, __LINE__);
        for (const auto& session : sessions)
        {
            session.second->stop();
        }
        HandleMap::clear(sessions);
    }
    if (!mediaPlayer.isEmpty() && playerOpened)
    {
        mediaPlayer->close();
    }
    playerOpened = false;
}

int OVAudioBackDispatcherMgr::initSession(const std::string& sessionId, const std::string& trackId,
                                          const SubMediaInfo& info, int packetSize)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    if (!sessions.empty() && trackId != audioBackTrackId)
    {
        return statusRefused;
    }
    if (sessions.find(sessionId) != sessions.end())
    {
        return statusRefused;
    }
    const SafePointer<AudioDispatcher> dispatcher(new AudioDispatcher(mediaPlayer));
    const int result = dispatcher->initRTBBuilder(info, packetSize);
    if (result != statusSuccess)
    {
        return result;
    }
    sessions.emplace(sessionId, dispatcher);
    audioBackTrackId = trackId;
    std::printf("OVAudioBackDispatcherMgr::initSession, after adding, session num is:%d\n",
                static_cast<int>(sessions.size()));
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::addSessionConnection(const std::string& sessionId,
                                                   const SafePointer<IConnection>& connection)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    const auto found = sessions.find(sessionId);
    return found == sessions.end() ? statusRefused : found->second->setConnection(connection);
}

bool OVAudioBackDispatcherMgr::findSession(const std::string& sessionId)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    return sessions.find(sessionId) != sessions.end();
}

int OVAudioBackDispatcherMgr::startAudio(const std::string& sessionId)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    const auto found = sessions.find(sessionId);
    if (found == sessions.end())
    {
        return statusRefused;
    }
    found->second->play();
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::pauseAudio(const std::string& sessionId)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    const auto found = sessions.find(sessionId);
    if (found == sessions.end())
    {
        return statusRefused;
    }
    found->second->pause();
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::stopAudio(const std::string& sessionId)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    const auto found = sessions.find(sessionId);
    if (found == sessions.end())
    {
        return statusRefused;
    }
    std::puts("________________OVAudioBackDispatcherMgr::stopAudio");
    HandleMap::erase(sessions, found);
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::getConnetionState(const std::string& sessionId, bool& state)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    const auto found = sessions.find(sessionId);
    if (found == sessions.end())
    {
        return statusRefused;
    }
    state = found->second->isPlaying();
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::getTrackSSRC(const std::string& sessionId, int& ssrc)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    const auto found = sessions.find(sessionId);
    return found == sessions.end() ? statusRefused : found->second->getTrackSSRC(ssrc);
}

int OVAudioBackDispatcherMgr::getSessionNum()
{
    OVMutexManager guard(mutex, unit, __LINE__);
    return static_cast<int>(sessions.size());
}

void OVAudioBackDispatcherMgr::clearAllSession()
{
    OVMutexManager guard(mutex, unit, __LINE__);
    HandleMap::clear(sessions);
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
    if (mediaPlayer.isEmpty())
    {
        return statusRefused;
    }
    bool allPaused = true;
    {
        OVMutexManager guard(mutex, unit, __LINE__);
        allPaused = sessions.empty() || private_IsPauseAllAudio() != 0;
    }
    if (allPaused)
    {
        if (playerOpened)
        {
            mediaPlayer->close();
        }
        playerOpened = false;
        return statusPlayerUnusable;
    }
    if (playerOpened)
    {
        return statusSuccess;
    }
    // Even a closed output is closed first: an earlier failed opening may have left it half open.
    mediaPlayer->close();
    mediaPlayer->setDeviceInfo(deviceInfo);
    const int result = mediaPlayer->open();
    if (result != statusSuccess)
    {
        std::printf("OVAudioBackDispatcherMgr::processPlayer MediaPlayer open fail, return nRet = %d\n",
                    result);
        return statusPlayerUnusable;
    }
    playerOpened = true;
    return statusSuccess;
}

int OVAudioBackDispatcherMgr::private_IsPauseAllAudio()
{
    for (const auto& session : sessions)
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
    OVMutexManager guard(mutex, unit, __LINE__);
    // Deliberately one flag for the whole pass: once set, the next session with a result ends the pass.
    bool playerFault = false;
    FailedSessions failed;
    for (const auto& session : sessions)
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
            // Deliberately, sessions that failed earlier in the pass stay: with a broken output their codes mean
            // little.
            mediaPlayer->close();
            playerOpened = false;
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
    OVMutexManager guard(mutex, unit, __LINE__);
    FailedSessions failed;
    for (const auto& session : sessions)
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
    OVMutexManager guard(mutex, unit, __LINE__);
    std::vector<std::string> stopped;
    for (const auto& session : sessions)
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
        const auto found = sessions.find(sessionId);
        if (found != sessions.end())
        {
            HandleMap::erase(sessions, found);
        }
    }
}

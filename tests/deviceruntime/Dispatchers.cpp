// The device's dispatchers: each call is recorded and succeeds.
#include <atomic>
#include <map>

#include "hostapi/audio/AudioDispatcher.h"
#include "hostapi/live/LiveDispatcherMgr.h"
#include "hostapi/live/MulticastSessionToken.h"
#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "hostapi/playback/OVAVPlayBackSource.h"
#include "hostapi/playback/RTPPlayBackDispacher.h"
#include "hostapi/playback/RTPPlayBackDispacherMgr.h"
#include "tests/deviceruntime/DeviceCalls.h"
#include "tests/deviceruntime/DeviceSettings.h"

using Text = const std::string&;

namespace
{

constexpr int mtu = 1500;
constexpr int ssrcOfAll = 0x1234;

int done(const std::string& call)
{
    DeviceCalls::note(call);
    return 0;
}

int returnSsrc(int& ssrc)
{
    ssrc = ssrcOfAll;
    return done("ssrc");
}

MTUParam& theMtu()
{
    static MTUParam param;
    param.setMTUValue(mtu);
    return param;
}

std::map<std::string, SafePointer<MulticastSessionParameter>>& multicast()
{
    static std::map<std::string, SafePointer<MulticastSessionParameter>> records;
    return records;
}

std::map<std::string, int>& liveSessions()
{
    static std::map<std::string, int> sessions;
    return sessions;
}

}  // namespace

IConnection::IConnection(int kind) : transportKind(kind) {}
IConnection::~IConnection() noexcept(false) {}
IMediaPlayer::~IMediaPlayer() noexcept(false) {}
IMediaSource::~IMediaSource() noexcept(false) {}

RTPStreamDispatcherMgr::~RTPStreamDispatcherMgr() noexcept(false) {}
SafePointer<RTPStreamDispatcherMgr> RTPStreamDispatcherMgr::getInstance()
{
    static const SafePointer<RTPStreamDispatcherMgr> dispatcher(new RTPStreamDispatcherMgr);
    return dispatcher;
}
int RTPStreamDispatcherMgr::initRTPBuilder(Text key, Text, Text track, const SubMediaInfo&, int size)
{
    return done("build " + key + " " + track + " " + std::to_string(size));
}
int RTPStreamDispatcherMgr::addRTPConnection(Text, Text, Text, const SafePointer<IConnection>& connection)
{
    return done("connect " + std::to_string(connection->transportKind));
}
int RTPStreamDispatcherMgr::play(Text, Text, Text)
{
    return done("play");
}
int RTPStreamDispatcherMgr::pause(Text, Text, Text)
{
    return done("pause");
}
int RTPStreamDispatcherMgr::deleteRTPConnection(Text, Text, Text)
{
    return done("end");
}
int RTPStreamDispatcherMgr::getTrackSSRC(Text, Text, Text, int& ssrc)
{
    return returnSsrc(ssrc);
}

int MulticastSessionToken::generateMulticastSessionId(int camera, int stream, std::string& id)
{
    id = "group" + std::to_string(camera) + "/" + std::to_string(stream);
    return 0;
}

LiveDispatcherMgr::~LiveDispatcherMgr() noexcept(false) {}
SafePointer<LiveDispatcherMgr> LiveDispatcherMgr::getInstance()
{
    static const SafePointer<LiveDispatcherMgr> dispatcher(new LiveDispatcherMgr);
    return dispatcher;
}
MTUParam& LiveDispatcherMgr::getMTUParam()
{
    return theMtu();
}
bool LiveDispatcherMgr::findSession(Text session)
{
    return liveSessions().count(session) != 0;
}
int LiveDispatcherMgr::initSession(Text session, int, int, const MediaInfo&, int size)
{
    liveSessions()[session] = size;
    return done("open " + session + " " + std::to_string(size));
}
int LiveDispatcherMgr::addSessionConnection(Text, Text, const SafePointer<IConnection>& connection)
{
    return done("connect " + std::to_string(connection->transportKind));
}
int LiveDispatcherMgr::play(Text, Text)
{
    return done("play");
}
int LiveDispatcherMgr::pause(Text, Text)
{
    return done("pause");
}
int LiveDispatcherMgr::deleteSessionConection(Text session, Text)
{
    liveSessions().erase(session);
    return done("end");
}
int LiveDispatcherMgr::getTrackSSRC(Text, Text, int& ssrc)
{
    return returnSsrc(ssrc);
}
bool LiveDispatcherMgr::findMulticastSessionId(Text id)
{
    return multicast().count(id) != 0;
}
int LiveDispatcherMgr::getMulticastSessionParam(Text id, SafePointer<MulticastSessionParameter>& param) const
{
    param = multicast()[id];
    return 0;
}
int LiveDispatcherMgr::addMulticastSessionParam(const SafePointer<MulticastSessionParameter>& param)
{
    multicast()[DeviceSettings::id(*param.operator->())] = param;
    return done("keep " + std::to_string(param->getMemberSessionIdList().size()));
}
int LiveDispatcherMgr::deleteMulticastSessionParam(Text id)
{
    multicast().erase(id);
    return done("forget");
}

OVAVPlayBackSource::OVAVPlayBackSource() : own_(nullptr) {}
OVAVPlayBackSource::~OVAVPlayBackSource() noexcept(false)
{
    DeviceCalls::note("source gone");
}
void OVAVPlayBackSource::setDeviceInfo(const DeviceInfoEx&) {}
void OVAVPlayBackSource::setDeviceAbility(const DeviceExAbility&) {}
void OVAVPlayBackSource::setRecordInfo(const RecordInfo& record)
{
    DeviceCalls::note(DeviceSettings::text(record));
}
void OVAVPlayBackSource::setThirdPlatType(int) {}

RTPPlayBackDispacher::RTPPlayBackDispacher() : source_(nullptr) {}
RTPPlayBackDispacher::~RTPPlayBackDispacher() noexcept(false)
{
    delete source_;
}
void RTPPlayBackDispacher::setMediaSource(const SafePointer<IMediaSource>& source)
{
    source_ = new SafePointer<IMediaSource>(source);
}
void RTPPlayBackDispacher::setTransferMixStreamFlag(bool) {}
void RTPPlayBackDispacher::setRTCPTimeout(int) {}
void RTPPlayBackDispacher::setRTCPFrequence(int) {}
void RTPPlayBackDispacher::setFramePacketMode(bool) {}
int RTPPlayBackDispacher::start()
{
    return done("start");
}
MTUParam& RTPPlayBackDispacher::getMTUParam()
{
    return theMtu();
}
int RTPPlayBackDispacher::initRTPBuilder(Text, Text track, const SubMediaInfo&, int size)
{
    return done("build " + track + " " + std::to_string(size));
}
int RTPPlayBackDispacher::addSessionConnection(Text, Text, const SafePointer<IConnection>&)
{
    return done("connect");
}
int RTPPlayBackDispacher::play(Text, Text)
{
    return done("play");
}
int RTPPlayBackDispacher::pause(Text, Text)
{
    return done("pause");
}
int RTPPlayBackDispacher::setPauseRange(Text, double)
{
    return done("pause at");
}
int RTPPlayBackDispacher::setSpeed(Text, Text, double, double)
{
    return done("speed");
}
int RTPPlayBackDispacher::getCurPlayRange(Text, Text, double&, double&)
{
    return done("range");
}
int RTPPlayBackDispacher::getTrackSSRC(Text, Text, int& ssrc)
{
    return returnSsrc(ssrc);
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the host contract
int RTPPlayBackDispacher::getConnectionState(std::string, std::string, bool& connected)
{
    connected = true;
    return done("state");
}
int RTPPlayBackDispacher::deleteSessionConnection(Text, Text)
{
    return done("end");
}

RTPPlayBackDispacherMgr::~RTPPlayBackDispacherMgr() noexcept(false) {}
SafePointer<RTPPlayBackDispacherMgr> RTPPlayBackDispacherMgr::getInstance()
{
    static const SafePointer<RTPPlayBackDispacherMgr> dispatcher(new RTPPlayBackDispacherMgr);
    return dispatcher;
}
int RTPPlayBackDispacherMgr::setMediaInfo(const MediaInfo& info)
{
    return done("of " + DeviceSettings::url(info));
}
int RTPPlayBackDispacherMgr::initDispatcher(Text, const DeviceInfoEx& device, const DeviceExAbility&,
                                            const RecordInfo& record)
{
    return done("open " + DeviceSettings::id(device) + " " + DeviceSettings::text(record));
}
int RTPPlayBackDispacherMgr::setup(Text, Text track, const SafePointer<IConnection>&)
{
    return done("setup " + track);
}
int RTPPlayBackDispacherMgr::play(Text, Text)
{
    return done("play");
}
int RTPPlayBackDispacherMgr::setPlayRange(Text, Text, double, double, int, bool)
{
    return done("play range");
}
int RTPPlayBackDispacherMgr::getCurPlayRange(Text, Text, double& start, double& end)
{
    start = 0;
    end = 1;
    return done("range");
}
int RTPPlayBackDispacherMgr::getCurRTPPacketInfo(Text, Text, RTPPacketInfo& info)
{
    info.rtpTimestamp = ssrcOfAll;
    return done("packet");
}
int RTPPlayBackDispacherMgr::pause(Text, Text)
{
    return done("pause");
}
int RTPPlayBackDispacherMgr::setPauseRange(Text, Text, double)
{
    return done("pause at");
}
int RTPPlayBackDispacherMgr::setSpeed(Text, Text, double, double)
{
    return done("speed");
}
int RTPPlayBackDispacherMgr::getTrackSSRC(Text, Text, int& ssrc)
{
    return returnSsrc(ssrc);
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the host contract
int RTPPlayBackDispacherMgr::getConnectionState(std::string, std::string, bool& connected)
{
    connected = true;
    return done("state");
}
int RTPPlayBackDispacherMgr::stop(Text, Text)
{
    return done("end");
}

AudioDispatcher::AudioDispatcher(const SafePointer<IMediaPlayer>&) : own_(new std::atomic<bool>(false)) {}
AudioDispatcher::~AudioDispatcher() noexcept(false)
{
    delete static_cast<std::atomic<bool>*>(own_);
    DeviceCalls::note("sender gone");
}
int AudioDispatcher::initRTBBuilder(const SubMediaInfo& info, int size)
{
    return done("hear " + DeviceSettings::id(info) + " " + std::to_string(size));
}
int AudioDispatcher::setConnection(const SafePointer<IConnection>&)
{
    return done("connect");
}
int AudioDispatcher::play()
{
    *static_cast<std::atomic<bool>*>(own_) = true;
    return done("play");
}
int AudioDispatcher::pause()
{
    *static_cast<std::atomic<bool>*>(own_) = false;
    return done("pause");
}
int AudioDispatcher::stop()
{
    return done("stop");
}
bool AudioDispatcher::isPlaying()
{
    return *static_cast<std::atomic<bool>*>(own_);
}
int AudioDispatcher::getTrackSSRC(int& ssrc)
{
    return returnSsrc(ssrc);
}
int AudioDispatcher::recvAndPlayMediaData(bool&)
{
    return 0;
}
int AudioDispatcher::recvAndSendRTCPData()
{
    return 0;
}

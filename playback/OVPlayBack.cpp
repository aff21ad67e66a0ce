#include "playback/OVPlayBack.h"

#include <cstdio>
#include <utility>

#include "hostapi/description/RecordInfo.h"
#include "hostapi/description/ThirdPlatMgr.h"
#include "hostapi/playback/OVAVPlayBackSource.h"
#include "live/PayloadSize.h"
#include "support/OVMutexManager.h"
#include "support/StatusCode.h"

namespace
{

const char* const unit = "OVPlayBack";

// The lines by which the mutex's diagnostics recognise the guards of this class.
enum GuardLine
{
    guardPlay = 104,
    guardPause = 125,
    guardStop = 146,
};

enum ElementaryStreamType
{
    videoStream = 1,
    audioStream = 2,
};

const int encoderType = 103;  // also the default of talk-back
const int rtcpTimeoutSeconds = 60;
const int rtcpIntervalSeconds = 5;

}  // namespace

OVPlayBack::OVPlayBack()
    : thirdPlatType(0),
      dispatcher(new RTPPlayBackDispacher),
      firstTrackPlaying(false),
      secondTrackPlaying(false)
{
    mediaInfo.clearAllSubMediaInfo();
}

OVPlayBack::~OVPlayBack() noexcept(false) = default;

int OVPlayBack::init(const DeviceInfoEx& device, const DeviceExAbility& ability, int platType, int cameraId,
                     long recordBeginTime, long recordEndTime)
{
    thirdPlatType = platType;

    ThirdPlatMgr names;
    firstTrackId = names.getTrackIDByESStreamType(platType, videoStream, false, encoderType);
    secondTrackId = names.getTrackIDByESStreamType(platType, audioStream, false, encoderType);

    // A copy, because its getters in a host need not be const.
    DeviceInfoEx recorder;
    recorder = device;
    RecordInfo record;
    record.setCameraId(cameraId);
    record.setRecordBeginTime(static_cast<unsigned long>(recordBeginTime));
    record.setRecordEndTime(static_cast<unsigned long>(recordEndTime));
    record.setDeviceId(recorder.getDeviceID());
    record.setDeviceIP(recorder.getDeviceAddr().getIP());

    const SafePointer<OVAVPlayBackSource> source(new OVAVPlayBackSource);
    source->setDeviceInfo(device);
    source->setDeviceAbility(ability);
    source->setRecordInfo(record);
    source->setThirdPlatType(platType);

    dispatcher->setMediaSource(SafePointer<IMediaSource>(source));
    dispatcher->setTransferMixStreamFlag(false);
    dispatcher->setRTCPTimeout(rtcpTimeoutSeconds);
    dispatcher->setRTCPFrequence(rtcpIntervalSeconds);
    dispatcher->setFramePacketMode(false);
    const int result = dispatcher->start();
    if (result != statusSuccess)
    {
        // Deliberately other names than the operation's and the class's: readers of the output search for them.
        std::puts("OVPlayBack->initInstance PRTPStreamDispatcher start Fail!");
    }
    return result;
}

void OVPlayBack::setMediaInfo(const MediaInfo& info)
{
    mediaInfo = info;
}

int OVPlayBack::setup(const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection)
{
    int payloadSize = 0;
    if (!PayloadSize::byTransport(connection->transportKind, dispatcher, payloadSize))
    {
        return statusRefused;
    }
    SubMediaInfo track;
    if (!mediaInfo.getSubMediaInfo(trackId, track))
    {
        return statusNotFound;
    }
    const int result = dispatcher->initRTPBuilder(sessionId, trackId, track, payloadSize);
    if (result != statusSuccess)
    {
        return result;
    }
    return dispatcher->addSessionConnection(sessionId, trackId, connection);
}

bool* OVPlayBack::playingFlagOf(const std::string& trackId)
{
    if (trackId == firstTrackId)
    {
        return &firstTrackPlaying;
    }
    return trackId == secondTrackId ? &secondTrackPlaying : nullptr;
}

int OVPlayBack::play(const std::string& sessionId, const std::string& trackId)
{
    OVMutexManager guard(mutex, unit, guardPlay);
    if ((trackId == firstTrackId && firstTrackPlaying) || (trackId == secondTrackId && secondTrackPlaying))
    {
        return statusSuccess;
    }
    const int result = dispatcher->play(sessionId, trackId);
    if (result != statusSuccess)
    {
        return result;
    }
    // Deliberately after the call: the dispatcher decides first about a track that is neither of the two.
    bool* const playing = playingFlagOf(trackId);
    if (playing == nullptr)
    {
        return statusNotFound;
    }
    *playing = true;
    return statusSuccess;
}

int OVPlayBack::pause(const std::string& sessionId, const std::string& trackId)
{
    OVMutexManager guard(mutex, unit, guardPause);
    if ((trackId == firstTrackId && !firstTrackPlaying) || (trackId == secondTrackId && !secondTrackPlaying))
    {
        return statusSuccess;
    }
    const int result = dispatcher->pause(sessionId, trackId);
    if (result != statusSuccess)
    {
        return result;
    }
    bool* const playing = playingFlagOf(trackId);
    if (playing == nullptr)
    {
        return statusNotFound;
    }
    *playing = false;
    return statusSuccess;
}

int OVPlayBack::stop(const std::string& sessionId, const std::string& trackId)
{
    OVMutexManager guard(mutex, unit, guardStop);
    bool* const playing = playingFlagOf(trackId);
    if (playing == nullptr)
    {
        return statusNotFound;
    }
    *playing = false;
    // A track that the dispatcher does not know has ended already.
    dispatcher->deleteSessionConnection(sessionId, trackId);
    return statusSuccess;
}

int OVPlayBack::getConnectionState(std::string sessionId, std::string trackId, bool& connected)
{
    return dispatcher->getConnectionState(std::move(sessionId), std::move(trackId), connected);
}

int OVPlayBack::setSpeed(const std::string& sessionId, const std::string& trackId, double scale, double speed)
{
    return dispatcher->setSpeed(sessionId, trackId, scale, speed);
}

int OVPlayBack::getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start,
                                double& end)
{
    return dispatcher->getCurPlayRange(sessionId, trackId, start, end);
}

int OVPlayBack::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    return dispatcher->getTrackSSRC(sessionId, trackId, ssrc);
}

int OVPlayBack::setPauseRange(const std::string&, const std::string& trackId, double position)
{
    return dispatcher->setPauseRange(trackId, position);
}

void OVPlayBack::setRTCPFrequence(const std::string&, const std::string&, int seconds)
{
    dispatcher->setRTCPFrequence(seconds);
}

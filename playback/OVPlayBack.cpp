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

// The lines by which the mutex's diagnostics know the guards of this class.
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

const int encoderType = 103;  // the talk-back's default, too
const int rtcpTimeoutSeconds = 60;
const int rtcpIntervalSeconds = 5;

}  // namespace

OVPlayBack::OVPlayBack()
    : thirdPlatType_(0),
      dispatcher_(new RTPPlayBackDispacher),
      firstTrackPlaying_(false),
      secondTrackPlaying_(false)
{
    mediaInfo_.clearAllSubMediaInfo();
}

OVPlayBack::~OVPlayBack() noexcept(false) = default;

int OVPlayBack::init(const DeviceInfoEx& device, const DeviceExAbility& ability, int thirdPlatType,
                     int cameraId, long recordBeginTime, long recordEndTime)
{
    thirdPlatType_ = thirdPlatType;

    ThirdPlatMgr names;
    firstTrackId_ = names.getTrackIDByESStreamType(thirdPlatType, videoStream, false, encoderType);
    secondTrackId_ = names.getTrackIDByESStreamType(thirdPlatType, audioStream, false, encoderType);

    // A copy, because a host's getters of it need not be const.
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
    source->setThirdPlatType(thirdPlatType);

    dispatcher_->setMediaSource(SafePointer<IMediaSource>(source));
    dispatcher_->setTransferMixStreamFlag(false);
    dispatcher_->setRTCPTimeout(rtcpTimeoutSeconds);
    dispatcher_->setRTCPFrequence(rtcpIntervalSeconds);
    dispatcher_->setFramePacketMode(false);
    const int result = dispatcher_->start();
    if (result != statusSuccess)
    {
        // Other names than the operation's and the class's; who reads the output looks for it so.
        std::puts("OVPlayBack->initInstance PRTPStreamDispatcher start Fail!");
    }
    return result;
}

void OVPlayBack::setMediaInfo(const MediaInfo& info)
{
    mediaInfo_ = info;
}

int OVPlayBack::setup(const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection)
{
    int payloadSize = 0;
    if (!PayloadSize::byTransport(connection->transportKind, dispatcher_, payloadSize))
    {
        return statusRefused;
    }
    SubMediaInfo track;
    if (!mediaInfo_.getSubMediaInfo(trackId, track))
    {
        return statusNotFound;
    }
    const int result = dispatcher_->initRTPBuilder(sessionId, trackId, track, payloadSize);
    if (result != statusSuccess)
    {
        return result;
    }
    return dispatcher_->addSessionConnection(sessionId, trackId, connection);
}

bool* OVPlayBack::playingFlagOf(const std::string& trackId)
{
    if (trackId == firstTrackId_)
    {
        return &firstTrackPlaying_;
    }
    return trackId == secondTrackId_ ? &secondTrackPlaying_ : nullptr;
}

int OVPlayBack::play(const std::string& sessionId, const std::string& trackId)
{
    OVMutexManager guard(mutex_, unit, guardPlay);
    if ((trackId == firstTrackId_ && firstTrackPlaying_) ||
        (trackId == secondTrackId_ && secondTrackPlaying_))
    {
        return statusSuccess;
    }
    const int result = dispatcher_->play(sessionId, trackId);
    if (result != statusSuccess)
    {
        return result;
    }
    // Only now, deliberately: a track that is none of the two is the dispatcher's to judge first.
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
    OVMutexManager guard(mutex_, unit, guardPause);
    if ((trackId == firstTrackId_ && !firstTrackPlaying_) ||
        (trackId == secondTrackId_ && !secondTrackPlaying_))
    {
        return statusSuccess;
    }
    const int result = dispatcher_->pause(sessionId, trackId);
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
    OVMutexManager guard(mutex_, unit, guardStop);
    bool* const playing = playingFlagOf(trackId);
    if (playing == nullptr)
    {
        return statusNotFound;
    }
    *playing = false;
    // A track that the dispatcher does not know is as good as ended.
    dispatcher_->deleteSessionConnection(sessionId, trackId);
    return statusSuccess;
}

int OVPlayBack::getConnectionState(std::string sessionId, std::string trackId, bool& connected)
{
    return dispatcher_->getConnectionState(std::move(sessionId), std::move(trackId), connected);
}

int OVPlayBack::setSpeed(const std::string& sessionId, const std::string& trackId, double scale, double speed)
{
    return dispatcher_->setSpeed(sessionId, trackId, scale, speed);
}

int OVPlayBack::getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start,
                                double& end)
{
    return dispatcher_->getCurPlayRange(sessionId, trackId, start, end);
}

int OVPlayBack::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    return dispatcher_->getTrackSSRC(sessionId, trackId, ssrc);
}

int OVPlayBack::setPauseRange(const std::string&, const std::string& trackId, double position)
{
    return dispatcher_->setPauseRange(trackId, position);
}

void OVPlayBack::setRTCPFrequence(const std::string&, const std::string&, int seconds)
{
    dispatcher_->setRTCPFrequence(seconds);
}

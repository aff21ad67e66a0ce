#include "playback/OVPlaybackController.h"

#include <cstdio>
#include <utility>

#include "hostapi/base/DataConverter.h"
#include "hostapi/description/MediaInfoTool.h"
#include "hostapi/playback/RTPPlayBackDispacherMgr.h"
#include "mediaurl/ControllerCodec.h"
#include "support/OVMutexManager.h"
#include "support/Saturation.h"
#include "support/StatusCode.h"

namespace
{

const char* const unit = "OVPlaybackController";
// Deliberately another class's name in printed lines: readers of the output search for it.
const char* const printedName = "OVPlayBack";

// The lines by which the mutex's diagnostics recognise the guards of this class.
enum GuardLine
{
    guardInitInstance = 29,
    guardGetMediaInfo = 133,
    guardCorrectPlayRange = 236,
};

}  // namespace

OVPlaybackController::OVPlaybackController() : thirdPlatType(0)
{
    mediaInfo.clearAllSubMediaInfo();
}

OVPlaybackController::~OVPlaybackController() noexcept(false) = default;

int OVPlaybackController::initInstance(int platType, const std::string& url, const DeviceInfoEx& device,
                                       const DeviceExAbility& ability)
{
    OVMutexManager guard(mutex, unit, guardInitInstance);
    if (url.empty())
    {
        return statusNotFound;
    }
    thirdPlatType = platType;
    deviceInfo = device;
    deviceAbility = ability;
    const int result = parseMediaUrl(url);
    return result == statusSuccess ? createMediaInfo() : result;
}

int OVPlaybackController::parseMediaUrl(const std::string& url)
{
    ControllerCodec codec(printedName);
    int result = codec.create(thirdPlatType, url);
    if (result != statusSuccess)
    {
        return result;
    }
    result = codec->parsePlaybackMediaUrl(url);
    if (result != statusSuccess)
    {
        std::puts("##########OVPlayBack::parseMediaUrl objMediaUrl->parsePlaybackMediaUrl error!!");
        return result;
    }
    mediaUrlParam = codec->objMediaUrlParam;

    std::string cameraText;
    std::string beginText;
    std::string endText;
    DataConverter::convert(mediaUrlParam.getCameraID(), cameraText);
    DataConverter::convert(mediaUrlParam.getRecordBeginTime(), beginText);
    DataConverter::convert(mediaUrlParam.getRecordEndTime(), endText);
    recordKey = cameraText + "_" + beginText + "_" + endText;
    return statusSuccess;
}

int OVPlaybackController::createMediaInfo()
{
    ControllerCodec codec(printedName);
    int result = codec.createForRendering(thirdPlatType);
    if (result != statusSuccess)
    {
        return result;
    }
    codec->objMediaUrlParam = mediaUrlParam;
    const std::string canonicalUrl = codec->toPlayBackMediaUrl();

    MediaInfoTool tool;
    tool.setDeviceInfoEx(deviceInfo);
    tool.setDeviceExAbility(deviceAbility);
    tool.setMediaUrl(canonicalUrl);
    // The codec's own number, not the one under which its factory is registered.
    tool.setThirdPlatType(codec->getThirdPlatType());
    result = tool.createPlaybackMediaInfo(recordInfo(), mediaInfo);
    if (result != statusSuccess)
    {
        std::puts("objMediaInfoTool.createMediaInfo Error!!!!");
    }
    return result;
}

RecordInfo OVPlaybackController::recordInfo()
{
    RecordInfo record;
    record.setCameraId(mediaUrlParam.getCameraID());
    record.setDeviceId(deviceInfo.getDeviceID());
    record.setRecordBeginTime(Saturation::toUnsigned32(mediaUrlParam.getRecordBeginTime()));
    record.setRecordEndTime(Saturation::toUnsigned32(mediaUrlParam.getRecordEndTime()));
    record.setDeviceIP(deviceInfo.getDeviceAddr().getIP());
    return record;
}

int OVPlaybackController::getMediaInfo(MediaInfo& out)
{
    OVMutexManager guard(mutex, unit, guardGetMediaInfo);
    out = mediaInfo;
    return statusSuccess;
}

int OVPlaybackController::mediaInit()
{
    return statusSuccess;
}

int OVPlaybackController::setup(const std::string& sessionId, const std::string& trackId,
                                const SafePointer<IConnection>& connection)
{
    const SafePointer<RTPPlayBackDispacherMgr> dispatcher = RTPPlayBackDispacherMgr::getInstance();
    // The result is ignored: setup() fails for a description that the dispatcher cannot use.
    dispatcher->setMediaInfo(mediaInfo);
    const int result = dispatcher->initDispatcher(sessionId, deviceInfo, deviceAbility, recordInfo());
    if (result != statusSuccess)
    {
        return result;
    }
    return dispatcher->setup(sessionId, trackId, connection);
}

int OVPlaybackController::play(const std::string& sessionId, const std::string& trackId)
{
    return RTPPlayBackDispacherMgr::getInstance()->play(sessionId, trackId);
}

int OVPlaybackController::setPlayRange(const std::string& sessionId, const std::string& trackId, double start,
                                       double end, int rangeKind, bool rangeFlag)
{
    return RTPPlayBackDispacherMgr::getInstance()->setPlayRange(sessionId, trackId, start, end, rangeKind,
                                                                rangeFlag);
}

int OVPlaybackController::getCurPlayRange(const std::string& sessionId, const std::string& trackId,
                                          double& start, double& end)
{
    return RTPPlayBackDispacherMgr::getInstance()->getCurPlayRange(sessionId, trackId, start, end);
}

int OVPlaybackController::correctPlayRange(const std::string&, const std::string&, double start, double end,
                                           double& outStart, double& outEnd)
{
    OVMutexManager guard(mutex, unit, guardCorrectPlayRange);
    const double duration =
        Saturation::toSigned32(mediaUrlParam.getRecordEndTime() - mediaUrlParam.getRecordBeginTime());
    outStart = start >= 0 && start < duration ? start : 0;
    outEnd = end >= 0 && end <= duration ? end : duration;
    return statusSuccess;
}

int OVPlaybackController::getCurRTPPacketInfo(const std::string& sessionId, const std::string& trackId,
                                              RTPPacketInfo& out)
{
    return RTPPlayBackDispacherMgr::getInstance()->getCurRTPPacketInfo(sessionId, trackId, out);
}

int OVPlaybackController::pause(const std::string& sessionId, const std::string& trackId)
{
    return RTPPlayBackDispacherMgr::getInstance()->pause(sessionId, trackId);
}

int OVPlaybackController::setPauseRange(const std::string& sessionId, const std::string& trackId,
                                        double position)
{
    return RTPPlayBackDispacherMgr::getInstance()->setPauseRange(sessionId, trackId, position);
}

int OVPlaybackController::stop(const std::string& sessionId, const std::string& trackId)
{
    return RTPPlayBackDispacherMgr::getInstance()->stop(sessionId, trackId);
}

int OVPlaybackController::getConnetionState(std::string sessionId, std::string trackId, bool& connected)
{
    return RTPPlayBackDispacherMgr::getInstance()->getConnectionState(std::move(sessionId),
                                                                      std::move(trackId), connected);
}

int OVPlaybackController::setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                                   double speed)
{
    return RTPPlayBackDispacherMgr::getInstance()->setSpeed(sessionId, trackId, scale, speed);
}

void OVPlaybackController::setRTCPFrequence(const std::string&, const std::string&, int) {}

int OVPlaybackController::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    return RTPPlayBackDispacherMgr::getInstance()->getTrackSSRC(sessionId, trackId, ssrc);
}

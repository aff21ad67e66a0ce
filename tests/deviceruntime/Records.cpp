// The device's records and its descriptions.
#include <algorithm>

#include "hostapi/description/GeneralSessionInfo.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/MediaInfoTool.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/description/ThirdPlatMgr.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "hostapi/device/MTUParam.h"
#include "hostapi/live/MulticastSessionParameter.h"
#include "tests/deviceruntime/DeviceCalls.h"
#include "tests/deviceruntime/DeviceSettings.h"

DeviceInfoEx::DeviceInfoEx() {}
DeviceInfoEx::~DeviceInfoEx() {}
DeviceInfoEx& DeviceInfoEx::operator=(const DeviceInfoEx& other) = default;
const char* DeviceInfoEx::getDeviceID()
{
    return deviceId_.c_str();
}
InetAddr& DeviceInfoEx::getDeviceAddr()
{
    return address_;
}
const char* InetAddr::getIP()
{
    return ip_.c_str();
}

DeviceExAbility::DeviceExAbility() : audioBack_(false) {}
DeviceExAbility::~DeviceExAbility() {}
DeviceExAbility& DeviceExAbility::operator=(const DeviceExAbility& other) = default;

MTUParam::MTUParam() : mtu_(0) {}
MTUParam::~MTUParam() {}
MTUParam& MTUParam::operator=(const MTUParam& other) = default;
void MTUParam::setMTUValue(int bytes)
{
    mtu_ = bytes;
}
int MTUParam::getMTUValue()
{
    return mtu_;
}

SubMediaInfo::SubMediaInfo() : numbers_(), frameRate_(0), audioBack_(false) {}
SubMediaInfo::~SubMediaInfo() {}
bool SubMediaInfo::getAudioBackInfoFlag()
{
    return audioBack_;
}

MediaInfo::MediaInfo() : recordBeginTime_(0), recordSeconds_(0) {}
MediaInfo::~MediaInfo() {}
MediaInfo& MediaInfo::operator=(const MediaInfo& other) = default;
void MediaInfo::clearAllSubMediaInfo()
{
    tracks_.clear();
}
bool MediaInfo::getSubMediaInfo(const std::string& trackId, SubMediaInfo& out)
{
    const auto found =
        std::find_if(tracks_.begin(), tracks_.end(),
                     [&](const SubMediaInfo& track) { return DeviceSettings::id(track) == trackId; });
    if (found == tracks_.end())
    {
        return false;
    }
    out = *found;
    return true;
}

RecordInfo::RecordInfo() : cameraId_(0), beginTime_(0), endTime_(0) {}
RecordInfo::~RecordInfo() {}
void RecordInfo::setCameraId(int id)
{
    cameraId_ = id;
}
void RecordInfo::setDeviceId(const char* id)
{
    deviceId_ = id;
}
void RecordInfo::setDeviceIP(const char* ip)
{
    deviceIp_ = ip;
}
void RecordInfo::setRecordBeginTime(unsigned long seconds)
{
    beginTime_ = static_cast<std::uint32_t>(seconds);
}
void RecordInfo::setRecordEndTime(unsigned long seconds)
{
    endTime_ = static_cast<std::uint32_t>(seconds);
}

void GeneralSessionInfo::setCameraID(int id)
{
    cameraId_ = id;
}
void GeneralSessionInfo::setStreamID(int id)
{
    streamId_ = id;
}
void GeneralSessionInfo::setIsMulticastFlag(bool flag)
{
    multicast_ = flag;
}

std::string ThirdPlatMgr::getTrackIDByESStreamType(int, int esStreamType, bool, int)
{
    return esStreamType == 1 ? "video" : "audio";
}

MediaInfoTool::MediaInfoTool() : url_(new std::string) {}
MediaInfoTool::~MediaInfoTool()
{
    delete url_;
}
void MediaInfoTool::setDeviceInfoEx(const DeviceInfoEx& info)
{
    DeviceCalls::note(DeviceSettings::id(info));
}
void MediaInfoTool::setDeviceExAbility(const DeviceExAbility&) {}
void MediaInfoTool::setMediaUrl(const std::string& url)
{
    *url_ = url;
}
void MediaInfoTool::setThirdPlatType(int) {}
int MediaInfoTool::createMediaInfo(int cameraId, int streamId, MediaInfo& out, bool)
{
    DeviceCalls::note("describe " + std::to_string(cameraId) + "/" + std::to_string(streamId));
    out = DeviceSettings::presentation(
        *url_, {DeviceSettings::track("video", false), DeviceSettings::track("talk", true)});
    return 0;
}
int MediaInfoTool::createPlaybackMediaInfo(const RecordInfo& record, MediaInfo& out)
{
    DeviceCalls::note("describe " + DeviceSettings::text(record));
    out = DeviceSettings::presentation(*url_, {DeviceSettings::track("video", false)});
    return 0;
}

MulticastMemberSessionParameter::MulticastMemberSessionParameter() {}
MulticastMemberSessionParameter::~MulticastMemberSessionParameter() {}
void MulticastMemberSessionParameter::setMemberSessionId(const std::string& id)
{
    memberSessionId_ = id;
}

TrackParam::TrackParam() {}
TrackParam::~TrackParam() {}
void TrackParam::setTrackID(const std::string& id)
{
    trackId_ = id;
}
const std::string& TrackParam::getTrackID()
{
    return trackId_;
}
void TrackParam::setMeidaUrl(const std::string& url)
{
    mediaUrl_ = url;
}

MulticastSessionParameter::MulticastSessionParameter() {}
MulticastSessionParameter::~MulticastSessionParameter() noexcept(false) {}
void MulticastSessionParameter::setMulticastSessionId(const std::string& id)
{
    multicastSessionId_ = id;
}
bool MulticastSessionParameter::findMemberSession(const std::string& id)
{
    const std::vector<std::string> ids = getMemberSessionIdList();
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}
void MulticastSessionParameter::addMemberSessionParam(const MulticastMemberSessionParameter& member)
{
    members_.push_back(member);
}
void MulticastSessionParameter::deleteMemberSessionParam(const std::string& id)
{
    const std::vector<std::string> ids = getMemberSessionIdList();
    members_.erase(members_.begin() + (std::find(ids.begin(), ids.end(), id) - ids.begin()));
}
std::vector<std::string> MulticastSessionParameter::getMemberSessionIdList()
{
    std::vector<std::string> ids;
    for (const MulticastMemberSessionParameter& member : members_)
    {
        ids.push_back(member.memberSessionId_);
    }
    return ids;
}
bool MulticastSessionParameter::findMulticastSessionTrackParam(const std::string& trackId)
{
    return std::any_of(tracks_.begin(), tracks_.end(),
                       [&](TrackParam& track) { return track.getTrackID() == trackId; });
}
void MulticastSessionParameter::addTrackParam(const TrackParam& track)
{
    tracks_.push_back(track);
}
std::vector<TrackParam> MulticastSessionParameter::getTrackParamList()
{
    return tracks_;
}

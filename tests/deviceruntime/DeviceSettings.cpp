#include "tests/deviceruntime/DeviceSettings.h"

DeviceInfoEx DeviceSettings::device(const std::string& id, const std::string& ip)
{
    DeviceInfoEx device;
    device.deviceId_ = id;
    device.address_.ip_ = ip;
    return device;
}

const std::string& DeviceSettings::id(const DeviceInfoEx& device)
{
    return device.deviceId_;
}

SubMediaInfo DeviceSettings::track(const std::string& id, bool talkBack)
{
    SubMediaInfo track;
    track.trackId_ = id;
    track.audioBack_ = talkBack;
    return track;
}

MediaInfo DeviceSettings::presentation(const std::string& url, const std::vector<SubMediaInfo>& tracks)
{
    MediaInfo info;
    info.mediaUrl_ = url;
    info.tracks_ = tracks;
    return info;
}

const std::string& DeviceSettings::url(const MediaInfo& info)
{
    return info.mediaUrl_;
}

const std::string& DeviceSettings::id(const SubMediaInfo& track)
{
    return track.trackId_;
}

std::string DeviceSettings::text(const RecordInfo& record)
{
    return std::to_string(record.cameraId_) + "@" + record.deviceId_ + "/" + record.deviceIp_ + ":" +
           std::to_string(record.beginTime_) + "-" + std::to_string(record.endTime_);
}

std::string DeviceSettings::text(const GeneralSessionInfo& info)
{
    return std::to_string(info.cameraId_) + "/" + std::to_string(info.streamId_) +
           (info.multicast_ ? " shared" : "");
}

const std::string& DeviceSettings::id(const MulticastSessionParameter& record)
{
    return record.multicastSessionId_;
}

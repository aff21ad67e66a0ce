#include "mediaurl/MediaUrlParam.h"

MediaUrlParam::MediaUrlParam()
    : cameraID_(0), streamID_(0), recordBeginTime_(0.0), recordEndTime_(0.0), multicastFlag_(false)
{
}

MediaUrlParam::MediaUrlParam(const MediaUrlParam& other) = default;

MediaUrlParam& MediaUrlParam::operator=(const MediaUrlParam& other) = default;

MediaUrlParam::~MediaUrlParam() = default;

void MediaUrlParam::setMediaUrlPrefix(std::string& prefix)
{
    mediaUrlPrefix_ = prefix;
}

std::string MediaUrlParam::getMediaUrlPrefix() const
{
    return mediaUrlPrefix_;
}

void MediaUrlParam::setDeviceId(const std::string& deviceId)
{
    deviceId_ = deviceId;
}

std::string MediaUrlParam::getDeviceId() const
{
    return deviceId_;
}

void MediaUrlParam::setCameraID(int cameraID)
{
    cameraID_ = cameraID;
}

int MediaUrlParam::getCameraID() const
{
    return cameraID_;
}

void MediaUrlParam::setStreamID(int streamID)
{
    streamID_ = streamID;
}

int MediaUrlParam::getStreamID() const
{
    return streamID_;
}

void MediaUrlParam::setRecordBeginTime(double seconds)
{
    recordBeginTime_ = seconds;
}

double MediaUrlParam::getRecordBeginTime() const
{
    return recordBeginTime_;
}

void MediaUrlParam::setRecordEndTime(double seconds)
{
    recordEndTime_ = seconds;
}

double MediaUrlParam::getRecordEndTime() const
{
    return recordEndTime_;
}

void MediaUrlParam::setMulticastFlag(bool multicast)
{
    multicastFlag_ = multicast;
}

bool MediaUrlParam::getMulticastFlag() const
{
    return multicastFlag_;
}

#include "mediaurl/MediaUrlParam.h"

MediaUrlParam::MediaUrlParam()
    : cameraID(0), streamID(0), recordBeginTime(0.0), recordEndTime(0.0), multicastFlag(false)
{
}

MediaUrlParam::MediaUrlParam(const MediaUrlParam& other) = default;

MediaUrlParam& MediaUrlParam::operator=(const MediaUrlParam& other) = default;

MediaUrlParam::~MediaUrlParam() = default;

void MediaUrlParam::setMediaUrlPrefix(std::string& prefix)
{
    mediaUrlPrefix = prefix;
}

std::string MediaUrlParam::getMediaUrlPrefix() const
{
    return mediaUrlPrefix;
}

void MediaUrlParam::setDeviceId(const std::string& id)
{
    deviceId = id;
}

std::string MediaUrlParam::getDeviceId() const
{
    return deviceId;
}

void MediaUrlParam::setCameraID(int id)
{
    cameraID = id;
}

int MediaUrlParam::getCameraID() const
{
    return cameraID;
}

void MediaUrlParam::setStreamID(int id)
{
    streamID = id;
}

int MediaUrlParam::getStreamID() const
{
    return streamID;
}

void MediaUrlParam::setRecordBeginTime(double seconds)
{
    recordBeginTime = seconds;
}

double MediaUrlParam::getRecordBeginTime() const
{
    return recordBeginTime;
}

void MediaUrlParam::setRecordEndTime(double seconds)
{
    recordEndTime = seconds;
}

double MediaUrlParam::getRecordEndTime() const
{
    return recordEndTime;
}

void MediaUrlParam::setMulticastFlag(bool multicast)
{
    multicastFlag = multicast;
}

bool MediaUrlParam::getMulticastFlag() const
{
    return multicastFlag;
}

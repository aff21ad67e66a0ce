#include "tests/live/ScriptedCodec.h"

#include "tests/fakehost/FakeHost.h"

int ScriptedCodec::parseMediaUrl(const std::string& url)
{
    const int result = FakeHost::instance().outcomeOf("IMediaUrl", 0, "parseMediaUrl", url, 0).result;
    if (result == 0)
    {
        objMediaUrlParam.setDeviceId("parsed");
        objMediaUrlParam.setCameraID(5);
        objMediaUrlParam.setStreamID(6);
    }
    return result;
}

std::string ScriptedCodec::toMediaUrl()
{
    return "canonical " + objMediaUrlParam.getDeviceId() + " " +
           std::to_string(objMediaUrlParam.getCameraID()) + " " +
           std::to_string(objMediaUrlParam.getStreamID());
}

int ScriptedCodec::parseMulticastMediaUrl(const std::string&)
{
    return -1;
}

std::string ScriptedCodec::toMulticastMediaUrl()
{
    return "multicast";
}

int ScriptedCodec::parsePlaybackMediaUrl(const std::string&)
{
    return -1;
}

std::string ScriptedCodec::toPlayBackMediaUrl()
{
    return "playback";
}

int ScriptedCodec::getThirdPlatType()
{
    return ownType;
}

ScriptedCodecFactory::ScriptedCodecFactory(std::function<void()> onCreate) : onCreate_(onCreate) {}

ScriptedCodecFactory::~ScriptedCodecFactory() noexcept(false) = default;

int ScriptedCodecFactory::createMediaUrl(SafePointer<IMediaUrl>& codec)
{
    if (onCreate_)
    {
        onCreate_();
    }
    const int result = FakeHost::instance().outcomeOf("IMediaUrlFactory", 0, "createMediaUrl", 0).result;
    if (result == 0)
    {
        codec = SafePointer<IMediaUrl>(new ScriptedCodec);
    }
    return result;
}

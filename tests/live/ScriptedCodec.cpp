#include "tests/live/ScriptedCodec.h"

#include <utility>

#include "tests/fakehost/FakeHost.h"

int ScriptedCodec::parseAs(const char* operation, const std::string& url)
{
    const int result = FakeHost::instance().outcomeOf("IMediaUrl", 0, operation, url, 0).result;
    if (result == 0)
    {
        objMediaUrlParam.setDeviceId("parsed");
        objMediaUrlParam.setCameraID(5);
        objMediaUrlParam.setStreamID(6);
    }
    return result;
}

std::string ScriptedCodec::renderAs(const char* family) const
{
    return std::string(family) + " " + objMediaUrlParam.getDeviceId() + " " +
           std::to_string(objMediaUrlParam.getCameraID()) + " " +
           std::to_string(objMediaUrlParam.getStreamID());
}

int ScriptedCodec::parseMediaUrl(const std::string& url)
{
    return parseAs("parseMediaUrl", url);
}

std::string ScriptedCodec::toMediaUrl()
{
    return renderAs("canonical");
}

int ScriptedCodec::parseMulticastMediaUrl(const std::string& url)
{
    objMediaUrlParam.setMulticastFlag(true);
    return parseAs("parseMulticastMediaUrl", url);
}

std::string ScriptedCodec::toMulticastMediaUrl()
{
    return renderAs("multicast");
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

ScriptedCodecFactory::ScriptedCodecFactory(std::function<void()> onCreate) : onCreate_(std::move(onCreate)) {}

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

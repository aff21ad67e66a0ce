#include "live/LivePresentation.h"

#include <cstdio>

#include "hostapi/base/DataConverter.h"
#include "hostapi/description/MediaInfoTool.h"
#include "mediaurl/ControllerCodec.h"
#include "support/StatusCode.h"

LivePresentation::LivePresentation(const Form& form, const Fields& fields) : form_(form), fields_(fields) {}

int LivePresentation::init(int thirdPlatType, const std::string& url, const DeviceInfoEx& deviceInfo,
                           const DeviceExAbility& deviceAbility, bool mediaInfoFlag) const
{
    const int result = parse(thirdPlatType, url, fields_.streamKey);
    if (result != statusSuccess)
    {
        return result;
    }
    fields_.deviceInfo = deviceInfo;
    fields_.deviceAbility = deviceAbility;
    fields_.mediaUrl = url;
    return describe(thirdPlatType, mediaInfoFlag, fields_.mediaInfo);
}

int LivePresentation::parse(int thirdPlatType, const std::string& url, std::string& key) const
{
    ControllerCodec codec(form_.controllerName);
    int result = codec.create(thirdPlatType, url);
    if (result != statusSuccess)
    {
        return result;
    }
    result = (codec.operator->()->*form_.parse)(url);
    if (result != statusSuccess)
    {
        // The line deliberately names parseMediaUrl for every operation.
        std::printf("##########%s::parseMediaUrl objMediaUrl->parseMediaUrl error!!\n", form_.controllerName);
        return result;
    }
    fields_.mediaUrlParam = codec->objMediaUrlParam;

    std::string cameraText;
    std::string streamText;
    DataConverter::convert(fields_.mediaUrlParam.getCameraID(), cameraText);
    DataConverter::convert(fields_.mediaUrlParam.getStreamID(), streamText);
    key = cameraText + "/" + streamText;
    return statusSuccess;
}

int LivePresentation::describe(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out) const
{
    // A failure is deliberately printed with the name of parseMediaUrl here too.
    ControllerCodec codec(form_.controllerName);
    int result = codec.create(thirdPlatType, fields_.mediaUrl);
    if (result != statusSuccess)
    {
        return result;
    }
    codec->objMediaUrlParam = fields_.mediaUrlParam;
    const std::string canonicalUrl = (codec.operator->()->*form_.render)();

    MediaInfoTool tool;
    tool.setDeviceInfoEx(fields_.deviceInfo);
    tool.setDeviceExAbility(fields_.deviceAbility);
    tool.setMediaUrl(canonicalUrl);
    // The codec's own number, not the one under which its factory is registered.
    tool.setThirdPlatType(codec->getThirdPlatType());
    result = tool.createMediaInfo(fields_.mediaUrlParam.getCameraID(), fields_.mediaUrlParam.getStreamID(),
                                  out, mediaInfoFlag);
    if (result != statusSuccess)
    {
        std::puts("objMediaInfoTool.createMediaInfo Error!!!!");
    }
    return result;
}

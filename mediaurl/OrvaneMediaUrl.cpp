#include "mediaurl/OrvaneMediaUrl.h"

#include "hostapi/base/DataConverter.h"
#include "mediaurl/UrlScanner.h"
#include "support/Saturation.h"
#include "support/StatusCode.h"

namespace
{

const char livePrefix[] = "orv/live";
const char playbackPrefix[] = "orv/playback";
const char liveKey[] = "orv/live/";
const char playbackKey[] = "orv/playback/";
const char segmentSeparator = '/';
const char fieldSeparator = '_';
const int ownThirdPlatType = 1;

}  // namespace

OrvaneMediaUrl::OrvaneMediaUrl() = default;

OrvaneMediaUrl::~OrvaneMediaUrl() noexcept(false) = default;

int OrvaneMediaUrl::parseMediaUrl(const std::string& url)
{
    // Deliberately before any check: the prefix names the requested form, even when parsing fails.
    std::string prefix(livePrefix);
    objMediaUrlParam.setMediaUrlPrefix(prefix);

    UrlScanner scanner(url);
    if (!scanner.skipTo(liveKey) || !scanner.readField(segmentSeparator))
    {
        return statusNotFound;
    }
    int camera = 0;
    if (!DataConverter::convert(scanner.field(), camera) || scanner.isAtEnd())
    {
        return statusNotFound;
    }
    int stream = 0;
    if (!DataConverter::convert(scanner.rest(), stream))
    {
        return statusNotFound;
    }
    // Only here, so that a failed parse changes neither.
    objMediaUrlParam.setCameraID(camera);
    objMediaUrlParam.setStreamID(stream);
    return statusSuccess;
}

std::string OrvaneMediaUrl::toMediaUrl()
{
    std::string camera;
    std::string stream;
    DataConverter::convert(objMediaUrlParam.getCameraID(), camera);
    DataConverter::convert(objMediaUrlParam.getStreamID(), stream);
    return liveKey + camera + segmentSeparator + stream;
}

int OrvaneMediaUrl::parseMulticastMediaUrl(const std::string&)
{
    return statusSuccess;
}

std::string OrvaneMediaUrl::toMulticastMediaUrl()
{
    return std::string();
}

int OrvaneMediaUrl::parsePlaybackMediaUrl(const std::string& url)
{
    std::string prefix(playbackPrefix);
    objMediaUrlParam.setMediaUrlPrefix(prefix);

    UrlScanner scanner(url);
    if (!scanner.skipTo(playbackKey) || !scanner.readField(fieldSeparator))
    {
        return statusNotFound;
    }
    int camera = 0;
    if (!DataConverter::convert(scanner.field(), camera))
    {
        return statusNotFound;
    }
    // Deliberately before the rest is checked, unlike in the live form.
    objMediaUrlParam.setCameraID(camera);

    if (!scanner.readField(fieldSeparator))
    {
        return statusNotFound;
    }
    const std::string beginText = scanner.field();
    const std::string endText = scanner.rest();
    if (!isValidNumString(beginText) || !isValidNumString(endText))
    {
        return statusNotFound;
    }
    // Digits are the only check: times are not bounded, and the end may precede the begin.
    double begin = 0.0;
    double end = 0.0;
    DataConverter::convert(beginText, begin);
    DataConverter::convert(endText, end);
    objMediaUrlParam.setRecordBeginTime(begin);
    objMediaUrlParam.setRecordEndTime(end);
    return statusSuccess;
}

std::string OrvaneMediaUrl::toPlayBackMediaUrl()
{
    std::string camera;
    std::string beginText;
    std::string endText;
    const unsigned long begin = Saturation::toUnsigned32(objMediaUrlParam.getRecordBeginTime());
    const unsigned long end = Saturation::toUnsigned32(objMediaUrlParam.getRecordEndTime());
    DataConverter::convert(objMediaUrlParam.getCameraID(), camera);
    DataConverter::convert(begin, beginText);
    DataConverter::convert(end, endText);
    return playbackKey + camera + fieldSeparator + beginText + fieldSeparator + endText;
}

int OrvaneMediaUrl::getThirdPlatType()
{
    return ownThirdPlatType;
}

bool OrvaneMediaUrl::isValidNumString(const std::string& text) const
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

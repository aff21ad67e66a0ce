#include "mediaurl/OrvaneMediaUrl.h"

#include <cstring>

#include "hostapi/base/DataConverter.h"
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

template <std::size_t Size>
constexpr std::size_t lengthOf(const char (&)[Size])
{
    return Size - 1;
}

// Where the text behind the first occurrence of `key` begins; npos when there is no occurrence or no such
// text.
template <std::size_t Size>
std::size_t findRest(const std::string& url, const char (&key)[Size])
{
    // std::string::find() does the same with one call more for every candidate.
    const char* const end = url.data() + url.size();
    const char* at = url.data();
    while (static_cast<std::size_t>(end - at) > lengthOf(key))
    {
        at = static_cast<const char*>(
            std::memchr(at, key[0], static_cast<std::size_t>(end - at) - lengthOf(key)));
        if (at == nullptr)
        {
            break;
        }
        if (std::memcmp(at, key, lengthOf(key)) == 0)
        {
            return static_cast<std::size_t>(at - url.data()) + lengthOf(key);
        }
        ++at;
    }
    return std::string::npos;
}

// Where the field that begins at `begin` ends: at the next separator, which must leave something on both
// sides; npos when it does not.
std::size_t findFieldEnd(const std::string& url, std::size_t begin, char separator)
{
    // A field is a few digits: looking at them costs less than a call.
    std::size_t end = begin;
    while (end < url.size() && url[end] != separator)
    {
        ++end;
    }
    return end == begin || end == url.size() ? std::string::npos : end;
}

// The text from `begin` to `end`. One or two characters, the usual case, are copied without a call.
std::string field(const std::string& url, std::size_t begin, std::size_t end)
{
    const char* const text = url.data() + begin;
    return end - begin == 2 ? std::string(text, 2) : std::string(text, end - begin);
}

std::string secondsText(double seconds)
{
    std::string text;
    DataConverter::convert(static_cast<unsigned long>(Saturation::toUnsigned32(seconds)), text);
    return text;
}

std::string numberText(int number)
{
    std::string text;
    DataConverter::convert(number, text);
    return text;
}

}  // namespace

OrvaneMediaUrl::OrvaneMediaUrl() = default;

OrvaneMediaUrl::~OrvaneMediaUrl() noexcept(false) = default;

int OrvaneMediaUrl::parseMediaUrl(const std::string& url)
{
    // Before any check, deliberately: the prefix tells what was asked for, not what was found.
    std::string prefix(livePrefix);
    objMediaUrlParam.setMediaUrlPrefix(prefix);

    const std::size_t cameraBegin = findRest(url, liveKey);
    if (cameraBegin == std::string::npos)
    {
        return statusNotFound;
    }
    const std::size_t cameraEnd = findFieldEnd(url, cameraBegin, segmentSeparator);
    if (cameraEnd == std::string::npos)
    {
        return statusNotFound;
    }
    int camera = 0;
    if (!DataConverter::convert(field(url, cameraBegin, cameraEnd), camera))
    {
        return statusNotFound;
    }
    const std::size_t streamBegin = cameraEnd + 1;
    if (streamBegin == url.size())
    {
        return statusNotFound;
    }
    int stream = 0;
    if (!DataConverter::convert(field(url, streamBegin, url.size()), stream))
    {
        return statusNotFound;
    }
    // Only here, so that a failed parse leaves both as they were.
    objMediaUrlParam.setCameraID(camera);
    objMediaUrlParam.setStreamID(stream);
    return statusSuccess;
}

std::string OrvaneMediaUrl::toMediaUrl()
{
    std::string url(liveKey);
    url += numberText(objMediaUrlParam.getCameraID());
    url += segmentSeparator;
    url += numberText(objMediaUrlParam.getStreamID());
    return url;
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

    const std::size_t cameraBegin = findRest(url, playbackKey);
    if (cameraBegin == std::string::npos)
    {
        return statusNotFound;
    }
    const std::size_t cameraEnd = findFieldEnd(url, cameraBegin, fieldSeparator);
    if (cameraEnd == std::string::npos)
    {
        return statusNotFound;
    }
    int camera = 0;
    if (!DataConverter::convert(url.substr(cameraBegin, cameraEnd - cameraBegin), camera))
    {
        return statusNotFound;
    }
    // Unlike the live form, deliberately before the rest is checked.
    objMediaUrlParam.setCameraID(camera);

    const std::size_t beginBegin = cameraEnd + 1;
    const std::size_t beginEnd = findFieldEnd(url, beginBegin, fieldSeparator);
    if (beginEnd == std::string::npos || beginEnd + 1 == url.size())
    {
        return statusNotFound;
    }
    const std::string beginText = url.substr(beginBegin, beginEnd - beginBegin);
    const std::string endText = url.substr(beginEnd + 1);
    if (!isValidNumString(beginText) || !isValidNumString(endText))
    {
        return statusNotFound;
    }
    // The digit check is the only one: times are not bounded, nor need the end follow the begin.
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
    std::string url(playbackKey);
    url += numberText(objMediaUrlParam.getCameraID());
    url += fieldSeparator;
    url += secondsText(objMediaUrlParam.getRecordBeginTime());
    url += fieldSeparator;
    url += secondsText(objMediaUrlParam.getRecordEndTime());
    return url;
}

int OrvaneMediaUrl::getThirdPlatType()
{
    return ownThirdPlatType;
}

bool OrvaneMediaUrl::isValidNumString(const std::string& text) const
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// Any text as a URL for the device's own codec, and the text's bytes as any numbers to render.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mediaurl/OrvaneMediaUrl.h"
#include "tests/fuzz/UrlOracle.h"

namespace
{

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

const UrlOracle::Verdict before{0, 11, 12, 13.0, 14.0};

void prepare(OrvaneMediaUrl& codec)
{
    codec.objMediaUrlParam.setCameraID(before.camera);
    codec.objMediaUrlParam.setStreamID(before.stream);
    codec.objMediaUrlParam.setRecordBeginTime(before.begin);
    codec.objMediaUrlParam.setRecordEndTime(before.end);
}

void requireVerdict(const OrvaneMediaUrl& codec, int result, const UrlOracle::Verdict& verdict)
{
    const MediaUrlParam& param = codec.objMediaUrlParam;
    require(result == verdict.result, "result");
    require(param.getCameraID() == verdict.camera, "camera");
    require(param.getStreamID() == verdict.stream, "stream");
    require(param.getRecordBeginTime() == verdict.begin, "begin");
    require(param.getRecordEndTime() == verdict.end, "end");
    require(param.getDeviceId().empty() && !param.getMulticastFlag(), "fields that the codec never writes");
}

void checkLive(const std::string& url)
{
    OrvaneMediaUrl codec;
    prepare(codec);
    const int result = codec.parseMediaUrl(url);
    requireVerdict(codec, result, UrlOracle::live(url, before));
    require(codec.objMediaUrlParam.getMediaUrlPrefix() == "orv/live", "live prefix");

    OrvaneMediaUrl again;
    const std::string rendered = codec.toMediaUrl();
    require(again.parseMediaUrl(rendered) == 0, "a rendered live URL is one");
    require(again.objMediaUrlParam.getCameraID() == codec.objMediaUrlParam.getCameraID(),
            "camera comes back");
    require(again.objMediaUrlParam.getStreamID() == codec.objMediaUrlParam.getStreamID(),
            "stream comes back");
    require(again.toMediaUrl() == rendered, "rendering a rendered live URL");
}

void checkPlayback(const std::string& url)
{
    OrvaneMediaUrl codec;
    prepare(codec);
    const int result = codec.parsePlaybackMediaUrl(url);
    requireVerdict(codec, result, UrlOracle::playback(url, before));
    require(codec.objMediaUrlParam.getMediaUrlPrefix() == "orv/playback", "playback prefix");

    OrvaneMediaUrl again;
    const std::string rendered = codec.toPlayBackMediaUrl();
    require(again.parsePlaybackMediaUrl(rendered) == 0, "a rendered playback URL is one");
    require(again.objMediaUrlParam.getCameraID() == codec.objMediaUrlParam.getCameraID(),
            "camera comes back");
    require(again.toPlayBackMediaUrl() == rendered, "rendering a rendered playback URL");
}

void checkMulticast(const std::string& url)
{
    OrvaneMediaUrl codec;
    prepare(codec);
    const int result = codec.parseMulticastMediaUrl(url);
    requireVerdict(codec, result, before);
    require(codec.toMulticastMediaUrl().empty(), "no multicast form");
}

/// The values of a URL to render, taken from the start of the input; missing ones are 0.
struct Numbers
{
    std::int32_t camera = 0;
    std::int32_t stream = 0;
    double begin = 0;
    double end = 0;

    Numbers(const std::uint8_t* data, std::size_t size)
    {
        take(data, size, camera);
        take(data, size, stream);
        take(data, size, begin);
        take(data, size, end);
    }

private:
    template <class Number>
    static void take(const std::uint8_t*& data, std::size_t& size, Number& number)
    {
        if (size >= sizeof number)
        {
            std::memcpy(&number, data, sizeof number);
            data += sizeof number;
            size -= sizeof number;
        }
    }
};

void checkRendering(const Numbers& numbers)
{
    OrvaneMediaUrl codec;
    codec.objMediaUrlParam.setCameraID(numbers.camera);
    codec.objMediaUrlParam.setStreamID(numbers.stream);
    codec.objMediaUrlParam.setRecordBeginTime(numbers.begin);
    codec.objMediaUrlParam.setRecordEndTime(numbers.end);

    OrvaneMediaUrl live;
    require(live.parseMediaUrl(codec.toMediaUrl()) == 0, "a live URL of any numbers");
    require(live.objMediaUrlParam.getCameraID() == numbers.camera, "any camera");
    require(live.objMediaUrlParam.getStreamID() == numbers.stream, "any stream");

    OrvaneMediaUrl playback;
    require(playback.parsePlaybackMediaUrl(codec.toPlayBackMediaUrl()) == 0, "a playback URL of any numbers");
    require(playback.objMediaUrlParam.getCameraID() == numbers.camera, "any camera of a recording");
    require(playback.objMediaUrlParam.getRecordBeginTime() == UrlOracle::rendered(numbers.begin),
            "any begin");
    require(playback.objMediaUrlParam.getRecordEndTime() == UrlOracle::rendered(numbers.end), "any end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string url(reinterpret_cast<const char*>(data), size);
    checkLive(url);
    checkPlayback(url);
    checkMulticast(url);
    checkRendering(Numbers(data, size));
    return 0;
}

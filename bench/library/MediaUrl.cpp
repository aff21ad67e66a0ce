#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <string>

#include "mediaurl/OrvaneMediaUrl.h"

namespace
{

const char request[] = "rtsp://192.0.2.10:554/orv/live/1/0";
const char requestOfCamera12[] = "rtsp://192.0.2.10:554/orv/live/12/0";

bool store(const std::smatch& match, MediaUrlParam& out)
{
    std::string prefix("orv/live");
    out.setMediaUrlPrefix(prefix);
    out.setCameraID(std::stoi(match[1].str()));
    out.setStreamID(std::stoi(match[2].str()));
    return true;
}

/// The same values out of the same text with sscanf(), as it is commonly done.
bool parseWithSscanf(const std::string& url, MediaUrlParam& out)
{
    std::string prefix("orv/live");
    out.setMediaUrlPrefix(prefix);
    const char* const key = std::strstr(url.c_str(), "orv/live/");
    int camera = 0;
    int stream = 0;
    int length = 0;
    if (key == nullptr || std::sscanf(key, "orv/live/%d/%d%n", &camera, &stream, &length) != 2 ||
        key[length] != '\0')
    {
        return false;
    }
    out.setCameraID(camera);
    out.setStreamID(stream);
    return true;
}

/// The same with a regular expression that is searched for in the text. Compiled once.
bool parseWithRegexSearch(const std::string& url, MediaUrlParam& out)
{
    static const std::regex form("orv/live/([^/]+)/(.+)");
    std::smatch match;
    return std::regex_search(url, match, form) && store(match, out);
}

/// The same with a regular expression that describes the whole text. Compiled once.
bool parseWithRegexMatch(const std::string& url, MediaUrlParam& out)
{
    static const std::regex form(".*orv/live/([^/]+)/(.+)");
    std::smatch match;
    return std::regex_match(url, match, form) && store(match, out);
}

std::string renderWithSnprintf(const MediaUrlParam& param)
{
    char text[48];
    std::snprintf(text, sizeof text, "orv/live/%d/%d", param.getCameraID(), param.getStreamID());
    return text;
}

}  // namespace

static void ParseLiveUrl(benchmark::State& state, const char* text)
{
    const std::string url(text);
    OrvaneMediaUrl codec;
    int result = 0;
    for (auto _ : state)
    {
        result |= codec.parseMediaUrl(url);
        benchmark::DoNotOptimize(codec.objMediaUrlParam);
    }
    if (result != 0)
    {
        state.SkipWithError("not parsed");
    }
}
BENCHMARK_CAPTURE(ParseLiveUrl, camera1, request);
BENCHMARK_CAPTURE(ParseLiveUrl, camera12, requestOfCamera12);

template <class Parse>
static void parseAgainAndAgain(benchmark::State& state, const Parse& parse)
{
    const std::string url(request);
    MediaUrlParam param;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(parse(url, param));
        benchmark::DoNotOptimize(param);
    }
    if (param.getCameraID() != 1)
    {
        state.SkipWithError("not parsed");
    }
}

static void ParseLiveUrlWithSscanf(benchmark::State& state)
{
    parseAgainAndAgain(state, parseWithSscanf);
}
BENCHMARK(ParseLiveUrlWithSscanf);

static void ParseLiveUrlWithRegexSearch(benchmark::State& state)
{
    parseAgainAndAgain(state, parseWithRegexSearch);
}
BENCHMARK(ParseLiveUrlWithRegexSearch);

static void ParseLiveUrlWithRegexMatch(benchmark::State& state)
{
    parseAgainAndAgain(state, parseWithRegexMatch);
}
BENCHMARK(ParseLiveUrlWithRegexMatch);

static void RenderLiveUrl(benchmark::State& state)
{
    OrvaneMediaUrl codec;
    codec.objMediaUrlParam.setCameraID(1);
    codec.objMediaUrlParam.setStreamID(0);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(codec.toMediaUrl());
    }
}
BENCHMARK(RenderLiveUrl);

static void RenderLiveUrlWithSnprintf(benchmark::State& state)
{
    MediaUrlParam param;
    param.setCameraID(1);
    param.setStreamID(0);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(renderWithSnprintf(param));
    }
}
BENCHMARK(RenderLiveUrlWithSnprintf);

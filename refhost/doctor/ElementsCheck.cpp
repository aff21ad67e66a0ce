#include "refhost/doctor/ElementsCheck.h"

#include <fmt/format.h>
#include <gst/gst.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

namespace refhost
{
namespace
{

constexpr const char* core = "libgstreamer1.0-0";
constexpr const char* base = "gstreamer1.0-plugins-base";
constexpr const char* good = "gstreamer1.0-plugins-good";
constexpr const char* bad = "gstreamer1.0-plugins-bad";

/// The package of an element.
const char* packageOf(const std::string& element)
{
    static const std::map<std::string_view, const char*> packages{{"aacparse", good},
                                                                  {"alawenc", good},
                                                                  {"audiobuffersplit", bad},
                                                                  {"audioconvert", base},
                                                                  {"audioresample", base},
                                                                  {"audiotestsrc", base},
                                                                  {"appsink", base},
                                                                  {"avenc_aac", "gstreamer1.0-libav"},
                                                                  {"clockoverlay", "gstreamer1.0-x"},
                                                                  {"clocksync", core},
                                                                  {"decodebin", base},
                                                                  {"h264parse", bad},
                                                                  {"h265parse", bad},
                                                                  {"jpegenc", good},
                                                                  {"mulawenc", good},
                                                                  {"opusenc", base},
                                                                  {"opusparse", bad},
                                                                  {"queue", core},
                                                                  {"rtph264pay", good},
                                                                  {"rtph265pay", good},
                                                                  {"rtpjpegpay", good},
                                                                  {"rtpmp4gpay", good},
                                                                  {"rtpopuspay", good},
                                                                  {"rtppcmapay", good},
                                                                  {"rtppcmupay", good},
                                                                  {"rtspsrc", good},
                                                                  {"tee", core},
                                                                  {"v4l2src", good},
                                                                  {"videoconvert", base},
                                                                  {"videorate", base},
                                                                  {"videoscale", base},
                                                                  {"videotestsrc", base},
                                                                  {"x264enc", "gstreamer1.0-plugins-ugly"},
                                                                  {"x265enc", bad}};
    const auto found = packages.find(element);
    return found == packages.end() ? "gstreamer1.0-plugins-*" : found->second;
}

/// The elements of a launch line: the first word of each part that is no caps.
void addElements(const char* line, std::set<std::string>& elements)
{
    std::istringstream parts(line == nullptr ? "" : line);
    for (std::string part; std::getline(parts, part, '!');)
    {
        std::istringstream words(part);
        std::string first;
        if (words >> first && first.find('/') == std::string::npos)
        {
            elements.insert(first);
        }
    }
}

void addEncoding(const StreamConfig& stream, std::set<std::string>& elements)
{
    for (const Codec codec : stream.codecs())
    {
        const CodecInfo& info = infoOf(codec);
        addElements(info.encoder, elements);
        addElements(info.parser, elements);
        addElements(info.payloader, elements);
        addElements(info.kind == MediaKind::video ? "videoconvert ! videoscale ! videorate"
                                                  : "audioconvert ! audioresample ! audiobuffersplit",
                    elements);
    }
    addElements("queue ! tee ! appsink ! clocksync", elements);
}

void addNeeded(const StreamConfig& stream, std::set<std::string>& elements)
{
    switch (stream.source.kind)
    {
        case SourceConfig::Kind::synthetic:
            addEncoding(stream, elements);
            addElements("videotestsrc ! clockoverlay", elements);
            addElements(stream.audioCodec ? "audiotestsrc" : "", elements);
            break;
        case SourceConfig::Kind::v4l2:
            addEncoding(stream, elements);
            addElements("v4l2src ! decodebin", elements);
            break;
        case SourceConfig::Kind::rtspGst:
            addElements("rtspsrc ! queue ! tee ! appsink", elements);
            break;
        case SourceConfig::Kind::file:
        case SourceConfig::Kind::rtsp:
        case SourceConfig::Kind::launch:
            break;  // what they need depends on their media: connecting to them shows it
    }
}

}  // namespace

ElementsCheck::ElementsCheck(const ServerConfig& config) : config_(config) {}

std::string ElementsCheck::subject() const
{
    return "GStreamer";
}

std::vector<Finding> ElementsCheck::run()
{
    std::set<std::string> elements;
    for (const CameraConfig& camera : config_.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            addNeeded(stream, elements);
        }
    }
    std::vector<Finding> found;
    std::size_t missing = 0;
    for (const std::string& element : elements)
    {
        const GstObjectPtr<GstElementFactory> factory(gst_element_factory_find(element.c_str()));
        if (factory == nullptr)
        {
            ++missing;
            found.push_back(Finding::failure(fmt::format("the element {} is missing", element),
                                             fmt::format("apt-get install {}", packageOf(element))));
        }
    }
    if (missing == 0)
    {
        found.push_back(Finding::good(elements.empty()
                                          ? "no source needs an element of its own"
                                          : fmt::format("all {} elements are installed", elements.size())));
    }
    return found;
}

}  // namespace refhost

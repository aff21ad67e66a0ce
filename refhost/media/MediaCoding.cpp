#include "refhost/media/MediaCoding.h"

#include <fmt/format.h>

#include <utility>

namespace refhost
{
namespace
{

constexpr int videoPayloadType = 96;
constexpr int aacPayloadType = 97;

}  // namespace

bool isVideo(MediaCoding coding)
{
    return coding == MediaCoding::h264 || coding == MediaCoding::h265;
}

const char* trackIdOf(MediaCoding coding)
{
    return isVideo(coding) ? "trackID=0" : "trackID=1";
}

std::optional<MediaCoding> codingNamed(const std::string& name)
{
    if (name == "h264")
    {
        return MediaCoding::h264;
    }
    if (name == "h265")
    {
        return MediaCoding::h265;
    }
    if (name == "aac")
    {
        return MediaCoding::aac;
    }
    if (name == "pcmu")
    {
        return MediaCoding::pcmu;
    }
    if (name == "pcma")
    {
        return MediaCoding::pcma;
    }
    return std::nullopt;
}

std::optional<MediaCoding> codingEncodedAs(const std::string& encodingName)
{
    for (const auto& [name, coding] :
         {std::pair("H264", MediaCoding::h264), std::pair("H265", MediaCoding::h265),
          std::pair("MPEG4-GENERIC", MediaCoding::aac), std::pair("PCMU", MediaCoding::pcmu),
          std::pair("PCMA", MediaCoding::pcma)})
    {
        if (encodingName == name)
        {
            return coding;
        }
    }
    return std::nullopt;
}

std::optional<MediaCoding> codingOf(const GstCaps* caps)
{
    if (caps == nullptr || gst_caps_get_size(caps) == 0)
    {
        return std::nullopt;
    }
    const GstStructure* fields = gst_caps_get_structure(caps, 0);
    const std::string name = gst_structure_get_name(fields);
    if (name == "video/x-h264")
    {
        return MediaCoding::h264;
    }
    if (name == "video/x-h265")
    {
        return MediaCoding::h265;
    }
    if (name == "audio/mpeg")
    {
        int version = 0;
        gst_structure_get_int(fields, "mpegversion", &version);
        return version == 4 ? std::optional<MediaCoding>(MediaCoding::aac) : std::nullopt;
    }
    if (name == "audio/x-mulaw")
    {
        return MediaCoding::pcmu;
    }
    if (name == "audio/x-alaw")
    {
        return MediaCoding::pcma;
    }
    return std::nullopt;
}

GstValuePtr<GstCaps> acceptableCaps()
{
    return GstValuePtr<GstCaps>(gst_caps_from_string(
        "video/x-h264; video/x-h265; audio/mpeg,mpegversion=(int)4,stream-format=(string){raw,adts}; "
        "audio/x-mulaw,rate=(int)8000,channels=(int)1; audio/x-alaw,rate=(int)8000,channels=(int)1; "
        "video/x-raw; audio/x-raw"));
}

std::string parserLine(MediaCoding coding)
{
    switch (coding)
    {
        case MediaCoding::h264:
            return "h264parse config-interval=-1 ! capsfilter "
                   "caps=video/x-h264,stream-format=avc,alignment=au";
        case MediaCoding::h265:
            return "h265parse config-interval=-1 ! capsfilter "
                   "caps=video/x-h265,stream-format=hvc1,alignment=au";
        case MediaCoding::aac:
            return "aacparse ! capsfilter caps=audio/mpeg,mpegversion=4,stream-format=raw";
        case MediaCoding::pcmu:
        case MediaCoding::pcma:
            break;
    }
    return "identity silent=true";
}

std::string payloaderLine(MediaCoding coding)
{
    switch (coding)
    {
        case MediaCoding::h264:
            return fmt::format("rtph264pay config-interval=0 aggregate-mode=zero-latency pt={}",
                               videoPayloadType);
        case MediaCoding::h265:
            return fmt::format("rtph265pay config-interval=0 aggregate-mode=zero-latency pt={}",
                               videoPayloadType);
        case MediaCoding::aac:
            return fmt::format("rtpmp4gpay pt={}", aacPayloadType);
        case MediaCoding::pcmu:
            return "rtppcmupay max-ptime=20000000";
        case MediaCoding::pcma:
            break;
    }
    return "rtppcmapay max-ptime=20000000";
}

AccessUnitBuilder::Coding unitCoding(MediaCoding coding)
{
    switch (coding)
    {
        case MediaCoding::h264:
            return AccessUnitBuilder::Coding::h264;
        case MediaCoding::h265:
            return AccessUnitBuilder::Coding::h265;
        case MediaCoding::aac:
            return AccessUnitBuilder::Coding::framedAudio;
        case MediaCoding::pcmu:
        case MediaCoding::pcma:
            break;
    }
    return AccessUnitBuilder::Coding::plainAudio;
}

}  // namespace refhost

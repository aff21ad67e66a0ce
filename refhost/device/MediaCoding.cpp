#include "refhost/device/MediaCoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace refhost
{
namespace
{

constexpr int aacBitRate = 64;  // kbit/s
constexpr int pcmBitRate = 64;  // kbit/s
constexpr int videoPayloadType = 96;
constexpr int aacPayloadType = 97;

/// More than one encoder thread only where one core would not do: each further thread delays by a picture.
int encoderThreads(const StreamConfig& config)
{
    constexpr double onePictureRate = 1920.0 * 1080 * 30;
    return static_cast<double>(config.width) * config.height * config.frameRate > onePictureRate ? 4 : 1;
}

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

std::string bareVideoEncoderLine(MediaCoding coding, const StreamConfig& config)
{
    if (coding == MediaCoding::h265)
    {
        return fmt::format(
            "x265enc tune=zerolatency speed-preset=ultrafast bitrate={} key-int-max={} "
            "option-string=\"scenecut=0:bframes=0:pools=1:frame-threads=1:log-level=0:"
            "vbv-maxrate={}:vbv-bufsize={}\"",
            config.bitRate, config.gop, config.bitRate, config.bitRate * 2 / 5);
    }
    // One slice a picture: its packets are one run of equal size. The small buffer keeps key pictures small.
    return fmt::format(
        "x264enc tune=zerolatency speed-preset=superfast bitrate={} key-int-max={} threads={} "
        "sliced-threads=false aud=false trellis=false vbv-buf-capacity=400 option-string=\"scenecut=0\"",
        config.bitRate, config.gop, encoderThreads(config));
}

std::string videoEncoderLine(MediaCoding coding, const StreamConfig& config, const GstCaps* raw)
{
    StreamConfig encoded = config;
    int numerator = config.frameRate;
    int denominator = 1;
    int rawNumerator = 0;
    int rawDenominator = 0;
    const GstStructure* fields = gst_caps_get_structure(raw, 0);
    if (gst_structure_get_fraction(fields, "framerate", &rawNumerator, &rawDenominator) && rawNumerator > 0 &&
        rawDenominator > 0 &&
        gst_util_fraction_compare(rawNumerator, rawDenominator, config.frameRate, 1) < 0)
    {
        numerator = rawNumerator;
        denominator = rawDenominator;
        const double share = static_cast<double>(numerator) / denominator / config.frameRate;
        encoded.gop = std::max(1, static_cast<int>(std::lround(config.gop * share)));
    }
    return fmt::format(
        "videoconvert ! videoscale ! videorate ! "
        "video/x-raw,format=I420,width={},height={},framerate={}/{},pixel-aspect-ratio=1/1 ! {}",
        config.width, config.height, numerator, denominator, bareVideoEncoderLine(coding, encoded));
}

std::string audioEncoderLine(MediaCoding coding)
{
    if (coding == MediaCoding::aac)
    {
        return fmt::format(
            "audioconvert ! audioresample ! audio/x-raw,rate=16000,channels=1 ! avenc_aac bitrate={}",
            aacBitRate * 1000);
    }
    // Packets of 20 ms, whatever the size of the blocks that come in.
    return fmt::format(
        "audioconvert ! audioresample ! audio/x-raw,format=S16LE,layout=interleaved,rate=8000,channels=1 ! "
        "audiobuffersplit output-buffer-duration=1/50 ! {}",
        coding == MediaCoding::pcmu ? "mulawenc" : "alawenc");
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

int encodedBitRate(MediaCoding coding, const StreamConfig& config)
{
    if (isVideo(coding))
    {
        return config.bitRate;
    }
    return coding == MediaCoding::aac ? aacBitRate : pcmBitRate;
}

}  // namespace refhost

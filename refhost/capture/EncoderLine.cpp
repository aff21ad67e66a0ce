#include "refhost/capture/EncoderLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace refhost
{
namespace
{

constexpr int aacBitRate = 64;  // kbit/s
constexpr int pcmBitRate = 64;  // kbit/s

/// More than one encoder thread only where one core would not do: each further thread delays by a picture.
int encoderThreads(const StreamConfig& config)
{
    constexpr double onePictureRate = 1920.0 * 1080 * 30;
    return static_cast<double>(config.width) * config.height * config.frameRate > onePictureRate ? 4 : 1;
}

}  // namespace

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

int encodedBitRate(MediaCoding coding, const StreamConfig& config)
{
    if (isVideo(coding))
    {
        return config.bitRate;
    }
    return coding == MediaCoding::aac ? aacBitRate : pcmBitRate;
}

}  // namespace refhost

#include "refhost/capture/EncoderLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace refhost
{
namespace
{

/// One encoder thread unless one core cannot keep up: each further thread delays by a frame.
int encoderThreads(const StreamConfig& config)
{
    constexpr double oneFrameRate = 1920.0 * 1080 * 30;
    return static_cast<double>(config.width) * config.height * config.frameRate > oneFrameRate ? 4 : 1;
}

}  // namespace

std::string bareVideoEncoderLine(Codec codec, const StreamConfig& config)
{
    return fmt::format(fmt::runtime(infoOf(codec).encoder), fmt::arg("bitRate", config.bitRate),
                       fmt::arg("bitRateBuffer", config.bitRate * 2 / 5), fmt::arg("gop", config.gop),
                       fmt::arg("threads", encoderThreads(config)));
}

std::string videoEncoderLine(Codec codec, const StreamConfig& config, const GstCaps* raw)
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
        config.width, config.height, numerator, denominator, bareVideoEncoderLine(codec, encoded));
}

std::string audioEncoderLine(Codec codec)
{
    return fmt::format("audioconvert ! audioresample ! {}", infoOf(codec).encoder);
}

int encodedBitRate(Codec codec, const StreamConfig& config)
{
    return infoOf(codec).encodedBitRate.value_or(config.bitRate);
}

}  // namespace refhost

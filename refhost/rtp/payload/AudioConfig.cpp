#include "refhost/rtp/payload/AudioConfig.h"

#include <array>

#include "refhost/rtp/payload/PlainBits.h"

namespace refhost
{
namespace
{

constexpr std::array<std::uint32_t, 13> rates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                              22050, 16000, 12000, 11025, 8000,  7350};

std::uint32_t objectType(PlainBits& bits)
{
    constexpr std::uint32_t escape = 31;
    const std::uint32_t type = bits.bits(5);
    return type == escape ? 32 + bits.bits(6) : type;
}

std::uint32_t rate(PlainBits& bits)
{
    constexpr std::uint32_t spelledOut = 15;
    const std::uint32_t index = bits.bits(4);
    return index == spelledOut ? bits.bits(24) : index < rates.size() ? rates.at(index) : 0;
}

/// Reads program_config_element() (4.4.1.1) as far as it describes the channels.
/// \returns 0 when there are more elements than this reads
int channelsOfElements(PlainBits& bits, std::size_t start)
{
    bits.skip(4 + 2 + 4);
    const std::uint32_t front = bits.bits(4);
    const std::uint32_t side = bits.bits(4);
    const std::uint32_t back = bits.bits(4);
    const std::uint32_t low = bits.bits(2);
    const std::uint32_t data = bits.bits(3);
    const std::uint32_t coupling = bits.bits(4);
    for (int mixdown = 0; mixdown < 2; ++mixdown)
    {
        bits.skip(bits.bits(1) != 0 ? 4 : 0);
    }
    bits.skip(bits.bits(1) != 0 ? 3 : 0);
    std::uint32_t channels = low;
    for (std::uint32_t i = 0; i < front + side + back; ++i)
    {
        channels += 1 + bits.bits(1);
        bits.skip(4);
    }
    bits.skip(4 * (low + data) + 5 * coupling);
    // A comment stands on whole bytes, counted from the start of the config.
    bits.skip((8 - (bits.position() - start) % 8) % 8);
    bits.skip(std::size_t{8} * bits.bits(8));
    return static_cast<int>(channels);
}

/// Steps over what says that a band is replicated where older decoders do not look for it; it may be missing.
void skipExtension(PlainBits& bits)
{
    constexpr std::uint32_t start = 0x2b7;
    constexpr std::uint32_t stereoStart = 0x548;
    constexpr std::size_t minSize = 16;
    PlainBits ahead = bits;
    if (bits.left() < minSize || ahead.bits(11) != start)
    {
        return;
    }
    objectType(ahead);
    if (ahead.bits(1) != 0)
    {
        rate(ahead);
        PlainBits further = ahead;
        if (further.left() >= 12 && further.bits(11) == stereoStart)
        {
            further.skip(1);
            ahead = further;
        }
    }
    bits = ahead;
}

}  // namespace

std::optional<AudioConfig> AudioConfig::read(ByteSpan bytes, std::size_t start)
{
    constexpr std::uint32_t main = 1;
    constexpr std::uint32_t predicting = 4;
    constexpr std::uint32_t spectralReplication = 5;
    constexpr std::uint32_t parametricStereo = 29;
    constexpr int maxChannels = 8;
    PlainBits bits(bytes, start);
    AudioConfig config;
    std::uint32_t type = objectType(bits);
    config.sampleRate = rate(bits);
    const std::uint32_t layout = bits.bits(4);
    if (type == spectralReplication || type == parametricStereo)
    {
        rate(bits);
        type = objectType(bits);
    }
    if (type < main || type > predicting)
    {
        return std::nullopt;
    }
    config.frameSamples = bits.bits(1) != 0 ? 960 : 1024;
    bits.skip(bits.bits(1) != 0 ? 14 : 0);  // coreCoderDelay
    bits.skip(1);                           // extensionFlag: 0 for these types
    config.channels = layout == 0   ? channelsOfElements(bits, start)
                      : layout == 7 ? maxChannels
                                    : static_cast<int>(layout);
    skipExtension(bits);
    config.bits = bits.position() - start;
    const bool makesSense =
        !bits.failed() && config.sampleRate > 0 && config.channels > 0 && config.channels <= maxChannels;
    return makesSense ? std::make_optional(config) : std::nullopt;
}

}  // namespace refhost

#include "refhost/rtp/payload/LatmConfig.h"

#include "refhost/rtp/payload/AudioConfig.h"
#include "refhost/rtp/payload/PlainBits.h"

namespace refhost
{
namespace
{

/// LatmGetValue().
std::size_t value(PlainBits& bits)
{
    const unsigned bytes = bits.bits(2) + 1;
    return bits.bits(8 * bytes);
}

std::vector<std::uint8_t> copyOf(ByteSpan bytes, std::size_t start, std::size_t count)
{
    PlainBits bits(bytes, start);
    std::vector<std::uint8_t> copy;
    for (; count >= 8; count -= 8)
    {
        copy.push_back(static_cast<std::uint8_t>(bits.bits(8)));
    }
    if (count > 0)
    {
        copy.push_back(static_cast<std::uint8_t>(bits.bits(static_cast<unsigned>(count)) << (8 - count)));
    }
    return copy;
}

}  // namespace

std::optional<LatmConfig> LatmConfig::read(ByteSpan bytes)
{
    PlainBits bits(bytes);
    LatmConfig config;
    const bool version1 = bits.bits(1) != 0;
    if (version1)
    {
        if (bits.bits(1) != 0)  // audioMuxVersionA: for the future
        {
            return std::nullopt;
        }
        value(bits);  // taraBufferFullness
    }
    const bool sameTiming = bits.bits(1) != 0;
    config.units = bits.bits(6) + 1;
    const std::uint32_t programs = bits.bits(4);
    const std::uint32_t layers = bits.bits(3);
    if (!sameTiming || programs != 0 || layers != 0)
    {
        return std::nullopt;
    }
    const std::size_t announced = version1 ? value(bits) : 0;
    const std::size_t start = bits.position();
    const auto audio = AudioConfig::read(bytes, start);
    if (!audio || bits.failed())
    {
        return std::nullopt;
    }
    const std::size_t size = version1 ? announced : audio->bits;
    if (size < audio->bits || size > bits.left())
    {
        return std::nullopt;
    }
    config.audioConfig = copyOf(bytes, start, size);
    bits.skip(size);
    // Some senders end here; then it reads as 0, as it is of frames of varying size.
    const std::uint32_t frameLengthType = bits.bits(3);
    return frameLengthType == 0 ? std::make_optional(config) : std::nullopt;
}

}  // namespace refhost

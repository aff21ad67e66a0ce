#include "refhost/talkback/G711Decoder.h"

namespace refhost
{
namespace
{

constexpr int signBit = 0x80;

}  // namespace

G711Decoder::Table G711Decoder::muLaw()
{
    // Segments begin 33 quarter steps below zero, so that the smallest steps lie around it.
    constexpr int bias = 0x84;
    Table table{};
    for (int code = 0; code < 256; ++code)
    {
        const int bits = ~code & 0xff;
        const int magnitude = ((((bits & 0x0f) << 3) + bias) << ((bits & 0x70) >> 4)) - bias;
        table[static_cast<std::size_t>(code)] =
            static_cast<std::int16_t>((bits & signBit) != 0 ? -magnitude : magnitude);
    }
    return table;
}

G711Decoder::Table G711Decoder::aLaw()
{
    // On the wire every other bit is inverted.
    constexpr int inverted = 0x55;
    Table table{};
    for (int code = 0; code < 256; ++code)
    {
        const int bits = code ^ inverted;
        const int segment = (bits & 0x70) >> 4;
        const int step = ((bits & 0x0f) << 4) + 8;
        const int magnitude = segment == 0 ? step : (step + 0x100) << (segment - 1);
        table[static_cast<std::size_t>(code)] =
            static_cast<std::int16_t>((bits & signBit) != 0 ? magnitude : -magnitude);
    }
    return table;
}

G711Decoder::G711Decoder(Law law, const PcmFormat& format)
    : format_(format), table_(law == Law::mu ? muLaw() : aLaw())
{
}

bool G711Decoder::decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples)
{
    samples.clear();
    if (size == 0 || size % static_cast<std::size_t>(format_.channels) != 0)
    {
        return false;
    }
    samples.reserve(size);
    for (std::size_t i = 0; i < size; ++i)
    {
        samples.push_back(table_[frame[i]]);
    }
    return true;
}

}  // namespace refhost

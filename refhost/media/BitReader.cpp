#include "refhost/media/BitReader.h"

namespace refhost
{

BitReader::BitReader(const std::uint8_t* data, std::size_t size)
{
    constexpr std::uint8_t emulationPrevention = 3;
    bytes_.reserve(size);
    int zeros = 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        if (zeros >= 2 && data[i] == emulationPrevention)
        {
            zeros = 0;
            continue;
        }
        zeros = data[i] == 0 ? zeros + 1 : 0;
        bytes_.push_back(data[i]);
    }
}

std::uint32_t BitReader::bits(unsigned count)
{
    std::uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i, ++position_)
    {
        value <<= 1U;
        if (position_ / 8 >= bytes_.size())
        {
            failed_ = true;
            continue;
        }
        value |= bytes_[position_ / 8] >> (7U - position_ % 8) & 1U;
    }
    return value;
}

std::uint32_t BitReader::ue()
{
    constexpr unsigned maxZeros = 31;
    unsigned zeros = 0;
    while (!failed_ && !flag())
    {
        ++zeros;
    }
    if (failed_ || zeros > maxZeros)
    {
        failed_ = true;
        return 0;
    }
    return (1U << zeros) - 1U + bits(zeros);
}

std::int32_t BitReader::se()
{
    const std::uint32_t code = ue();
    const auto half = static_cast<std::int32_t>(code / 2);
    return code % 2 == 0 ? -half : half + 1;
}

void BitReader::skip(std::size_t count)
{
    position_ += count;
    failed_ = failed_ || position_ > bytes_.size() * 8;
}

}  // namespace refhost

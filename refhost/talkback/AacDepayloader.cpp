#include "refhost/talkback/AacDepayloader.h"

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr std::uint32_t ticksPerUnit = 1024;
constexpr std::size_t headerBits = 16;
constexpr std::size_t headerSize = 2;

std::size_t unitSizeOf(const std::uint8_t* header)
{
    return static_cast<std::size_t>(readBig16(header) >> 3U);
}

/// Index of the first unit, index delta of the others: anything but 0 is interleaving, which was not offered.
bool isInOrder(const std::uint8_t* header)
{
    return (header[1] & 7U) == 0;
}

}  // namespace

bool AacDepayloader::read(const std::uint8_t* payload, std::size_t size, std::uint32_t timestamp, bool marker,
                          std::vector<Frame>& frames)
{
    frames.clear();
    if (size < 2)
    {
        reset();
        return false;
    }
    const std::size_t bits = readBig16(payload);
    const std::size_t count = bits / headerBits;
    const std::size_t headers = count * headerSize;
    if (count == 0 || bits % headerBits != 0 || size <= 2 + headers)
    {
        reset();
        return false;
    }
    const std::uint8_t* const data = payload + 2 + headers;
    const std::size_t dataSize = size - 2 - headers;
    const std::size_t first = unitSizeOf(payload + 2);
    const bool fragment = count == 1 && first > dataSize;
    const bool well =
        isInOrder(payload + 2) && (fragment ? readFragment(first, data, dataSize, timestamp, marker, frames)
                                            : readWhole(payload + 2, count, data, dataSize, frames));
    if (!well)
    {
        frames.clear();
        reset();
    }
    return well;
}

bool AacDepayloader::readWhole(const std::uint8_t* headers, std::size_t count, const std::uint8_t* data,
                               std::size_t size, std::vector<Frame>& frames)
{
    reset();
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::uint8_t* const header = headers + i * headerSize;
        const std::size_t unit = unitSizeOf(header);
        if (unit == 0 || unit > size || !isInOrder(header))
        {
            return false;
        }
        frames.push_back({data, unit, ticksPerUnit});
        data += unit;
        size -= unit;
    }
    return size == 0;
}

/// Every fragment has the size of the whole unit (RFC 3640, section 3.2.3); the last one has the marker.
bool AacDepayloader::readFragment(std::size_t unitSize, const std::uint8_t* data, std::size_t size,
                                  std::uint32_t timestamp, bool marker, std::vector<Frame>& frames)
{
    if (unitSize_ != unitSize || unitTimestamp_ != timestamp)
    {
        unit_.clear();
        unitSize_ = unitSize;
        unitTimestamp_ = timestamp;
    }
    if (unit_.size() + size > unitSize)
    {
        return false;
    }
    unit_.insert(unit_.end(), data, data + size);
    if (unit_.size() == unitSize)
    {
        frames.push_back({unit_.data(), unit_.size(), ticksPerUnit});
        unitSize_ = 0;
        return true;
    }
    return !marker;
}

void AacDepayloader::reset()
{
    unit_.clear();
    unitSize_ = 0;
}

}  // namespace refhost

#include "bench/canned/CannedMedia.h"

namespace rtspcanned
{
namespace
{

constexpr std::size_t framingSize = 4;

void write(std::uint8_t* at, std::uint32_t value, std::size_t bytes)
{
    for (std::size_t i = bytes; i-- > 0; value >>= 8)
    {
        at[i] = static_cast<std::uint8_t>(value);
    }
}

}  // namespace

void CannedUnit::append(const std::uint8_t* packet, std::size_t size)
{
    packets.push_back({datagrams.size(), size});
    const std::uint8_t framing[framingSize] = {'$', 0, static_cast<std::uint8_t>(size >> 8),
                                               static_cast<std::uint8_t>(size)};
    framed.insert(framed.end(), framing, framing + framingSize);
    framed.insert(framed.end(), packet, packet + size);
    datagrams.insert(datagrams.end(), packet, packet + size);
}

void CannedUnit::stamp(std::uint16_t sequence, std::uint32_t timestamp)
{
    for (std::size_t i = 0; i < packets.size(); ++i)
    {
        const std::size_t inFramed = packets[i].offset + framingSize * (i + 1);
        for (std::uint8_t* header : {&datagrams[packets[i].offset], &framed[inFramed]})
        {
            write(header + 2, sequence, 2);
            write(header + 4, timestamp, 4);
        }
        ++sequence;
    }
}

}  // namespace rtspcanned

#include "refhost/media/AccessUnit.h"

namespace refhost
{

void AccessUnit::append(const std::uint8_t* packet, std::size_t size)
{
    bytes.resize(bytes.size() + framingSize);
    packets.push_back({static_cast<std::uint32_t>(bytes.size()), static_cast<std::uint32_t>(size)});
    bytes.insert(bytes.end(), packet, packet + size);
    payloadBytes += static_cast<std::uint32_t>(size - rtpHeaderSize);
}

std::uint32_t AccessUnit::headerSize(std::size_t packet) const
{
    constexpr std::uint8_t extensionBit = 0x10;
    const std::uint8_t* at = bytes.data() + packets[packet].offset;
    if ((at[0] & extensionBit) == 0)
    {
        return rtpHeaderSize;
    }
    // The extension's four-byte header holds the count of 32-bit words that follow (RFC 3550, section 5.3.1).
    return static_cast<std::uint32_t>(rtpHeaderSize) + 4 + 4 * (at[14] * 256U + at[15]);
}

}  // namespace refhost

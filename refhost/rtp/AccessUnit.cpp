#include "refhost/rtp/AccessUnit.h"

namespace refhost
{

void AccessUnit::append(const std::uint8_t* packet, std::size_t size)
{
    bytes.resize(bytes.size() + framingSize);
    packets.push_back({static_cast<std::uint32_t>(bytes.size()), static_cast<std::uint32_t>(size)});
    bytes.insert(bytes.end(), packet, packet + size);
    payloadBytes += static_cast<std::uint32_t>(size - rtpHeaderSize);
}

}  // namespace refhost

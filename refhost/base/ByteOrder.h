#pragma once

#include <cstdint>

namespace refhost
{

/// Two and four bytes of a packet as numbers, most significant byte first.
inline std::uint16_t readBig16(const std::uint8_t* at)
{
    return static_cast<std::uint16_t>(at[0] << 8U | at[1]);
}

inline std::uint32_t readBig32(const std::uint8_t* at)
{
    return static_cast<std::uint32_t>(at[0]) << 24U | static_cast<std::uint32_t>(at[1]) << 16U |
           static_cast<std::uint32_t>(at[2]) << 8U | at[3];
}

}  // namespace refhost

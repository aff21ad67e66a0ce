#pragma once

#include <cstdint>

namespace refhost
{

// Integers in the bytes of packets and files. `at` need not be aligned.

/// Most significant byte first: network byte order.
inline std::uint16_t readBig16(const std::uint8_t* at)
{
    return static_cast<std::uint16_t>(at[0] << 8U | at[1]);
}

inline std::uint32_t readBig32(const std::uint8_t* at)
{
    return static_cast<std::uint32_t>(at[0]) << 24U | static_cast<std::uint32_t>(at[1]) << 16U |
           static_cast<std::uint32_t>(at[2]) << 8U | at[3];
}

inline void writeBig16(std::uint8_t* at, std::uint16_t value)
{
    at[0] = static_cast<std::uint8_t>(value >> 8U);
    at[1] = static_cast<std::uint8_t>(value);
}

inline void writeBig32(std::uint8_t* at, std::uint32_t value)
{
    at[0] = static_cast<std::uint8_t>(value >> 24U);
    at[1] = static_cast<std::uint8_t>(value >> 16U);
    at[2] = static_cast<std::uint8_t>(value >> 8U);
    at[3] = static_cast<std::uint8_t>(value);
}

/// Least significant byte first, as in WAV files.
inline void writeLittle16(std::uint8_t* at, std::uint16_t value)
{
    at[0] = static_cast<std::uint8_t>(value);
    at[1] = static_cast<std::uint8_t>(value >> 8U);
}

inline void writeLittle32(std::uint8_t* at, std::uint32_t value)
{
    at[0] = static_cast<std::uint8_t>(value);
    at[1] = static_cast<std::uint8_t>(value >> 8U);
    at[2] = static_cast<std::uint8_t>(value >> 16U);
    at[3] = static_cast<std::uint8_t>(value >> 24U);
}

}  // namespace refhost

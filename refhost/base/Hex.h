#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// Two lower-case digits.
void appendHex8(std::string& out, std::uint8_t number);
/// Eight upper-case digits.
void appendHex32(std::string& out, std::uint32_t number);
/// Sixteen upper-case digits.
void appendHex64(std::string& out, std::uint64_t number);

/// Whether every character is a hexadecimal digit of either case; true for an empty text.
bool isHex(std::string_view text);

/// Parses one or more hexadecimal digits of either case.
/// \returns nothing for other texts and for numbers of more than 64 bits
std::optional<std::uint64_t> parseHex(std::string_view text);

/// Decodes pairs of hexadecimal digits to bytes. \returns nothing for other texts
std::optional<std::string> bytesOfHex(std::string_view text);

}  // namespace refhost

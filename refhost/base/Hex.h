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

/// Nothing but hexadecimal digits of either case; also an empty text.
bool isHex(std::string_view text);

/// The number that one or more digits of either case are; nothing for another text, and for one of more than
/// 64 bits.
std::optional<std::uint64_t> parseHex(std::string_view text);

/// The bytes that pairs of digits are; nothing for another text.
std::optional<std::string> bytesOfHex(std::string_view text);

}  // namespace refhost

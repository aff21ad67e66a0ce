#include "refhost/base/Hex.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace refhost
{
namespace
{

std::optional<unsigned> valueOf(char digit)
{
    if (digit >= '0' && digit <= '9')
    {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f')
    {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F')
    {
        return digit - 'A' + 10;
    }
    return std::nullopt;
}

}  // namespace

void appendHex8(std::string& out, std::uint8_t number)
{
    constexpr char digits[] = "0123456789abcdef";
    out += digits[number >> 4U];
    out += digits[number & 15U];
}

void appendHex32(std::string& out, std::uint32_t number)
{
    constexpr char digits[] = "0123456789ABCDEF";
    for (int shift = 28; shift >= 0; shift -= 4)
    {
        out += digits[number >> shift & 15U];
    }
}

void appendHex64(std::string& out, std::uint64_t number)
{
    appendHex32(out, static_cast<std::uint32_t>(number >> 32U));
    appendHex32(out, static_cast<std::uint32_t>(number));
}

bool isHex(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return valueOf(c).has_value(); });
}

std::optional<std::uint64_t> parseHex(std::string_view text)
{
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, 16);
    return error == std::errc() && stop == end ? std::optional<std::uint64_t>(number) : std::nullopt;
}

std::optional<std::string> bytesOfHex(std::string_view text)
{
    if (text.size() % 2 != 0)
    {
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2)
    {
        const auto high = valueOf(text[i]);
        const auto low = valueOf(text[i + 1]);
        if (!high || !low)
        {
            return std::nullopt;
        }
        bytes += static_cast<char>(*high << 4U | *low);
    }
    return bytes;
}

}  // namespace refhost

#include "refhost/base/Base64.h"

namespace refhost
{
namespace
{

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned bitsOfDigit = 6;

}  // namespace

std::string base64Of(const std::uint8_t* data, std::size_t size)
{
    std::string text;
    text.reserve((size + 2) / 3 * 4);
    for (std::size_t i = 0; i < size; i += 3)
    {
        const std::size_t count = size - i < 3 ? size - i : 3;
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j)
        {
            group = group << 8U | (j < count ? data[i + j] : 0U);
        }
        for (std::size_t j = 0; j < 4; ++j)
        {
            text += j <= count ? alphabet[group >> (18 - bitsOfDigit * j) & 0x3fU] : '=';
        }
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> bytesOfBase64(std::string_view text)
{
    for (int i = 0; i < 2 && !text.empty() && text.back() == '='; ++i)
    {
        text.remove_suffix(1);
    }
    if (text.size() % 4 == 1)
    {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() * 3 / 4);
    std::uint32_t group = 0;
    unsigned bits = 0;
    for (const char digit : text)
    {
        const std::size_t value = alphabet.find(digit);
        if (value == std::string_view::npos)
        {
            return std::nullopt;
        }
        group = (group << bitsOfDigit | static_cast<std::uint32_t>(value)) & 0xffffU;
        bits += bitsOfDigit;
        if (bits >= 8)
        {
            bits -= 8;
            bytes.push_back(static_cast<std::uint8_t>(group >> bits));
        }
    }
    return bytes;
}

}  // namespace refhost

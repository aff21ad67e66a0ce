#include "refhost/net/tunnel/Base64Decoder.h"

#include <array>
#include <cstddef>

namespace refhost
{
namespace
{

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned bitsOfDigit = 6;
constexpr unsigned digitsOfGroup = 4;
constexpr std::uint8_t none = 0xff;

constexpr std::array<std::uint8_t, 256> makeValues()
{
    std::array<std::uint8_t, 256> values{};
    for (std::uint8_t& value : values)
    {
        value = none;
    }
    for (std::size_t i = 0; i < alphabet.size(); ++i)
    {
        values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}

constexpr std::array<std::uint8_t, 256> values = makeValues();

void append(std::string& out, std::uint32_t group, unsigned bytes)
{
    for (unsigned i = 0; i < bytes; ++i)
    {
        out += static_cast<char>(group >> (16U - 8U * i) & 0xffU);
    }
}

}  // namespace

bool Base64Decoder::decode(std::string_view text, std::string& out)
{
    for (const char c : text)
    {
        if (failed_ || !add(c, out))
        {
            failed_ = true;
            return false;
        }
    }
    return !failed_;
}

bool Base64Decoder::add(char c, std::string& out)
{
    const std::uint8_t value = values[static_cast<unsigned char>(c)];
    if (value != none)
    {
        group_ = group_ << bitsOfDigit | value;
        if (++digits_ == digitsOfGroup)
        {
            append(out, group_, 3);
            group_ = digits_ = 0;
        }
        return true;
    }
    return c == '=' ? endGroup(out) : c == '\r' || c == '\n' || c == ' ' || c == '\t';
}

bool Base64Decoder::endGroup(std::string& out)
{
    if (digits_ == 1)
    {
        return false;
    }
    if (digits_ != 0)
    {
        append(out, group_ << bitsOfDigit * (digitsOfGroup - digits_), digits_ - 1);
    }
    group_ = digits_ = 0;
    return true;
}

}  // namespace refhost

#include "refhost/base/Decimal.h"

#include <algorithm>

namespace refhost
{

void appendDecimal(std::string& out, std::uint64_t number)
{
    char text[std::numeric_limits<std::uint64_t>::digits10 + 1];
    const auto [end, error] = std::to_chars(text, text + sizeof text, number);
    out.append(text, static_cast<std::size_t>(end - text));
}

void appendPaddedDecimal(std::string& out, std::uint64_t number, std::size_t digits)
{
    char text[std::numeric_limits<std::uint64_t>::digits10 + 1];
    const auto [end, error] = std::to_chars(text, text + sizeof text, number);
    const auto size = static_cast<std::size_t>(end - text);
    out.append(digits > size ? digits - size : 0, '0').append(text, end);
}

std::optional<std::uint32_t> parseMillionths(std::string_view digits)
{
    std::uint32_t millionths = 0;
    std::uint32_t unit = 100'000;
    for (const char c : digits)
    {
        if (c < '0' || c > '9')
        {
            return std::nullopt;
        }
        millionths += unit * static_cast<std::uint32_t>(c - '0');
        unit /= 10;
    }
    return millionths;
}

void appendDecimals(std::string& out, std::uint64_t parts, std::size_t maxDecimals, std::size_t minDecimals)
{
    std::string digits;
    appendPaddedDecimal(digits, parts, maxDecimals);
    const std::size_t last = digits.find_last_not_of('0');
    digits.resize(std::max(last == std::string::npos ? 0 : last + 1, minDecimals));
    if (!digits.empty())
    {
        out.append(".").append(digits);
    }
}

}  // namespace refhost

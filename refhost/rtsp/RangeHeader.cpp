#include "refhost/rtsp/RangeHeader.h"

#include <optional>

#include "refhost/rtsp/RtspText.h"

namespace refhost
{
namespace
{

constexpr std::uint64_t longestSeconds = 1000000000;  // about 30 years

/// Thousandths of a second from "12", "12.5" or "1:02:03.5".
std::optional<std::uint64_t> parseTime(std::string_view text)
{
    std::uint64_t seconds = 0;
    bool clock = false;  // written with colons
    for (int colons = 0;; ++colons)
    {
        const std::size_t colon = text.find(':');
        if (colon == std::string_view::npos)
        {
            break;
        }
        const auto part = RtspText::number(text.substr(0, colon), colons == 0 ? longestSeconds / 3600 : 59);
        if (!part || colons == 2)
        {
            return std::nullopt;
        }
        seconds = (seconds + *part) * 60;
        clock = true;
        text.remove_prefix(colon + 1);
    }
    const std::size_t dot = text.find('.');
    const auto whole = RtspText::number(text.substr(0, dot), clock ? 59 : longestSeconds);
    if (!whole)
    {
        return std::nullopt;
    }
    std::uint64_t thousandths = (seconds + *whole) * 1000;
    if (dot != std::string_view::npos)
    {
        std::uint64_t unit = 100;
        for (const char c : text.substr(dot + 1))
        {
            if (c < '0' || c > '9')
            {
                return std::nullopt;
            }
            thousandths += unit * static_cast<std::uint64_t>(c - '0');
            unit /= 10;
        }
    }
    return thousandths;
}

bool isNptRange(std::string_view range)
{
    const std::size_t dash = range.find('-');
    if (dash == std::string_view::npos)
    {
        return false;
    }
    const std::string_view first = RtspText::trim(range.substr(0, dash));
    const std::string_view last = RtspText::trim(range.substr(dash + 1));
    const auto end = parseTime(last);
    if (!last.empty() && !end)
    {
        return false;
    }
    if (first.empty())
    {
        return !last.empty();
    }
    if (first == "now")
    {
        return true;
    }
    const auto begin = parseTime(first);
    return begin && (!end || *end > *begin);
}

}  // namespace

RtspStatus RangeHeader::checkLive(std::string_view value)
{
    std::string_view range = RtspText::cut(value, ';');
    const std::size_t equals = range.find('=');
    if (equals == std::string_view::npos)
    {
        return rtspInvalidRange;
    }
    const std::string_view unit = RtspText::trim(range.substr(0, equals));
    range = RtspText::trim(range.substr(equals + 1));
    if (unit == "npt")
    {
        return isNptRange(range) ? rtspOk : rtspInvalidRange;
    }
    const bool known = unit == "clock" || unit.substr(0, 5) == "smpte";
    return known || !RtspText::isToken(unit) ? rtspInvalidRange : rtspNotImplemented;
}

}  // namespace refhost

#include "refhost/rtsp/message/RangeHeader.h"

#include <algorithm>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/HeaderText.h"
#include "refhost/rtsp/message/UtcTime.h"

namespace refhost
{
namespace
{

using Unit = RangeHeader::Unit;
using Position = RangeHeader::Position;

constexpr std::uint64_t maxSeconds = 1000000000;  // about 30 years

/// Parses "12", "12.5" or "1:02:03.5".
std::optional<Position> parseNpt(std::string_view text)
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
        const auto part =
            parseDecimal<std::uint64_t>(text.substr(0, colon), colons == 0 ? maxSeconds / 3600 : 59);
        if (!part || colons == 2)
        {
            return std::nullopt;
        }
        seconds = (seconds + *part) * 60;
        clock = true;
        text.remove_prefix(colon + 1);
    }
    const std::size_t dot = text.find('.');
    const auto whole = parseDecimal<std::uint64_t>(text.substr(0, dot), clock ? 59 : maxSeconds);
    const auto fraction =
        parseMillionths(dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1));
    if (!whole || !fraction)
    {
        return std::nullopt;
    }
    return std::chrono::seconds(seconds + *whole) + Position(*fraction);
}

std::optional<Position> parsePosition(Unit unit, std::string_view text)
{
    if (unit == Unit::npt)
    {
        return parseNpt(text);
    }
    const auto time = UtcTime::parse(text);
    return time ? std::optional(time->time_since_epoch()) : std::nullopt;
}

/// Whether a text is a well-formed play time that is too large.
bool isLargeNpt(std::string_view text)
{
    const bool decimal = !text.empty() && text.find_first_not_of("0123456789.") == std::string_view::npos;
    return decimal && text.front() != '.' && text.find('.') == text.rfind('.');
}

/// Finds the dash between start and end. A negative start has one of its own, which some players even write
/// behind the decimal point.
std::size_t findDash(Unit unit, std::string_view range)
{
    const std::size_t first = range.find('-');
    const std::size_t last = range.rfind('-');
    if (unit == Unit::clock || first == last)
    {
        return first;
    }
    const std::string_view begin = HeaderText::trim(range.substr(0, first));
    const bool whole = begin == "now" || (parseNpt(begin) && begin.back() != '.');
    return whole || range[last - 1] == '-' ? first : last;
}

/// Parses both ends; an empty text leaves its end open.
bool parseEnds(std::string_view first, std::string_view last, bool backwards, RangeHeader& out)
{
    const bool now = out.unit == Unit::npt && first == "now";
    if (!first.empty() && !now)
    {
        out.begin = parsePosition(out.unit, first);
        if (!out.begin && (out.unit == Unit::clock || isLargeNpt(first)))
        {
            return false;
        }
        out.begin = out.begin.value_or(Position(0));
    }
    if (!last.empty())
    {
        out.end = parsePosition(out.unit, last);
        if (!out.end)
        {
            return false;
        }
    }
    if (first.empty() && last.empty())
    {
        return false;
    }
    if (backwards && out.begin && out.end && *out.end > *out.begin)
    {
        std::swap(out.begin, out.end);
    }
    return !out.begin || !out.end || (backwards ? *out.begin > *out.end : *out.end > *out.begin);
}

/// Splits "npt=…" into the unit and its value.
RtspStatus cutUnit(std::string_view value, Unit& unit, std::string_view& rest)
{
    const std::string_view range = HeaderText::cut(value, ';');
    const std::size_t equals = range.find('=');
    if (equals == std::string_view::npos)
    {
        return rtspInvalidRange;
    }
    const std::string_view name = HeaderText::trim(range.substr(0, equals));
    rest = HeaderText::trim(range.substr(equals + 1));
    if (name == "npt" || name == "clock")
    {
        unit = name == "npt" ? Unit::npt : Unit::clock;
        return rtspOk;
    }
    const bool known = name.substr(0, 5) == "smpte";
    return known || !HeaderText::isToken(name) ? rtspInvalidRange : rtspNotImplemented;
}

void appendPosition(std::string& out, Unit unit, Position position)
{
    if (unit == Unit::clock)
    {
        UtcTime::append(out, WallMicroseconds(position));
        return;
    }
    const Position npt = std::max(position, Position(0));
    const auto whole = std::chrono::floor<std::chrono::seconds>(npt);
    appendDecimal(out, static_cast<std::uint64_t>(whole.count()));
    appendDecimals(out, static_cast<std::uint64_t>((npt - whole).count()), 6, 3);
}

}  // namespace

RtspStatus RangeHeader::parse(std::string_view value, RangeHeader& out, bool backwards)
{
    RangeHeader parsed;
    std::string_view range;
    const RtspStatus status = cutUnit(value, parsed.unit, range);
    if (status != rtspOk)
    {
        return status;
    }
    const std::size_t dash = findDash(parsed.unit, range);
    if (dash == std::string_view::npos ||
        !parseEnds(HeaderText::trim(range.substr(0, dash)), HeaderText::trim(range.substr(dash + 1)),
                   backwards, parsed))
    {
        return rtspInvalidRange;
    }
    out = parsed;
    return rtspOk;
}

RtspStatus RangeHeader::parsePoint(std::string_view value, RangeHeader& out)
{
    RangeHeader parsed;
    std::string_view point;
    const RtspStatus status = cutUnit(value, parsed.unit, point);
    if (status != rtspOk)
    {
        return status;
    }
    if (!point.empty() && point.back() == '-')
    {
        point = HeaderText::trim(point.substr(0, point.size() - 1));
    }
    parsed.begin = parsePosition(parsed.unit, point);
    if (!parsed.begin)
    {
        return rtspInvalidRange;
    }
    out = parsed;
    return rtspOk;
}

RtspStatus RangeHeader::checkLive(std::string_view value)
{
    RangeHeader range;
    const RtspStatus status = parse(value, range);
    return status == rtspOk && range.unit == Unit::clock ? rtspInvalidRange : status;
}

void RangeHeader::append(std::string& out, Unit unit, Position begin, std::optional<Position> end)
{
    out.append(unit == Unit::npt ? "npt=" : "clock=");
    appendPosition(out, unit, begin);
    out += '-';
    if (end)
    {
        appendPosition(out, unit, *end);
    }
}

}  // namespace refhost

#include "refhost/rtsp/message/UtcTime.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "refhost/base/Decimal.h"

namespace refhost
{
namespace
{

using std::chrono::microseconds;
using Seconds = std::chrono::duration<std::int64_t>;

constexpr WallMicroseconds first{Seconds(-62'167'219'200)};                   // of year 0
constexpr WallMicroseconds last{Seconds(253'402'300'800) - microseconds(1)};  // of year 9999

/// Parses the `size` digits of `text` from `at` on as a number from `min` to `max`.
std::optional<int> field(std::string_view text, std::size_t at, std::size_t size, int min, int max)
{
    return parseDecimal<int>(text.substr(at, size), min, max);
}

}  // namespace

std::optional<WallMicroseconds> UtcTime::parse(std::string_view text)
{
    constexpr std::size_t wholeSize = 15;  // YYYYMMDDThhmmss
    if (text.size() <= wholeSize || text[8] != 'T' || text.back() != 'Z')
    {
        return std::nullopt;
    }
    const std::string_view behind = text.substr(wholeSize, text.size() - wholeSize - 1);
    if (!behind.empty() && behind.front() != '.')
    {
        return std::nullopt;
    }
    const auto year = field(text, 0, 4, 0, 9999);
    const auto month = field(text, 4, 2, 1, 12);
    const auto hour = field(text, 9, 2, 0, 23);
    const auto minute = field(text, 11, 2, 0, 59);
    const auto seconds = field(text, 13, 2, 0, 60);
    const auto fraction = parseMillionths(behind.empty() ? behind : behind.substr(1));
    if (!year || !month || !hour || !minute || !seconds || !fraction)
    {
        return std::nullopt;
    }
    const auto day = field(text, 6, 2, 1, 31);
    if (!day)
    {
        return std::nullopt;
    }
    std::tm calendar{};
    calendar.tm_year = *year - 1900;
    calendar.tm_mon = *month - 1;
    calendar.tm_mday = *day;
    calendar.tm_hour = *hour;
    calendar.tm_min = *minute;
    const Seconds minuteStart(timegm(&calendar));
    // timegm() turned a day beyond the month's end into one of the next month.
    return calendar.tm_mday == *day
               ? std::optional(WallMicroseconds(minuteStart + Seconds(*seconds) + microseconds(*fraction)))
               : std::nullopt;
}

void UtcTime::append(std::string& out, WallMicroseconds time)
{
    const WallMicroseconds clamped = std::clamp(time, first, last);
    const auto whole = std::chrono::floor<Seconds>(clamped);
    const microseconds fraction = clamped - whole;
    const auto seconds = static_cast<std::time_t>(whole.time_since_epoch().count());
    std::tm calendar{};
    gmtime_r(&seconds, &calendar);
    const auto append = [&out](int number, std::size_t digits)
    { appendPaddedDecimal(out, static_cast<std::uint64_t>(number), digits); };
    append(calendar.tm_year + 1900, 4);
    append(calendar.tm_mon + 1, 2);
    append(calendar.tm_mday, 2);
    out += 'T';
    append(calendar.tm_hour, 2);
    append(calendar.tm_min, 2);
    append(calendar.tm_sec, 2);
    appendDecimals(out, static_cast<std::uint64_t>(fraction.count()), 6, 3);
    out += 'Z';
}

}  // namespace refhost

#include "refhost/rtsp/message/UtcTime.h"

#include <algorithm>

#include "refhost/rtsp/message/RtspText.h"

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1000000;
constexpr std::int64_t secondsOfDay = 86400;
constexpr int decimalsMost = 6;
constexpr int decimalsLeast = 3;

bool isLeapYear(int year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysOfMonth(int year, int month)
{
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : days[month - 1];
}

/// Days from year 0 to the begin of `year`.
std::int64_t daysBefore(int year)
{
    const std::int64_t past = year - 1;  // the last whole year
    return year == 0 ? 0 : 366 + past * 365 + past / 4 - past / 100 + past / 400;
}

struct Date
{
    int year = 0;
    int month = 1;
    int day = 1;
};

std::int64_t daysSince1970(const Date& date)
{
    std::int64_t days = daysBefore(date.year) - daysBefore(1970) + date.day - 1;
    for (int month = 1; month < date.month; ++month)
    {
        days += daysOfMonth(date.year, month);
    }
    return days;
}

Date dateOf(std::int64_t days)
{
    Date date;
    std::int64_t rest = days + daysBefore(1970);
    date.year = static_cast<int>(rest / 366);  // not beyond the right one
    while (daysBefore(date.year + 1) <= rest)
    {
        ++date.year;
    }
    rest -= daysBefore(date.year);
    while (rest >= daysOfMonth(date.year, date.month))
    {
        rest -= daysOfMonth(date.year, date.month++);
    }
    date.day = static_cast<int>(rest) + 1;
    return date;
}

/// The number that stands in `text` from `at` on, with exactly `size` digits, between `least` and `most`.
std::optional<int> field(std::string_view text, std::size_t at, std::size_t size, int least, int most)
{
    const auto number = RtspText::number(text.substr(at, size), static_cast<std::uint64_t>(most));
    if (!number || static_cast<int>(*number) < least)
    {
        return std::nullopt;
    }
    return static_cast<int>(*number);
}

void appendPadded(std::string& out, std::int64_t number, std::size_t digits)
{
    const std::string text = std::to_string(number);
    out.append(digits > text.size() ? digits - text.size() : 0, '0').append(text);
}

}  // namespace

std::optional<std::int64_t> UtcTime::parse(std::string_view text)
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
    const auto fraction = parseFraction(behind.empty() ? behind : behind.substr(1));
    if (!year || !month || !hour || !minute || !seconds || !fraction)
    {
        return std::nullopt;
    }
    const auto day = field(text, 6, 2, 1, daysOfMonth(*year, *month));
    if (!day)
    {
        return std::nullopt;
    }
    const std::int64_t inDay = (*hour * 60 + *minute) * 60 + *seconds;
    return (daysSince1970({*year, *month, *day}) * secondsOfDay + inDay) * second + *fraction;
}

void UtcTime::append(std::string& out, std::int64_t microseconds)
{
    const std::int64_t first = daysSince1970({0, 1, 1}) * secondsOfDay * second;
    const std::int64_t last = daysSince1970({10000, 1, 1}) * secondsOfDay * second - 1;
    const std::int64_t sinceFirst = std::clamp(microseconds, first, last) - first;
    const std::int64_t inDay = sinceFirst / second % secondsOfDay;
    const Date date = dateOf(sinceFirst / second / secondsOfDay + daysSince1970({0, 1, 1}));
    appendPadded(out, date.year, 4);
    appendPadded(out, date.month, 2);
    appendPadded(out, date.day, 2);
    out += 'T';
    appendPadded(out, inDay / 3600, 2);
    appendPadded(out, inDay / 60 % 60, 2);
    appendPadded(out, inDay % 60, 2);
    appendFraction(out, static_cast<std::uint32_t>(sinceFirst % second));
    out += 'Z';
}

void UtcTime::appendFraction(std::string& out, std::uint32_t microseconds)
{
    std::string digits;
    appendPadded(digits, microseconds, decimalsMost);
    const std::size_t last = digits.find_last_not_of('0');
    digits.resize(std::max<std::size_t>(last == std::string::npos ? 0 : last + 1, decimalsLeast));
    out.append(".").append(digits);
}

std::optional<std::uint32_t> UtcTime::parseFraction(std::string_view digits)
{
    std::uint32_t microseconds = 0;
    std::uint32_t unit = 100000;
    for (const char c : digits)
    {
        if (c < '0' || c > '9')
        {
            return std::nullopt;
        }
        microseconds += unit * static_cast<std::uint32_t>(c - '0');
        unit /= 10;
    }
    return microseconds;
}

}  // namespace refhost

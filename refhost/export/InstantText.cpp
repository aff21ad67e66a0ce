#include "refhost/export/InstantText.h"

#include <cstdint>
#include <ctime>

namespace refhost
{
namespace
{

constexpr std::int64_t maxSeconds = 7'258'118'400;  // 2200

/// What is left to read.
class Text
{
public:
    explicit Text(std::string_view text) : text_(text) {}

    bool atEnd() const
    {
        return text_.empty();
    }
    bool skip(char character)
    {
        const bool there = !text_.empty() && text_.front() == character;
        text_.remove_prefix(there ? 1 : 0);
        return there;
    }
    bool startsWithDigit() const
    {
        return !text_.empty() && text_.front() >= '0' && text_.front() <= '9';
    }
    /// A number of exactly so many digits, within limits.
    std::optional<int> number(int digits, int min, int max)
    {
        int value = 0;
        for (int i = 0; i < digits; ++i)
        {
            if (!startsWithDigit())
            {
                return std::nullopt;
            }
            value = value * 10 + (text_.front() - '0');
            text_.remove_prefix(1);
        }
        return value >= min && value <= max ? std::optional<int>(value) : std::nullopt;
    }
    /// A point and digits, where they stand; nothing for a point without digits.
    std::optional<Duration> fraction()
    {
        if (!skip('.'))
        {
            return Duration::zero();
        }
        if (!startsWithDigit())
        {
            return std::nullopt;
        }
        std::int64_t value = 0;
        for (std::int64_t unit = nanosecondsPerSecond / 10; startsWithDigit(); unit /= 10)
        {
            value += (text_.front() - '0') * unit;
            text_.remove_prefix(1);
        }
        return Duration(value);
    }

private:
    std::string_view text_;
};

std::optional<WallTime> parseSeconds(Text text)
{
    std::int64_t seconds = 0;
    while (text.startsWithDigit() && seconds <= maxSeconds)
    {
        seconds = seconds * 10 + *text.number(1, 0, 9);
    }
    const auto fraction = text.fraction();
    if (!fraction || !text.atEnd() || seconds > maxSeconds)
    {
        return std::nullopt;
    }
    return wallTimeOfUnix(seconds) + *fraction;
}

std::optional<Duration> parseOffset(Text& text)
{
    if (text.skip('Z') || text.skip('z'))
    {
        return Duration::zero();
    }
    const bool east = text.skip('+');
    if (!east && !text.skip('-'))
    {
        return std::nullopt;
    }
    const auto hours = text.number(2, 0, 23);
    text.skip(':');
    const auto minutes = text.number(2, 0, 59);
    if (!hours || !minutes)
    {
        return std::nullopt;
    }
    const Duration offset = std::chrono::hours(*hours) + std::chrono::minutes(*minutes);
    return east ? offset : -offset;
}

std::optional<WallTime> parseDate(Text text)
{
    const auto year = text.number(4, 1970, 2199);
    const bool extended = text.skip('-');
    const auto month = text.number(2, 1, 12);
    const bool second = text.skip('-');
    const auto day = text.number(2, 1, 31);
    const bool separated = text.skip('T') || text.skip('t') || text.skip(' ');
    const auto hour = text.number(2, 0, 23);
    const bool colon = text.skip(':');
    const auto minute = text.number(2, 0, 59);
    const bool otherColon = text.skip(':');
    const auto seconds = text.number(2, 0, 59);
    if (!year || !month || !day || !separated || !hour || !minute || !seconds || extended != second ||
        colon != otherColon)
    {
        return std::nullopt;
    }
    const auto fraction = text.fraction();
    const auto offset = parseOffset(text);
    if (!fraction || !offset || !text.atEnd())
    {
        return std::nullopt;
    }
    std::tm parts{};
    parts.tm_year = *year - 1900;
    parts.tm_mon = *month - 1;
    parts.tm_mday = *day;
    parts.tm_hour = *hour;
    parts.tm_min = *minute;
    parts.tm_sec = *seconds;
    const std::time_t date = ::timegm(&parts);
    // A day that its month does not have is taken for one of the next.
    return parts.tm_mday == *day ? std::optional<WallTime>(wallTimeOfUnix(date) + *fraction - *offset)
                                 : std::nullopt;
}

}  // namespace

std::optional<WallTime> InstantText::parse(std::string_view text)
{
    if (text.empty() || text.front() < '0' || text.front() > '9')
    {
        return std::nullopt;
    }
    const auto seconds = parseSeconds(Text(text));
    return seconds ? seconds : parseDate(Text(text));
}

}  // namespace refhost

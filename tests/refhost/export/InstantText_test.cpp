#include "refhost/export/InstantText.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

constexpr std::int64_t noon = 1'769'860'800;  // 2026-01-31T12:00:00Z

TEST(InstantText, ReadsSecondsAndDates)
{
    const struct
    {
        const char* text;
        WallTime expected;
    } cases[] = {
        {"1769860800", wallTimeOfUnix(noon)},
        {"1769860800.681", wallTimeOfUnix(noon) + std::chrono::milliseconds(681)},
        {"1769860800.1234567891", wallTimeOfUnix(noon) + Duration(123'456'789)},
        {"0", wallTimeOfUnix(0)},
        {"2026-01-31T12:00:00Z", wallTimeOfUnix(noon)},
        {"2026-01-31T12:00:00.681Z", wallTimeOfUnix(noon) + std::chrono::milliseconds(681)},
        {"20260131T120000Z", wallTimeOfUnix(noon)},
        {"20260131T120000.5z", wallTimeOfUnix(noon) + std::chrono::milliseconds(500)},
        {"2026-01-31T13:30:00+01:30", wallTimeOfUnix(noon)},
        {"2026-01-31 11:00:00-0100", wallTimeOfUnix(noon)},
    };
    for (const auto& row : cases)
    {
        EXPECT_EQ(InstantText::parse(row.text), row.expected) << row.text;
    }
}

TEST(InstantText, RefusesEverythingElse)
{
    for (const char* text : {"",
                             "now",
                             "-1",
                             "+1",
                             "1769860800.",
                             ".5",
                             "1769860800s",
                             " 1",
                             "99999999999999999999",
                             "1e9",
                             "2026-02-30T12:00:00Z",
                             "2026-01-31T12:00:00",
                             "2026-01-31T24:00:00Z",
                             "2026-01-31T12:60:00Z",
                             "2026-01-31",
                             "2026-13-01T00:00:00Z",
                             "2026-0131T12:00:00Z",
                             "2026-01-31T12:0000Z",
                             "2026-01-31T12:00:00.Z",
                             "2026-01-31T12:00:00Z ",
                             "2026-01-31T12:00:00+1",
                             "1969-01-01T00:00:00Z"})
    {
        EXPECT_FALSE(InstantText::parse(text)) << text;
    }
}

TEST(InstantText, NoPrefixOfADateIsOne)
{
    const std::string date = "2026-01-31T12:00:00.681+01:00";
    for (std::size_t size = 0; size < date.size(); ++size)
    {
        const auto parsed = InstantText::parse(date.substr(0, size));
        EXPECT_EQ(parsed.has_value(), size > 0 && size <= 4) << date.substr(0, size);
    }
}

}  // namespace
}  // namespace refhost

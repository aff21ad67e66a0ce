#include "refhost/base/Quantity.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace refhost
{
namespace
{

using std::chrono::seconds;

constexpr std::int64_t gibibyte = std::int64_t{1} << 30;

TEST(Quantity, SizesHaveUnits)
{
    const std::vector<std::pair<const char*, std::int64_t>> sizes{{"0B", 0},
                                                                  {"1B", 1},
                                                                  {"1KiB", 1024},
                                                                  {"1MiB", 1048576},
                                                                  {"50GiB", 50 * gibibyte},
                                                                  {"50 GiB", 50 * gibibyte},
                                                                  {"1.5GiB", gibibyte + gibibyte / 2},
                                                                  {"0.000001MB", 1},
                                                                  {"2TiB", 2048 * gibibyte},
                                                                  {"1kB", 1000},
                                                                  {"1MB", 1000000},
                                                                  {"1GB", 1000000000},
                                                                  {"3TB", 3000000000000}};
    for (const auto& [text, bytes] : sizes)
    {
        EXPECT_EQ(parseSize(text), bytes) << text;
    }
}

TEST(Quantity, TimesHaveUnits)
{
    const std::vector<std::pair<const char*, int>> times{{"0s", 0},      {"90s", 90},    {"15min", 900},
                                                         {"12h", 43200}, {"7d", 604800}, {"2w", 1209600},
                                                         {"1.5h", 5400}};
    for (const auto& [text, span] : times)
    {
        EXPECT_EQ(parseTime(text), seconds(span)) << text;
    }
}

TEST(Quantity, OtherTextsAreRefused)
{
    for (const char* text : {"",
                             " ",
                             "5",
                             "GiB",
                             "-5GiB",
                             "+5GiB",
                             "5gib",
                             "5Gib",
                             "5GiB ",
                             " 5GiB",
                             "5  GiB",
                             "5.GiB",
                             ".5GiB",
                             "5,5GiB",
                             "5e3MiB",
                             "5GiBx",
                             "99999999999TiB",
                             "9223372036854775807B",
                             "9223372036854775808B",
                             "5\0GiB"})
    {
        EXPECT_FALSE(parseSize(text)) << text;
    }
    for (const char* text : {"", "5", "d", "-1d", "7days", "7D", "400000000w", "1m"})
    {
        EXPECT_FALSE(parseTime(text)) << text;
    }
}

TEST(Quantity, LargestValuesDoNotOverflow)
{
    EXPECT_TRUE(parseSize("4194302.999999TiB"));
    EXPECT_FALSE(parseSize("4194304TiB"));
    EXPECT_TRUE(parseTime("365000d"));
    EXPECT_FALSE(parseTime("366001d"));
}

TEST(Quantity, WrittenTextsReadBack)
{
    for (const std::int64_t bytes : {std::int64_t{0}, std::int64_t{1}, std::int64_t{1023}, std::int64_t{1024},
                                     std::int64_t{1500}, 50 * gibibyte, 1024 * gibibyte, 1025 * gibibyte})
    {
        EXPECT_EQ(parseSize(sizeText(bytes)), bytes);
    }
    EXPECT_EQ(sizeText(50 * gibibyte), "50GiB");
    EXPECT_EQ(sizeText(0), "0B");
    for (const int span : {0, 1, 59, 60, 61, 3600, 86400, 90000, 604800})
    {
        EXPECT_EQ(parseTime(timeText(seconds(span))), seconds(span));
    }
    EXPECT_EQ(timeText(seconds(86400)), "1d");
    EXPECT_EQ(timeText(seconds(90)), "90s");
}

TEST(Quantity, SizesForPeopleAreShort)
{
    EXPECT_EQ(roundedSizeText(0), "0 B");
    EXPECT_EQ(roundedSizeText(1023), "1023 B");
    EXPECT_EQ(roundedSizeText(1536), "1.5 KiB");
    EXPECT_EQ(roundedSizeText(gibibyte + gibibyte / 3), "1.33 GiB");
    EXPECT_EQ(roundedSizeText(123 * gibibyte + 1), "123 GiB");
}

}  // namespace
}  // namespace refhost

#include "refhost/rtsp/message/UtcTime.h"

#include <gtest/gtest.h>

#include <ctime>
#include <limits>
#include <string>

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1000000;

/// \param microseconds  since 1970
WallMicroseconds at(std::int64_t microseconds)
{
    return WallMicroseconds(std::chrono::microseconds(microseconds));
}

std::string textOf(std::int64_t microseconds)
{
    std::string out;
    UtcTime::append(out, at(microseconds));
    return out;
}

TEST(UtcTime, TextBecomesMicrosecondsSince1970)
{
    EXPECT_EQ(UtcTime::parse("19700101T000000Z"), at(0));
    EXPECT_EQ(UtcTime::parse("19691231T235959.5Z"), at(-second / 2));
    EXPECT_EQ(UtcTime::parse("19961108T143720.25Z"), at(847463840 * second + 250000));
    EXPECT_EQ(UtcTime::parse("20240229T120000.1234567Z"), at(1709208000 * second + 123456));
    EXPECT_EQ(UtcTime::parse("20240229T120000.Z"), at(1709208000 * second));
    EXPECT_EQ(UtcTime::parse("20381119T031407Z"), at(2173749247 * second));
}

TEST(UtcTime, ALeapSecondIsTheNextMinutesFirst)
{
    EXPECT_EQ(UtcTime::parse("20161231T235960Z"), UtcTime::parse("20170101T000000Z"));
}

TEST(UtcTime, OtherFormsAndImpossibleDatesAreRefused)
{
    for (const char* const text : {"",
                                   "Z",
                                   "19961108T143720",
                                   "19961108 143720Z",
                                   "1996-11-08T14:37:20Z",
                                   "19961108T1437Z",
                                   "19961308T143720Z",
                                   "19960008T143720Z",
                                   "19961100T143720Z",
                                   "19961131T143720Z",
                                   "20230229T000000Z",
                                   "21000229T000000Z",
                                   "19961108T243720Z",
                                   "19961108T146020Z",
                                   "19961108T143761Z",
                                   "19961108T143720.2z",
                                   "19961108T143720,5Z",
                                   "19961108T143720.5.5Z",
                                   "19961108T143720.-5Z",
                                   "1996110aT143720Z",
                                   "+9961108T143720Z",
                                   "19961108T143720.25+01Z",
                                   "19961108T143720Z "})
    {
        EXPECT_FALSE(UtcTime::parse(text)) << text;
    }
}

TEST(UtcTime, TextHasThreeToSixDecimals)
{
    EXPECT_EQ(textOf(847463840 * second), "19961108T143720.000Z");
    EXPECT_EQ(textOf(847463840 * second + 250000), "19961108T143720.250Z");
    EXPECT_EQ(textOf(847463840 * second + 123450), "19961108T143720.12345Z");
    EXPECT_EQ(textOf(847463840 * second + 1), "19961108T143720.000001Z");
    EXPECT_EQ(textOf(-1), "19691231T235959.999999Z");
}

TEST(UtcTime, InstantsBeyondTheYearsWithFourDigitsAreTheLastOrFirst)
{
    EXPECT_EQ(textOf(std::numeric_limits<std::int64_t>::max()), "99991231T235959.999999Z");
    EXPECT_EQ(textOf(std::numeric_limits<std::int64_t>::min()), "00000101T000000.000Z");
}

TEST(UtcTime, EveryDayOfFourCenturiesAgreesWithTheCLibraryAndComesBack)
{
    for (std::int64_t day = -30 * 366; day < 400 * 365; ++day)
    {
        const std::time_t time = day * 86400 + 3661;
        std::tm broken{};
        gmtime_r(&time, &broken);
        char expected[32];
        std::strftime(expected, sizeof expected, "%Y%m%dT%H%M%S.000Z", &broken);
        const std::string text = textOf(time * second);
        ASSERT_EQ(text, expected);
        ASSERT_EQ(UtcTime::parse(text), at(time * second));
    }
}

}  // namespace
}  // namespace refhost

#include "refhost/base/Decimal.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace refhost
{
namespace
{

std::string decimals(std::uint64_t parts, std::size_t max, std::size_t min)
{
    std::string out;
    appendDecimals(out, parts, max, min);
    return out;
}

}  // namespace

TEST(Decimal, ParsesDigitsWithinTheLimits)
{
    EXPECT_EQ(0, parseDecimal<int>("0", 0, 10));
    EXPECT_EQ(10, parseDecimal<int>("10", 0, 10));
    EXPECT_EQ(std::nullopt, parseDecimal<int>("11", 0, 10));
    EXPECT_EQ(std::nullopt, parseDecimal<int>("4", 5, 10));
    EXPECT_EQ(7, parseDecimal<int>("0007", 9));
    EXPECT_EQ(std::numeric_limits<std::uint64_t>::max(), parseDecimal<std::uint64_t>("18446744073709551615"));
    EXPECT_EQ(std::nullopt, parseDecimal<std::uint64_t>("18446744073709551616"));
}

TEST(Decimal, OtherTextsAreNoNumbers)
{
    for (const char* const text : {"", "-", "+1", " 1", "1 ", "1.0", "0x1", "one", "1e3"})
    {
        EXPECT_EQ(std::nullopt, parseDecimal<int>(text)) << text;
        EXPECT_EQ(std::nullopt, parseDecimal<std::uint64_t>(text)) << text;
    }
}

TEST(Decimal, SignIsAcceptedOnlyForNegativeMinimum)
{
    EXPECT_EQ(-5, parseDecimal<int>("-5"));
    EXPECT_EQ(-5, parseDecimal<int>("-5", -5, 5));
    EXPECT_EQ(std::nullopt, parseDecimal<int>("-0", 0, 5));
    EXPECT_EQ(std::nullopt, parseDecimal<std::uint64_t>("-0"));
}

TEST(Decimal, TextAfterALeadingNumberIsIgnored)
{
    EXPECT_EQ(60, leadingDecimal<int>("60;x=1"));
    EXPECT_EQ(0, leadingDecimal<int>("0-1"));
    EXPECT_EQ(std::nullopt, leadingDecimal<int>(";60"));
    EXPECT_EQ(std::nullopt, leadingDecimal<int>(""));
    EXPECT_EQ(std::nullopt, leadingDecimal<int>("99999999999"));
}

TEST(Decimal, PadsNumbersWithZeros)
{
    std::string out;
    appendDecimal(out, 0);
    out += ' ';
    appendPaddedDecimal(out, 7, 2);
    out += ' ';
    appendPaddedDecimal(out, 1234, 2);
    out += ' ';
    appendDecimal(out, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ("0 07 1234 18446744073709551615", out);
}

TEST(Decimal, ParsesMillionthsFromUpToSixDigits)
{
    EXPECT_EQ(0U, parseMillionths(""));
    EXPECT_EQ(40'000U, parseMillionths("04"));
    EXPECT_EQ(123'456U, parseMillionths("1234569"));
    EXPECT_EQ(std::nullopt, parseMillionths("1 "));
    EXPECT_EQ(std::nullopt, parseMillionths("-1"));
    EXPECT_EQ(std::nullopt, parseMillionths("1234567x"));
}

TEST(Decimal, DecimalsHaveNoTrailingZeros)
{
    EXPECT_EQ(".000", decimals(0, 6, 3));
    EXPECT_EQ(".100", decimals(100'000, 6, 3));
    EXPECT_EQ(".123456", decimals(123'456, 6, 3));
    EXPECT_EQ(".0", decimals(0, 3, 1));
    EXPECT_EQ(".05", decimals(50, 3, 1));
    EXPECT_EQ("", decimals(0, 3, 0));
    EXPECT_EQ(".97", decimals(970, 3, 0));
}

}  // namespace refhost

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>

#include "hostapi/base/DataConverter.h"

namespace
{

constexpr int untouched = 4711;
constexpr double untouchedReal = 47.11;

struct IntCase
{
    std::string text;
    bool isNumber;
    int number;
};

struct RealCase
{
    std::string text;
    bool isNumber;
    double number;
};

std::string textOf(int number)
{
    std::string text = "before";
    EXPECT_TRUE(DataConverter::convert(number, text));
    return text;
}

std::string textOf(unsigned long number)
{
    std::string text = "before";
    EXPECT_TRUE(DataConverter::convert(number, text));
    return text;
}

std::string textOf(double number)
{
    std::string text = "before";
    EXPECT_TRUE(DataConverter::convert(number, text));
    return text;
}

}  // namespace

TEST(DataConverterContract, ReadsWholeDecimalIntsInRangeAndRefusesAllElse)
{
    const IntCase cases[] = {
        {"0", true, 0},
        {"1", true, 1},
        {"-1", true, -1},
        {"-0", true, 0},
        {"007", true, 7},
        {"-007", true, -7},
        {"2147483647", true, 2147483647},
        {"-2147483648", true, -2147483647 - 1},
        {"00000000000000000000000000000012", true, 12},
        {"2147483648", false, untouched},
        {"-2147483649", false, untouched},
        {"99999999999999999999", false, untouched},
        {"", false, untouched},
        {"-", false, untouched},
        {"+1", false, untouched},
        {"--1", false, untouched},
        {" 1", false, untouched},
        {"1 ", false, untouched},
        {"1\n", false, untouched},
        {"1a", false, untouched},
        {"a", false, untouched},
        {"0x10", false, untouched},
        {"1.0", false, untouched},
        {"1e3", false, untouched},
        {"1,000", false, untouched},
        {std::string("1\0", 2), false, untouched},
        {std::string("1\0002", 3), false, untouched},
        {"\xD9\xA1", false, untouched},
    };
    for (const IntCase& one : cases)
    {
        int number = untouched;
        EXPECT_EQ(one.isNumber, DataConverter::convert(one.text, number)) << '"' << one.text << '"';
        EXPECT_EQ(one.number, number) << '"' << one.text << '"';
    }
}

TEST(DataConverterContract, ReadsWholeDecimalRealsAndRefusesAllElse)
{
    const RealCase cases[] = {
        {"0", true, 0},
        {"1.5", true, 1.5},
        {"-1.5", true, -1.5},
        {"0001.50", true, 1.5},
        {"1e3", true, 1000},
        {"1E3", true, 1000},
        {"2.5e-1", true, 0.25},
        {"1e+2", true, 100},
        {"1700000000", true, 1700000000},
        {"1.7976931348623157e308", true, 1.7976931348623157e308},
        {"1e999", false, untouchedReal},
        {"-1e999", false, untouchedReal},
        {"", false, untouchedReal},
        {"-", false, untouchedReal},
        {".", false, untouchedReal},
        {"e3", false, untouchedReal},
        {"1e", false, untouchedReal},
        {"+1", false, untouchedReal},
        {" 1.5", false, untouchedReal},
        {"1.5 ", false, untouchedReal},
        {"1.5x", false, untouchedReal},
        {"1,5", false, untouchedReal},
        {"1.5.5", false, untouchedReal},
        {"inf", false, untouchedReal},
        {"-inf", false, untouchedReal},
        {"infinity", false, untouchedReal},
        {"nan", false, untouchedReal},
        {"nan(1)", false, untouchedReal},
        {"0x1p3", false, untouchedReal},
        {std::string("1\0", 2), false, untouchedReal},
    };
    for (const RealCase& one : cases)
    {
        double number = untouchedReal;
        EXPECT_EQ(one.isNumber, DataConverter::convert(one.text, number)) << '"' << one.text << '"';
        EXPECT_EQ(one.number, number) << '"' << one.text << '"';
    }
}

TEST(DataConverterContract, WritesIntsInPlainDecimal)
{
    EXPECT_EQ("0", textOf(0));
    EXPECT_EQ("-1", textOf(-1));
    EXPECT_EQ("42", textOf(42));
    EXPECT_EQ("2147483647", textOf(std::numeric_limits<int>::max()));
    EXPECT_EQ("-2147483648", textOf(std::numeric_limits<int>::min()));
}

TEST(DataConverterContract, WritesUnsignedLongsInPlainDecimal)
{
    EXPECT_EQ("0", textOf(0ul));
    EXPECT_EQ("4294967295", textOf(4294967295ul));
    EXPECT_EQ(std::to_string(std::numeric_limits<unsigned long>::max()),
              textOf(std::numeric_limits<unsigned long>::max()));
}

TEST(DataConverterContract, WritesTheShortestTextThatReadsBackAsTheSameReal)
{
    EXPECT_EQ("0", textOf(0.0));
    EXPECT_EQ("1.5", textOf(1.5));
    EXPECT_EQ("0.1", textOf(0.1));
    for (const double number :
         {1.0 / 3, 2.0 / 3, 1e-7, 123456789.125, 4294967295.0, -0.1, 5e-324, 1.7976931348623157e308})
    {
        const std::string text = textOf(number);
        EXPECT_EQ(number, std::strtod(text.c_str(), nullptr)) << text;
        EXPECT_LE(text.size(), 24u) << text;
    }
}

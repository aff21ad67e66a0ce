#include "refhost/base/Hex.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

namespace refhost
{

TEST(Hex, NumbersHaveAllTheirDigits)
{
    std::string out;
    appendHex8(out, 0x0a);
    out += ' ';
    appendHex32(out, 0xabc);
    out += ' ';
    appendHex64(out, 0x1200000000abcdefU);
    EXPECT_EQ("0a 00000ABC 1200000000ABCDEF", out);
}

TEST(Hex, ParsesDigitsOfBothCases)
{
    EXPECT_EQ(0xabcdefU, parseHex("aBcDeF"));
    EXPECT_EQ(~std::uint64_t{0}, parseHex("ffffffffffffffff"));
    EXPECT_EQ(0U, parseHex("0"));
}

TEST(Hex, OtherTextsAreNoNumbers)
{
    for (const char* const text : {"", "g", "0x1", "-1", "+1", " 1", "1 ", "10000000000000000"})
    {
        EXPECT_EQ(std::nullopt, parseHex(text)) << text;
    }
}

TEST(Hex, DecodesPairsOfDigitsToBytes)
{
    EXPECT_EQ(std::string("\x12\x08\x00\xff", 4), bytesOfHex("120800fF"));
    EXPECT_EQ("", bytesOfHex(""));
    for (const char* const text : {"1", "123", "1g", "g1", " 1", "0x"})
    {
        EXPECT_EQ(std::nullopt, bytesOfHex(text)) << text;
    }
}

TEST(Hex, EmptyTextIsHex)
{
    EXPECT_TRUE(isHex(""));
    EXPECT_TRUE(isHex("09afAF"));
    EXPECT_FALSE(isHex("09ag"));
    EXPECT_FALSE(isHex(std::string_view("0\0", 2)));
}

}  // namespace refhost

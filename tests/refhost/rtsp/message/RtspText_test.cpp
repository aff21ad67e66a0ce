#include "refhost/rtsp/message/RtspText.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace refhost
{

namespace
{

std::vector<std::string> parts(std::string_view text)
{
    std::vector<std::string> found;
    while (!text.empty())
    {
        found.emplace_back(RtspText::cut(text, ','));
    }
    return found;
}

}  // namespace

TEST(RtspText, TrimsBlanksTabsAndFoldedLineEndsAtBothEnds)
{
    EXPECT_EQ("a b", RtspText::trim(" \t\r\n a b\t \r\n"));
    EXPECT_EQ("", RtspText::trim(" \t"));
    EXPECT_EQ("", RtspText::trim(""));
}

TEST(RtspText, CutsAtSeparatorsOutsideOfQuotesOnly)
{
    EXPECT_EQ((std::vector<std::string>{"a", "b=\"c,d\"", "", "e"}), parts("a , b=\"c,d\" ,, e"));
    EXPECT_EQ((std::vector<std::string>{"a=\"b,c"}), parts("a=\"b,c"));
}

TEST(RtspText, UnquotesWhatHasQuotesAtBothEnds)
{
    EXPECT_EQ("a", RtspText::unquote("\"a\""));
    EXPECT_EQ("", RtspText::unquote("\"\""));
    for (const char* const text : {"", "a", "\"", "\"a", "a\""})
    {
        EXPECT_EQ(text, RtspText::unquote(text));
    }
}

TEST(RtspText, TokensHaveNoSeparatorsAndNoControlCharacters)
{
    EXPECT_TRUE(RtspText::isToken("GET_PARAMETER"));
    EXPECT_TRUE(RtspText::isToken("x-9.!#$%&'*+-^_`|~"));
    for (const std::string& text : {std::string(), std::string("a b"), std::string("a:"), std::string("a/b"),
                                    std::string("\x7f"), std::string("a\0", 2), std::string("\xe9")})
    {
        EXPECT_FALSE(RtspText::isToken(text)) << text;
    }
}

}  // namespace refhost

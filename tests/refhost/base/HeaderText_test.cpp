#include "refhost/base/HeaderText.h"

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
        found.emplace_back(HeaderText::cut(text, ','));
    }
    return found;
}

}  // namespace

TEST(HeaderText, TrimsBlanksTabsAndFoldedLineEndsAtBothEnds)
{
    EXPECT_EQ("a b", HeaderText::trim(" \t\r\n a b\t \r\n"));
    EXPECT_EQ("", HeaderText::trim(" \t"));
    EXPECT_EQ("", HeaderText::trim(""));
}

TEST(HeaderText, CutsAtSeparatorsOutsideOfQuotesOnly)
{
    EXPECT_EQ((std::vector<std::string>{"a", "b=\"c,d\"", "", "e"}), parts("a , b=\"c,d\" ,, e"));
    EXPECT_EQ((std::vector<std::string>{"a=\"b,c"}), parts("a=\"b,c"));
}

TEST(HeaderText, UnquotesWhatHasQuotesAtBothEnds)
{
    EXPECT_EQ("a", HeaderText::unquote("\"a\""));
    EXPECT_EQ("", HeaderText::unquote("\"\""));
    for (const char* const text : {"", "a", "\"", "\"a", "a\""})
    {
        EXPECT_EQ(text, HeaderText::unquote(text));
    }
}

TEST(HeaderText, TokensHaveNoSeparatorsAndNoControlCharacters)
{
    EXPECT_TRUE(HeaderText::isToken("GET_PARAMETER"));
    EXPECT_TRUE(HeaderText::isToken("x-9.!#$%&'*+-^_`|~"));
    for (const std::string& text : {std::string(), std::string("a b"), std::string("a:"), std::string("a/b"),
                                    std::string("\x7f"), std::string("a\0", 2), std::string("\xe9")})
    {
        EXPECT_FALSE(HeaderText::isToken(text)) << text;
    }
}

}  // namespace refhost

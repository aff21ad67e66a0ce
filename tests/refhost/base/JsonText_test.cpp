#include "refhost/base/JsonText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace refhost
{
namespace
{

std::string json(std::string_view text)
{
    std::string out;
    JsonText::append(out, text);
    return out;
}

TEST(JsonText, QuotesAndControlCharactersAreEscaped)
{
    EXPECT_EQ(json(""), "\"\"");
    EXPECT_EQ(json("a/b c"), "\"a/b c\"");
    EXPECT_EQ(json("\"\\"), R"("\"\\")");
    EXPECT_EQ(json(std::string("\0\n\x1f\x7f", 4)), R"("\u0000\u000a\u001f\u007f")");
}

TEST(JsonText, ValidUtf8Stays)
{
    for (const std::string text : {"\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xe2\x82\xac", "\xed\x9f\xbf",
                                   "\xee\x80\x80", "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"})
    {
        EXPECT_EQ(json(text), "\"" + text + "\"");
    }
}

TEST(JsonText, BytesThatAreNoUtf8AreWrittenAsNumbers)
{
    struct Case
    {
        std::string text;
        std::string written;
    };
    const std::vector<Case> cases{{"\x80", R"("\\x80")"},
                                  {"a\xff", R"("a\\xff")"},
                                  {"\xc0\xaf", R"("\\xc0\\xaf")"},
                                  {"\xe2\x82", R"("\\xe2\\x82")"},
                                  {"\xe2\x82x", R"("\\xe2\\x82x")"},
                                  {"\xe0\x80\x80", R"("\\xe0\\x80\\x80")"},
                                  {"\xed\xa0\x80", R"("\\xed\\xa0\\x80")"},
                                  {"\xf0\x80\x80\x80", R"("\\xf0\\x80\\x80\\x80")"},
                                  {"\xf4\x90\x80\x80", R"("\\xf4\\x90\\x80\\x80")"},
                                  {"\xf0\x90\x80\"", R"("\\xf0\\x90\\x80\"")"}};
    for (const Case& c : cases)
    {
        EXPECT_EQ(json(c.text), c.written);
    }
}

}  // namespace
}  // namespace refhost

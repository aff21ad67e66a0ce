#include "refhost/net/tunnel/Base64Decoder.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>

#include "refhost/base/Base64.h"

namespace refhost
{
namespace
{

struct Case
{
    const char* name;
    std::string text;
    std::optional<std::string> bytes;  ///< nothing: refused

    friend std::ostream& operator<<(std::ostream& out, const Case& tested)
    {
        return out << tested.name;
    }
};

class Base64DecoderTable : public testing::TestWithParam<Case>
{
};

std::optional<std::string> decodeInParts(const std::string& text, std::size_t size)
{
    Base64Decoder decoder;
    std::string out;
    bool good = true;
    for (std::size_t at = 0; at < text.size() && good; at += size)
    {
        good = decoder.decode(std::string_view(text).substr(at, size), out);
    }
    return good ? std::optional<std::string>(out) : std::nullopt;
}

TEST_P(Base64DecoderTable, IsTheSameInPartsOfAnySize)
{
    for (std::size_t size = 1; size <= GetParam().text.size() + 1; ++size)
    {
        EXPECT_EQ(decodeInParts(GetParam().text, size), GetParam().bytes) << size;
    }
}

TEST_P(Base64DecoderTable, PrefixesDecodeToPrefixes)
{
    const std::string& text = GetParam().text;
    const std::string all = GetParam().bytes.value_or("");
    for (std::size_t size = 0; size < text.size(); ++size)
    {
        const auto part = decodeInParts(text.substr(0, size), 1);
        if (GetParam().bytes)
        {
            ASSERT_TRUE(part) << size;
            EXPECT_EQ(*part, all.substr(0, part->size())) << size;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Texts, Base64DecoderTable,
                         testing::Values(Case{"Nothing", "", ""}, Case{"WholeGroups", "YWJjZGVm", "abcdef"},
                                         Case{"TwoPaddings", "YWJjZA==", "abcd"},
                                         Case{"OnePadding", "YWJjZGU=", "abcde"},
                                         Case{"PaddingInTheMiddle", "YQ==YWI=YWJj", "aababc"},
                                         Case{"LineEndsAndBlanks", "YW\r\nJj \tZA\n==\r\n", "abcd"},
                                         Case{"MissingPaddingAtTheEnd", "YWJjZA", "abc"},
                                         Case{"PaddingWithoutAGroup", "====YWJj==", "abc"},
                                         Case{"OnePaddingWhereTwoBelong", "YQ=YWJj", "aabc"},
                                         Case{"AllBytesOfAGroup", "/+8A", std::string("\xff\xef\0", 3)},
                                         Case{"PaddingAfterOneDigit", "YWJjZ===", std::nullopt},
                                         Case{"UrlAlphabet", "YW-_", std::nullopt},
                                         Case{"AZero", std::string("YW\0J", 4), std::nullopt},
                                         Case{"HighBytes", "YW\xc3\xa4", std::nullopt}),
                         [](const testing::TestParamInfo<Case>& tested) { return tested.param.name; });

TEST(Base64Decoder, UndoesTheEncoderForEveryLength)
{
    std::string bytes;
    for (int i = 0; i < 300; ++i)
    {
        const std::string text = base64Of(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        EXPECT_EQ(decodeInParts(text, 7), bytes);
        bytes += static_cast<char>(i * 37);
    }
}

TEST(Base64Decoder, FailsForEverAfterAFailure)
{
    Base64Decoder decoder;
    std::string out;
    EXPECT_FALSE(decoder.decode("YWJj!", out));
    EXPECT_EQ(out, "abc");
    EXPECT_FALSE(decoder.decode("YWJj", out));
    EXPECT_EQ(out, "abc");
}

}  // namespace
}  // namespace refhost

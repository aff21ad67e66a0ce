#include "refhost/net/tunnel/PostReader.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>

namespace refhost
{
namespace
{

struct Case
{
    const char* name;
    std::optional<std::uint64_t> length;
    std::string text;
    std::optional<std::string> bytes;  ///< nothing: refused
    std::size_t completed = 0;

    friend std::ostream& operator<<(std::ostream& out, const Case& tested)
    {
        return out << tested.name;
    }
};

std::string post(int length, const std::string& cookie = "c")
{
    return "POST /any HTTP/1.0\r\nx-SessionCookie: " + cookie +
           "\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
}

class PostReaderTable : public testing::TestWithParam<Case>
{
};

TEST_P(PostReaderTable, IsTheSameInPartsOfAnySize)
{
    const std::string& text = GetParam().text;
    for (std::size_t size = 1; size <= text.size() + 1; ++size)
    {
        PostReader reader("c", GetParam().length);
        std::string out;
        bool good = true;
        for (std::size_t at = 0; at < text.size() && good; at += size)
        {
            good = reader.read(std::string_view(text).substr(at, size), out);
        }
        ASSERT_EQ(good, GetParam().bytes.has_value()) << size;
        EXPECT_EQ(out, GetParam().bytes.value_or(out)) << size;
        if (good)
        {
            EXPECT_EQ(reader.takeCompleted(), GetParam().completed) << size;
            EXPECT_EQ(reader.takeCompleted(), 0u);
        }
    }
}

TEST_P(PostReaderTable, NoPrefixOfWhatIsTakenIsRefused)
{
    const std::string& text = GetParam().text;
    for (std::size_t size = 0; size < text.size() && GetParam().bytes; ++size)
    {
        PostReader reader("c", GetParam().length);
        std::string out;
        ASSERT_TRUE(reader.read(std::string_view(text).substr(0, size), out)) << size;
        EXPECT_EQ(out, GetParam().bytes->substr(0, out.size()));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, PostReaderTable,
    testing::Values(Case{"WithoutAnEnd", std::nullopt, "YWJjZGVm", "abcdef"},
                    Case{"WithinTheLength", 32767, "YWJjZA==YWI=", "abcdab"},
                    Case{"OfTheLength", 8, "YWJjZGVm", "abcdef", 1},
                    Case{"OfMoreThanTheLength", 4, "YWJjZGVmYWJj", "abcdefabc", 1},
                    Case{"GoesOnLikeARequest", 4, "YWJjPOSTPOST", "abc\x3c\xe4\x93\x3c\xe4\x93", 1},
                    Case{"GoesOnWithTheStartOfARequest", 4, "YWJjPOSB", "abc\x3c\xe4\x81", 1},
                    Case{"OfNoLength", 0, "", "", 1},
                    Case{"AnotherRequestOnTheConnection", 4, "YWJj" + post(8) + "YWJjZA==", "abcabcd", 2},
                    Case{"AnotherRequestBehindALineEnd", 4, "YWJj\r\n" + post(4) + "YWJj", "abcabc", 2},
                    Case{"ThreeRequests", 4, "YWJj" + post(0) + post(4) + "YWJj", "abcabc", 3},
                    Case{"AnotherRequestStartsAnotherGroup", 6, "YWJjYW" + post(4) + "YWJj", "abcabc", 2},
                    Case{"ARequestOfAnotherTunnel", 4, "YWJj" + post(4, "d"), std::nullopt},
                    Case{"ARequestWithoutACookie", 4, "YWJjPOST / HTTP/1.0\r\n\r\n", std::nullopt},
                    Case{"ARequestInChunks", 4,
                         "YWJjPOST / HTTP/1.1\r\nx-sessioncookie: c\r\nTransfer-Encoding: chunked\r\n\r\n",
                         std::nullopt},
                    Case{"AnotherMethod", 4, "YWJjGET / HTTP/1.0\r\n\r\n", std::nullopt},
                    Case{"NoBase64", 32767, "OPTIONS * RTSP/1.0\r\n", std::nullopt}),
    [](const testing::TestParamInfo<Case>& tested) { return tested.param.name; });

TEST(PostReader, HeadOfALaterRequestIsBounded)
{
    PostReader reader("c", 0);
    std::string out;
    EXPECT_TRUE(reader.read("POST /" + std::string(PostReader::maxHead - 7, 'x'), out));
    EXPECT_FALSE(reader.read("x", out));
    EXPECT_FALSE(reader.read("YWJj", out));
    EXPECT_EQ(out, "");
}

TEST(PostReader, IsCompleteBetweenRequestsAlone)
{
    PostReader reader("c", 4);
    std::string out;
    EXPECT_FALSE(reader.complete());
    EXPECT_TRUE(reader.read("YWJj", out));
    EXPECT_TRUE(reader.complete());
    EXPECT_TRUE(reader.read("PO", out));
    EXPECT_FALSE(reader.complete());
    EXPECT_TRUE(reader.read("ST", out));
    EXPECT_TRUE(reader.read("YWJj", out));
    EXPECT_FALSE(reader.complete());
    EXPECT_FALSE(PostReader("c", std::nullopt).complete());
    EXPECT_TRUE(PostReader("c", 0).complete());
}

}  // namespace
}  // namespace refhost

#include "refhost/net/websocket/WebSocketFrames.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "tests/refhost/net/websocket/WebSocketPeer.h"

namespace refhost
{
namespace
{

using test::WebSocketPeer;

constexpr int none = 0;

struct Case
{
    const char* name;
    std::string bytes;
    std::string payload;
    std::string pongs;     ///< their payloads together
    int closeCode = none;  ///< of the close frame sent; `none`: not sent
    bool closed = false;   ///< by the client

    friend std::ostream& operator<<(std::ostream& out, const Case& tested)
    {
        return out << tested.name;
    }
};

std::string part(int opcode, const std::string& payload, bool final)
{
    return WebSocketPeer::bytesOf({opcode, payload, final});
}

class WebSocketFramesTable : public testing::TestWithParam<Case>
{
};

TEST_P(WebSocketFramesTable, IsTheSameInPartsOfAnySize)
{
    const std::string& bytes = GetParam().bytes;
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{2}, std::size_t{3}, std::size_t{5}, std::size_t{100}, bytes.size()})
    {
        WebSocketFrames frames;
        std::string payload;
        std::string answers;
        for (std::size_t at = 0; at < bytes.size(); at += size)
        {
            frames.read(std::string_view(bytes).substr(at, size), payload, answers);
        }
        EXPECT_EQ(payload, GetParam().payload) << size;
        std::string pongs;
        int closeCode = none;
        while (const auto answer = WebSocketPeer::cut(answers))
        {
            ASSERT_EQ(closeCode, none) << "close is the last frame";
            if (answer->opcode == WebSocketPeer::pong)
            {
                pongs += answer->payload;
                continue;
            }
            ASSERT_EQ(answer->opcode, WebSocketPeer::close);
            closeCode = answer->payload.size() < 2 ? 1005
                                                   : static_cast<unsigned char>(answer->payload[0]) << 8 |
                                                         static_cast<unsigned char>(answer->payload[1]);
        }
        EXPECT_EQ(answers, "");
        EXPECT_EQ(pongs, GetParam().pongs);
        EXPECT_EQ(closeCode, GetParam().closeCode);
        EXPECT_EQ(frames.closedByPeer(), GetParam().closed);
        EXPECT_EQ(frames.reads(), GetParam().closeCode == none);
        EXPECT_EQ(frames.sends(), GetParam().closeCode == none);
    }
}

TEST_P(WebSocketFramesTable, APrefixGivesAPrefix)
{
    const std::string& bytes = GetParam().bytes;
    for (std::size_t size = 0; size < std::min<std::size_t>(bytes.size(), 1000); ++size)
    {
        WebSocketFrames frames;
        std::string payload;
        std::string answers;
        frames.read(std::string_view(bytes).substr(0, size), payload, answers);
        EXPECT_EQ(payload, GetParam().payload.substr(0, payload.size()));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Frames, WebSocketFramesTable,
    testing::Values(
        Case{"ABinaryMessage", WebSocketPeer::frame(WebSocketPeer::binary, "abc"), "abc", ""},
        Case{"ATextMessage", WebSocketPeer::frame(WebSocketPeer::text, "abc"), "abc", ""},
        Case{"AnEmptyMessage", WebSocketPeer::frame(WebSocketPeer::binary, ""), "", ""},
        Case{"TwoMessages",
             WebSocketPeer::frame(WebSocketPeer::binary, "abc") +
                 WebSocketPeer::frame(WebSocketPeer::binary, "de"),
             "abcde", ""},
        Case{"AMessageOf126Bytes", WebSocketPeer::frame(WebSocketPeer::binary, std::string(126, 'x')),
             std::string(126, 'x'), ""},
        Case{"ALargeMessage", WebSocketPeer::frame(WebSocketPeer::binary, std::string(70000, 'x')),
             std::string(70000, 'x'), ""},
        Case{"AMessageInParts",
             part(WebSocketPeer::binary, "ab", false) + part(WebSocketPeer::continuation, "c", false) +
                 part(WebSocketPeer::continuation, "d", true),
             "abcd", ""},
        Case{"APingWithinAMessage",
             part(WebSocketPeer::binary, "ab", false) + WebSocketPeer::frame(WebSocketPeer::ping, "p") +
                 part(WebSocketPeer::continuation, "c", true),
             "abc", "p"},
        Case{"TwoPings",
             WebSocketPeer::frame(WebSocketPeer::ping, "p") + WebSocketPeer::frame(WebSocketPeer::ping, "q"),
             "", "pq"},
        Case{"APong", WebSocketPeer::frame(WebSocketPeer::pong, "x"), "", ""},
        Case{"AClose",
             WebSocketPeer::frame(WebSocketPeer::close, std::string("\x03\xe8", 2)) +
                 WebSocketPeer::frame(WebSocketPeer::binary, "x"),
             "", "", 1000, true},
        Case{"ACloseWithoutAReason", WebSocketPeer::frame(WebSocketPeer::close, ""), "", "", 1005, true},
        Case{"ACloseWithAForbiddenCode",
             WebSocketPeer::frame(WebSocketPeer::close, std::string("\x03\xed", 2)), "", "", 1002},
        Case{"NoMask", WebSocketPeer::bytesOf({WebSocketPeer::binary, "abc", true, false}), "", "", 1002},
        Case{"AReservedBit", WebSocketPeer::bytesOf({WebSocketPeer::binary, "abc", true, true, 4}), "", "",
             1002},
        Case{"AReservedOpcode", WebSocketPeer::frame(3, "abc"), "", "", 1002},
        Case{"AContinuationOfNothing", WebSocketPeer::frame(WebSocketPeer::continuation, "abc"), "", "",
             1002},
        Case{"AMessageWithinAMessage",
             part(WebSocketPeer::binary, "ab", false) + WebSocketPeer::frame(WebSocketPeer::binary, "c"),
             "ab", "", 1002},
        Case{"ATextThatIsNoUtf8", WebSocketPeer::frame(WebSocketPeer::text, "\xff"), "", "", 1007},
        Case{"AFrameThatIsTooLarge",
             WebSocketPeer::frame(WebSocketPeer::binary, std::string(WebSocketFrames::maxFrame + 1, 'x')), "",
             "", 1009}),
    [](const testing::TestParamInfo<Case>& tested) { return tested.param.name; });

TEST(WebSocketFrames, LongOrFragmentedControlFramesEndTheConnection)
{
    for (const std::string& bytes : {WebSocketPeer::frame(WebSocketPeer::ping, std::string(126, 'x')),
                                     part(WebSocketPeer::ping, "x", false)})
    {
        WebSocketFrames frames;
        std::string payload;
        std::string answers;
        frames.read(bytes, payload, answers);
        EXPECT_FALSE(frames.reads());
        EXPECT_FALSE(frames.closedByPeer());
    }
}

TEST(WebSocketFrames, SizesOfMessagesAreWrittenAsShortAsPossible)
{
    const auto header = [](std::size_t size)
    {
        std::string out;
        WebSocketFrames::append(std::string(size, 'x'), out);
        return out.substr(0, out.size() - size);
    };
    EXPECT_EQ(header(0), std::string("\x82\x00", 2));
    EXPECT_EQ(header(125), "\x82\x7d");
    EXPECT_EQ(header(126), std::string("\x82\x7e\x00\x7e", 4));
    EXPECT_EQ(header(65535), "\x82\x7e\xff\xff");
    EXPECT_EQ(header(65536), std::string("\x82\x7f\0\0\0\0\0\x01\0\0", 10));
}

TEST(WebSocketFrames, ACloseIsSentOnce)
{
    WebSocketFrames frames;
    std::string out;
    frames.close(WebSocketFrames::End::goingAway, out);
    EXPECT_EQ(out, "\x88\x02\x03\xe9");
    EXPECT_FALSE(frames.sends());
    frames.close(WebSocketFrames::End::normal, out);
    EXPECT_EQ(out.size(), 4u);
}

TEST(WebSocketFramesTextTest, TextsAndBytesDifferInTheirOpcodeAlone)
{
    std::string text;
    std::string bytes;
    WebSocketFrames::append("{}", text, WebSocketFrames::Kind::text);
    WebSocketFrames::append("{}", bytes);
    EXPECT_EQ(text, "\x81\x02{}");
    EXPECT_EQ(bytes, "\x82\x02{}");
}

}  // namespace
}  // namespace refhost

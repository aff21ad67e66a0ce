#include "refhost/capture/CameraMessages.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace refhost
{
namespace
{

using Next = CameraMessages::Next;

class CameraMessagesTest : public testing::Test
{
protected:
    void give(const std::string& bytes)
    {
        messages.append(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }

    CameraMessages messages;
};

TEST_F(CameraMessagesTest, AnswerIsTakenWithItsBody)
{
    give("RTSP/1.0 200 OK\r\nCSeq: 3\r\nContent-Length:  4 \r\n\r\nbody");
    ASSERT_EQ(messages.next(), Next::message);
    EXPECT_EQ(messages.message().status, 200);
    EXPECT_EQ(messages.message().header("cseq"), "3");
    EXPECT_EQ(messages.message().header("session"), "");
    EXPECT_EQ(messages.message().body, "body");
    EXPECT_EQ(messages.next(), Next::incomplete);
}

TEST_F(CameraMessagesTest, BytesOneByOneGiveTheSame)
{
    const std::string bytes = std::string("$\0\0\2ab\r\nRTSP/1.0 401 No\nCSeq: 1\n\n", 33) +
                              "OPTIONS * RTSP/1.0\r\nCSeq: 9\r\nContent-Length: 1\r\n\r\nx";
    std::vector<Next> found;
    for (const char byte : bytes)
    {
        give(std::string(1, byte));
        const Next next = messages.next();
        if (next != Next::incomplete)
        {
            found.push_back(next);
        }
    }
    EXPECT_EQ(found, (std::vector<Next>{Next::packet, Next::message, Next::message}));
    EXPECT_EQ(messages.message().status, 0);
    EXPECT_EQ(messages.message().body, "x");
}

TEST_F(CameraMessagesTest, PacketsAreTakenWithTheirChannel)
{
    give(std::string("$\3\0\3abc$\0\0\0", 11));
    ASSERT_EQ(messages.next(), Next::packet);
    EXPECT_EQ(messages.channel(), 3);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(messages.packet()), messages.packetSize()), "abc");
    ASSERT_EQ(messages.next(), Next::packet);
    EXPECT_EQ(messages.packetSize(), 0U);
}

TEST_F(CameraMessagesTest, EndlessHeadersAreNotKept)
{
    give("RTSP/1.0 200 OK\r\n");
    std::size_t given = 0;
    while (messages.next() == Next::incomplete)
    {
        give("X-Header: " + std::string(1000, 'x') + "\r\n");
        ASSERT_LT(given += 1012, 2 * CameraMessages::maxHeaderBytes);
    }
    EXPECT_EQ(messages.next(), Next::broken);
}

TEST_F(CameraMessagesTest, EndlessLineIsNotKept)
{
    give("RTSP/1.0 200 " + std::string(CameraMessages::maxHeaderBytes, 'x'));
    EXPECT_EQ(messages.next(), Next::broken);
}

TEST_F(CameraMessagesTest, ManySmallHeadersAreRefused)
{
    std::string text = "RTSP/1.0 200 OK\r\n";
    for (std::size_t i = 0; i <= CameraMessages::maxHeaders; ++i)
    {
        text += "a:b\r\n";
    }
    give(text + "\r\n");
    EXPECT_EQ(messages.next(), Next::broken);
}

TEST_F(CameraMessagesTest, BodiesBeyondTheLimitAreRefusedAtOnce)
{
    for (const char* size : {"262145", "4294967297", "99999999999999999999", "-1", "1x"})
    {
        CameraMessages fresh;
        const std::string text = std::string("RTSP/1.0 200 OK\r\nContent-Length: ") + size + "\r\n\r\n";
        fresh.append(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
        EXPECT_EQ(fresh.next(), Next::broken) << size;
    }
}

TEST_F(CameraMessagesTest, WhatIsNeitherMessageNorPacketIsBroken)
{
    for (const char* text :
         {"\1", "HTTP/1.1 200 OK\r\n\r\n", "RTSP/1.0 9 x\r\n\r\n", "RTSP/1.0\r\n\r\n", "abc\r\n\r\n"})
    {
        CameraMessages fresh;
        fresh.append(reinterpret_cast<const std::uint8_t*>(text), std::string(text).size());
        EXPECT_EQ(fresh.next(), Next::broken) << text;
    }
}

TEST_F(CameraMessagesTest, RandomBytesComeToAnEnd)
{
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i)
    {
        CameraMessages fresh;
        for (int block = 0; block < 20; ++block)
        {
            std::string bytes(random() % 300, '\0');
            for (char& byte : bytes)
            {
                byte = "$RTSP/1.0 200\r\n\r\nCSeq: \0\1"[random() % 26];
            }
            fresh.append(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            for (int taken = 0; taken < 400; ++taken)
            {
                const Next next = fresh.next();
                if (next == Next::incomplete || next == Next::broken)
                {
                    break;
                }
            }
        }
    }
}

}  // namespace
}  // namespace refhost

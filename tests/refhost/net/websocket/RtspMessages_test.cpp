#include "refhost/net/websocket/RtspMessages.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

TEST(RtspMessages, AResponseEndsBehindItsBody)
{
    const std::string empty = "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n";
    const std::string described = "RTSP/1.0 200 OK\r\nCSeq: 1\r\ncontent-length:  5\r\nX: y\r\n\r\nv=0\r\n";
    EXPECT_EQ(RtspMessages::firstSize(empty), empty.size());
    EXPECT_EQ(RtspMessages::firstSize(empty + described), empty.size());
    EXPECT_EQ(RtspMessages::firstSize(described + empty), described.size());
    EXPECT_EQ(RtspMessages::firstSize(described + "$"), described.size());
}

TEST(RtspMessages, AFrameHasItsSize)
{
    const std::string frame("$\0\0\x03xyz", 7);
    EXPECT_EQ(RtspMessages::firstSize(frame), 7u);
    EXPECT_EQ(RtspMessages::firstSize(frame + frame), 7u);
    EXPECT_EQ(RtspMessages::firstSize(std::string("$\x01\0\0", 4) + frame), 4u);
}

TEST(RtspMessages, WhatIsNotWholeIsTakenAsItIs)
{
    for (const std::string& text :
         {std::string("x"), std::string("$"), std::string("$\0\0", 3), std::string("$\0\x01\0abc", 7),
          std::string("RTSP/1.0 200 OK\r\nCSeq: 1\r\n"),
          std::string("RTSP/1.0 200 OK\r\nContent-Length: 9\r\n\r\nabc"),
          std::string("RTSP/1.0 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\n"),
          std::string("RTSP/1.0 200 OK\r\nContent-Length:\r\n\r\n")})
    {
        EXPECT_EQ(RtspMessages::firstSize(text), text.size()) << text;
    }
}

}  // namespace
}  // namespace refhost

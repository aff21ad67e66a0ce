#include "refhost/net/http/HttpRequestHead.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

TEST(HttpRequestHead, HoldsWhatARequestSays)
{
    const auto head = HttpRequestHead::parse(
        "POST /orv/live/1/0?x=y HTTP/1.0\r\nX-SessionCookie: abc def\r\nContent-Length: 32767\r\n"
        "Connection: keep-alive, Upgrade\r\nconnection:x\r\n\r\n");
    ASSERT_TRUE(head);
    EXPECT_EQ(head->method, "POST");
    EXPECT_EQ(head->target, "/orv/live/1/0?x=y");
    EXPECT_EQ(head->version, 10);
    EXPECT_EQ(head->field("x-sessioncookie"), "abc def");
    EXPECT_TRUE(head->has("X-SESSIONCOOKIE"));
    EXPECT_FALSE(head->has("Host"));
    EXPECT_EQ(head->field("Host"), "");
    EXPECT_EQ(head->contentLength, 32767u);
    EXPECT_FALSE(head->chunked);
    for (const char* token : {"keep-alive", "upgrade", "X"})
    {
        EXPECT_TRUE(head->lists("Connection", token)) << token;
    }
    EXPECT_FALSE(head->lists("Connection", "keep"));
}

TEST(HttpRequestHead, KnowsABodyInChunks)
{
    const auto head = HttpRequestHead::parse("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n");
    ASSERT_TRUE(head);
    EXPECT_TRUE(head->chunked);
    EXPECT_FALSE(head->contentLength);
    EXPECT_EQ(head->version, 11);
}

TEST(HttpRequestHead, NothingElseIsOne)
{
    for (const char* text :
         {"", "GET", "GET / HTTP/1.1\r\n", "GET / HTTP/1.1\r\nA: b\r\n", "GET / HTTP/1.1\n\n",
          "GET / HTTP/2.0\r\n\r\n", "GET / RTSP/1.0\r\n\r\n", "GET  / HTTP/1.1\r\n\r\n",
          "GET / HTTP/1.1\r\nA b\r\n\r\n", "GET / HTTP/1.1\r\nA\x01: b\r\n\r\n",
          "GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n",
          "GET / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n", "GET / HTTP/1.1\r\n\r\nmore"})
    {
        EXPECT_FALSE(HttpRequestHead::parse(text)) << text;
    }
}

TEST(HttpRequestHead, NoPrefixOfAHeadIsOne)
{
    const std::string whole =
        "GET / HTTP/1.0\r\nUser-Agent: a player\r\nx-sessioncookie: 0123456789\r\nAccept: "
        "application/x-rtsp-tunnelled\r\n\r\n";
    EXPECT_TRUE(HttpRequestHead::parse(whole));
    for (std::size_t size = 0; size < whole.size(); ++size)
    {
        EXPECT_FALSE(HttpRequestHead::parse(whole.substr(0, size))) << size;
    }
}

}  // namespace
}  // namespace refhost

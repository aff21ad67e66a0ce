#include "refhost/net/websocket/WebSocketHandshake.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

constexpr const char* line = "GET /any HTTP/1.1\r\n";
constexpr const char* upgrade = "Upgrade: websocket\r\nConnection: keep-alive, Upgrade\r\n";
constexpr const char* key = "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";
constexpr const char* version = "Sec-WebSocket-Version: 13\r\n";
constexpr const char* protocol = "Sec-WebSocket-Protocol: chat, rtsp.onvif.org\r\n";

HttpRequestHead head(const std::string& text)
{
    const auto parsed = HttpRequestHead::parse(text + "\r\n");
    EXPECT_TRUE(parsed);
    return parsed.value_or(HttpRequestHead());
}

TEST(WebSocketHandshake, ResponseHasTheKeysAnswerAndTheProtocol)
{
    const HttpRequestHead request = head(std::string(line) + upgrade + key + version + protocol);
    EXPECT_TRUE(WebSocketHandshake::isRequested(request));
    EXPECT_EQ(WebSocketHandshake::refusal(request), "");
    EXPECT_EQ(WebSocketHandshake::response(request),
              "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
              "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n"
              "Sec-WebSocket-Protocol: rtsp.onvif.org\r\n\r\n");
}

TEST(WebSocketHandshake, WhatIsMissingIsRefused)
{
    const auto status = [](const std::string& text)
    { return WebSocketHandshake::refusal(head(text)).substr(9, 3); };
    EXPECT_EQ(status(std::string(line) + upgrade + version + protocol), "400");
    EXPECT_EQ(status(std::string(line) + upgrade + "Sec-WebSocket-Key: YWJj\r\n" + version + protocol),
              "400");
    EXPECT_EQ(status(std::string(line) + "Upgrade: websocket\r\n" + key + version + protocol), "400");
    EXPECT_EQ(status(std::string("GET / HTTP/1.0\r\n") + upgrade + key + version + protocol), "400");
    EXPECT_EQ(status(std::string("POST / HTTP/1.1\r\n") + upgrade + key + version + protocol), "400");
    EXPECT_EQ(status(std::string(line) + upgrade + key + version), "400");
    EXPECT_EQ(status(std::string(line) + upgrade + key + version + "Sec-WebSocket-Protocol: chat\r\n"),
              "400");
    EXPECT_EQ(status(std::string(line) + upgrade + key + protocol), "426");
    EXPECT_EQ(status(std::string(line) + upgrade + key + "Sec-WebSocket-Version: 8\r\n" + protocol), "426");
    EXPECT_FALSE(WebSocketHandshake::isRequested(head(line)));
    EXPECT_FALSE(WebSocketHandshake::isRequested(head(std::string(line) + "Upgrade: h2c\r\n")));
}

TEST(WebSocketHandshake, PagesOfOtherHostsAreKnown)
{
    const auto same = [](const std::string& host, const std::string& origin) {
        return WebSocketHandshake::isSameHost(
            head(line + ("Host: " + host) + "\r\nOrigin: " + origin + "\r\n"));
    };
    EXPECT_TRUE(same("camera:8554", "http://camera"));
    EXPECT_TRUE(same("camera", "https://Camera:8080"));
    EXPECT_TRUE(same("[2001:db8::1]:8554", "http://[2001:db8::1]:80"));
    EXPECT_FALSE(same("[2001:db8::1]:8554", "http://[2001:db8::2]"));
    EXPECT_FALSE(same("camera:8554", "http://camera.example"));
    EXPECT_FALSE(same("camera:8554", "null"));
    EXPECT_FALSE(same("camera:8554", "camera"));
    EXPECT_FALSE(same("", "http://"));
    EXPECT_TRUE(WebSocketHandshake::isSameHost(head(std::string(line) + "Host: camera\r\n")))
        << "no page at all";
}

}  // namespace
}  // namespace refhost

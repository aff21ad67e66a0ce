#include "refhost/ingest/client/CameraUrl.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

struct Case
{
    const char* text;
    const char* host;
    int port;
    const char* target;
    const char* user;
    const char* password;
    const char* authority;
};

TEST(CameraUrl, IsReadWithWhatPeopleWriteInIt)
{
    const Case cases[] = {
        {"rtsp://h", "h", 554, "/", "", "", "rtsp://h"},
        {"RTSP://h/", "h", 554, "/", "", "", "rtsp://h"},
        {"rtsp://h:554/a/b?c=d", "h", 554, "/a/b?c=d", "", "", "rtsp://h"},
        {"rtsp://h:8554?c", "h", 8554, "/?c", "", "", "rtsp://h:8554"},
        {"rtsp://h:/a#b", "h", 554, "/a", "", "", "rtsp://h"},
        {"rtsp://u:p@h/a", "h", 554, "/a", "u", "p", "rtsp://h"},
        {"rtsp://u@h/a", "h", 554, "/a", "u", "", "rtsp://h"},
        {"rtsp://u:@h/a", "h", 554, "/a", "u", "", "rtsp://h"},
        {"rtsp://u:p%40%2fq%3A@h/a", "h", 554, "/a", "u", "p@/q:", "rtsp://h"},
        {"rtsp://u:100%@h/a", "h", 554, "/a", "u", "100%", "rtsp://h"},
        {"rtsp://u:a@b@h/a", "h", 554, "/a", "u", "a@b", "rtsp://h"},
        {"rtsp://u:p:q@h/a", "h", 554, "/a", "u", "p:q", "rtsp://h"},
        {"rtsp://[2001:db8::1]:8554/a", "2001:db8::1", 8554, "/a", "", "", "rtsp://[2001:db8::1]:8554"},
        {"rtsp://[::1]", "::1", 554, "/", "", "", "rtsp://[::1]"},
        {"rtsps://u:p@h/a", "h", 322, "/a", "u", "p", "rtsps://h"},
        {"RTSPS://h:554/a", "h", 554, "/a", "", "", "rtsps://h:554"},
        {"rtsp://h:322/a", "h", 322, "/a", "", "", "rtsp://h:322"},
        {"rtsp://h/a b\tc\x80", "h", 554, "/a%20b%09c%80", "", "", "rtsp://h"},
    };
    for (const Case& each : cases)
    {
        const auto url = CameraUrl::parse(each.text);
        ASSERT_TRUE(url) << each.text;
        EXPECT_EQ(url->host, each.host) << each.text;
        EXPECT_EQ(url->port, each.port) << each.text;
        EXPECT_EQ(url->target, each.target) << each.text;
        EXPECT_EQ(url->user, each.user) << each.text;
        EXPECT_EQ(url->password, each.password) << each.text;
        EXPECT_EQ(url->authority(), each.authority) << each.text;
    }
}

TEST(CameraUrl, WhatNamesNoCameraIsRefused)
{
    for (const char* text : {"",
                             "rtsp",
                             "rtsp:",
                             "rtsp:/h",
                             "rtsp://",
                             "rtsp:///a",
                             "rtsp://:554",
                             "rtsp://@/a",
                             "rtsp://h:0/",
                             "rtsp://h:65536/",
                             "rtsp://h:x/",
                             "rtsp://h:-1/",
                             "rtsp://[::1",
                             "rtsp://[]/",
                             "rtsp://[::1]x/",
                             "rtspss://h/",
                             "http://h/",
                             "rtsp://h h/",
                             "rtsp://h\r\nX: y/",
                             "h"})
    {
        EXPECT_FALSE(CameraUrl::parse(text)) << text;
    }
    EXPECT_TRUE(CameraUrl::parse("rtsp://h/" + std::string(CameraUrl::maxSize - 9, 'x')));
    EXPECT_FALSE(CameraUrl::parse("rtsp://h/" + std::string(CameraUrl::maxSize - 8, 'x')));
}

TEST(CameraUrl, EveryPrefixIsReadOrRefused)
{
    const std::string text = "rtsp://us%65r:pa%73s@[2001:db8::1]:8554/path/to?query=a%20b#fragment";
    for (std::size_t size = 0; size <= text.size(); ++size)
    {
        const auto url = CameraUrl::parse(std::string_view(text).substr(0, size));
        EXPECT_TRUE(!url || !url->host.empty());
    }
}

}  // namespace
}  // namespace refhost

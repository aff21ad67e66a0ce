#include "refhost/rtsp/message/RtspUrl.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

struct GoodUrl
{
    const char* text;
    const char* base;
    const char* presentation;
    const char* track;
};

const GoodUrl goodUrls[] = {
    {"rtsp://h:554/orv/live/1/0", "rtsp://h:554/orv/live/1/0", "orv/live/1/0", ""},
    {"rtsp://h/orv/live/1/0/", "rtsp://h/orv/live/1/0", "orv/live/1/0", ""},
    {"rtsp://h/orv/live/1/0//", "rtsp://h/orv/live/1/0", "orv/live/1/0", ""},
    {"rtsp://h/orv/live/1/0/trackID=1", "rtsp://h/orv/live/1/0", "orv/live/1/0", "trackID=1"},
    {"rtsp://h/orv/live/1/0//trackID=1/", "rtsp://h/orv/live/1/0", "orv/live/1/0", "trackID=1"},
    {"rtsp://h/orv/live/1/0?user=a&x=/y", "rtsp://h/orv/live/1/0", "orv/live/1/0", ""},
    {"rtsp://h/orv/live/1/0/trackID=1?x=y", "rtsp://h/orv/live/1/0", "orv/live/1/0", "trackID=1"},
    {"rtsp://h/orv/live/1/0?x=y/trackID=1", "rtsp://h/orv/live/1/0", "orv/live/1/0", "trackID=1"},
    {"rtsp://u:p@h/orv/live/1/0", "rtsp://h/orv/live/1/0", "orv/live/1/0", ""},
    {"rtsp://u:p@ss@h/orv/live/1/0", "rtsp://h/orv/live/1/0", "orv/live/1/0", ""},
    {"rtsp://[::1]:8554/orv/live/1/0", "rtsp://[::1]:8554/orv/live/1/0", "orv/live/1/0", ""},
    {"RTSP://h/orv/live/1/0", "RTSP://h/orv/live/1/0", "orv/live/1/0", ""},
    {"rtspu://h/a", "rtspu://h/a", "a", ""},
    {"rtsps://h/a", "rtsps://h/a", "a", ""},
    {"rtsp://h", "rtsp://h", "", ""},
    {"rtsp://h/", "rtsp://h", "", ""},
    {"rtsp://h?x", "rtsp://h", "", ""},
    {"rtsp://h/trackID=1", "rtsp://h", "", "trackID=1"},
    {"/orv/live/1/0/trackID=0", "/orv/live/1/0", "orv/live/1/0", "trackID=0"},
    {"rtsp://h/o%72v/l%69ve/1/0/track%49D=0", "rtsp://h/o%72v/l%69ve/1/0/track%49D=0",
     "orv/live/1/0/trackID=0", ""},
    {"rtsp://h/a%20b/trackID=%31", "rtsp://h/a%20b", "a b", "trackID=1"},
    {"rtsp://h/a#fragment", "rtsp://h/a", "a", ""},
};

TEST(RtspUrl, IsTakenApart)
{
    for (const GoodUrl& good : goodUrls)
    {
        const auto url = RtspUrl::parse(good.text);
        ASSERT_TRUE(url) << good.text;
        EXPECT_FALSE(url->server) << good.text;
        EXPECT_EQ(url->base, good.base) << good.text;
        EXPECT_EQ(url->presentation, good.presentation) << good.text;
        EXPECT_EQ(url->track, good.track) << good.text;
    }
}

TEST(RtspUrl, EveryPrefixIsRefusedOrTakenApartWithoutHarm)
{
    for (const GoodUrl& good : goodUrls)
    {
        const std::string text = good.text;
        for (std::size_t size = 0; size < text.size(); ++size)
        {
            const auto url = RtspUrl::parse(text.substr(0, size));
            if (url)
            {
                EXPECT_LE(url->presentation.size(), text.size());
            }
        }
    }
}

TEST(RtspUrl, AParameterOfItsQueryIsFound)
{
    const auto has = [](const std::string& behind)
    { return RtspUrl::parse("rtsp://h/orv/live/1/0" + behind)->has("security", "srtp"); };
    EXPECT_TRUE(has("?security=srtp"));
    EXPECT_TRUE(has("?a=b&security=srtp"));
    EXPECT_TRUE(has("?&security=srtp&c"));
    EXPECT_TRUE(has("?security=srtp/trackID=1"));
    EXPECT_TRUE(has("/trackID=1?security=srtp#x"));
    EXPECT_FALSE(has(""));
    EXPECT_FALSE(has("?"));
    EXPECT_FALSE(has("?security=srtpx"));
    EXPECT_FALSE(has("?xsecurity=srtp"));
    EXPECT_FALSE(has("?security"));
    EXPECT_FALSE(has("?security=tls"));
}

TEST(RtspUrl, RefusesWhatIsNoUrlOfOurs)
{
    for (const char* const text : {"", "orv/live/1/0", "http://h/orv/live/1/0", "rtsp:/h/a", "rtsp:///a",
                                   "rtsp://u@/a", "**", "rtsp://h/%", "rtsp://h/%4", "rtsp://h/%zz",
                                   "rtsp://h/a%00b", "rtsp://h/a%0d%0ab", "rtsp://h/a/trackID=%7f", "://h/a"})
    {
        EXPECT_FALSE(RtspUrl::parse(text)) << text;
    }
}

TEST(RtspUrl, AsteriskNamesTheServer)
{
    const auto url = RtspUrl::parse("*");
    ASSERT_TRUE(url);
    EXPECT_TRUE(url->server);
}

TEST(RtspUrl, ADigestResponseIsGoodForItsUrlAndOnesOfAPresentationForItsTracks)
{
    const std::string url = "rtsp://h/orv/live/1/0";
    const std::string track = url + "/trackID=0";
    EXPECT_TRUE(RtspUrl::authorizes(url, url + "/"));
    EXPECT_TRUE(RtspUrl::authorizes(url + "/?x=y", url));
    EXPECT_TRUE(RtspUrl::authorizes(track, url));
    EXPECT_TRUE(RtspUrl::authorizes(track, track));
    EXPECT_FALSE(RtspUrl::authorizes(url, track));
    EXPECT_FALSE(RtspUrl::authorizes(track, url + "/trackID=1"));
    EXPECT_FALSE(RtspUrl::authorizes("rtsp://h/orv/live/1/1", url));
    EXPECT_FALSE(RtspUrl::authorizes("*", url));
    EXPECT_FALSE(RtspUrl::authorizes("no URL", "no URL"));
}

TEST(RtspUrl, AnEncryptedConnectionsBaseIsRtsps)
{
    for (const auto& [text, base] : {std::pair("rtsp://h:554/orv/live/1/0", "rtsps://h:554/orv/live/1/0"),
                                     std::pair("RTSP://h/orv", "rtsps://h/orv"),
                                     std::pair("rtsps://h/orv", "rtsps://h/orv"), std::pair("/orv", "/orv")})
    {
        auto url = RtspUrl::parse(text);
        ASSERT_TRUE(url.has_value()) << text;
        url->setEncrypted();
        EXPECT_EQ(url->base, base);
    }
}

}  // namespace
}  // namespace refhost

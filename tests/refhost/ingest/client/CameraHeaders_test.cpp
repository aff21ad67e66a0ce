#include "refhost/ingest/client/CameraHeaders.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

TEST(CameraHeaders, SessionTimeoutsAreBounded)
{
    struct Case
    {
        const char* value;
        const char* id;
        Duration timeout;
        Duration keepAlive;
    };
    const Case cases[] = {
        {"1", "1", 60s, 30s},
        {"1;timeout=60", "1", 60s, 30s},
        {" ab.c$-_ ; TIMEOUT = 20 ; x", "ab.c$-_", 20s, 10s},
        {"\"1\";timeout=\"20\"", "1", 20s, 10s},
        {"1;timeout=0", "1", 60s, 30s},
        {"1;timeout=-5", "1", 60s, 30s},
        {"1;timeout=x", "1", 60s, 30s},
        {"1;timeout=1", "1", 1s, 1s},
        {"1;timeout=3600", "1", 3600s, 30s},
        {"1;timeout=9223372036854775807", "1", 24h, 30s},
        {"1;timeout=99999999999999999999", "1", 60s, 30s},
        {"1;timeout=20.5", "1", 20s, 10s},
        {"", "", 60s, 30s},
        {";timeout=20", "", 20s, 10s},
        {"a b\r", "ab", 60s, 30s},
    };
    for (const Case& each : cases)
    {
        const SessionReply reply = SessionReply::read(each.value);
        EXPECT_EQ(reply.id, each.id) << each.value;
        EXPECT_EQ(reply.timeout, each.timeout) << each.value;
        EXPECT_EQ(reply.keepAliveInterval(), each.keepAlive) << each.value;
    }
    EXPECT_LE(SessionReply::read(std::string(10'000, 'x')).id.size(), 512U);
}

TEST(CameraHeaders, RtpInfoIsReadHoweverItIsWritten)
{
    const auto infos =
        RtpInfo::read(" url=rtsp://h/a ; seq = 65535;rtptime=4294967295 , seq=65536;rtptime=-1,url=\"b\";x,");
    ASSERT_EQ(infos.size(), 3U);
    EXPECT_EQ(infos[0].url, "rtsp://h/a");
    EXPECT_EQ(infos[0].sequence, 65535);
    EXPECT_EQ(infos[0].timestamp, 4294967295U);
    EXPECT_EQ(infos[1].sequence, std::nullopt);
    EXPECT_EQ(infos[1].timestamp, std::nullopt);
    EXPECT_EQ(infos[2].url, "b");
    EXPECT_EQ(RtpInfo::read(std::string(1'000, ',')).size(), RtpInfo::maxParts);
}

}  // namespace
}  // namespace refhost

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

TEST(CameraHeaders, TransportsAreReadHoweverTheyAreWritten)
{
    using Kind = TransportReply::Kind;
    struct Case
    {
        const char* value;
        Kind kind;
        int serverPort;
        int serverReportPort;
        const char* source;
    };
    const Case cases[] = {
        {"", Kind::asRequested, 0, 0, ""},
        {"RTP/AVP;unicast;client_port=5000-5001;server_port=6970-6971", Kind::udp, 6970, 6971, ""},
        {" rtp/avp/udp ; SERVER_PORT = 6970 ; source=192.0.2.1", Kind::udp, 6970, 0, "192.0.2.1"},
        {"RTP/AVPF;server_port=\"1-65535\";source=2001:db8::1", Kind::udp, 1, 65535, "2001:db8::1"},
        {"RTP/AVP;server_port=0-1;source=camera.example", Kind::udp, 0, 0, ""},
        {"RTP/AVP;server_port=5000-65536", Kind::udp, 5000, 0, ""},
        {"RTP/AVP;server_port=65536-5000", Kind::udp, 0, 0, ""},
        {"RTP/AVP;server_port=-5000-5001", Kind::udp, 0, 0, ""},
        {"RTP/AVP;server_port=", Kind::udp, 0, 0, ""},
        {"RTP/AVP/TCP;unicast", Kind::interleaved, 0, 0, ""},
        {"RTP/AVP;interleaved=0-1", Kind::interleaved, 0, 0, ""},
        {"RTP/AVP;multicast;destination=239.1.2.3", Kind::other, 0, 0, ""},
        {"RTP/SAVP;unicast", Kind::other, 0, 0, ""},
        {"RTP/AVP;unicast,RTP/AVP/TCP", Kind::udp, 0, 0, ""},
        {";;=;", Kind::other, 0, 0, ""},
    };
    for (const Case& each : cases)
    {
        SCOPED_TRACE(each.value);
        const TransportReply reply = TransportReply::read(each.value);
        EXPECT_EQ(reply.kind, each.kind);
        EXPECT_EQ(reply.serverPort.value_or(0), each.serverPort);
        EXPECT_EQ(reply.serverReportPort.value_or(0), each.serverReportPort);
        EXPECT_EQ(reply.source.value_or(SocketAddress()).text(), each.source);
    }
    const std::string whole =
        "RTP/AVP;unicast;client_port=1-2;server_port=3-4;interleaved=5-6;source=192.0.2.1";
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        const TransportReply reply = TransportReply::read(std::string_view(whole).substr(0, size));
        EXPECT_GE(reply.serverPort.value_or(1), 1);
        EXPECT_GE(reply.channel.value_or(0), 0);
    }
}

}  // namespace
}  // namespace refhost

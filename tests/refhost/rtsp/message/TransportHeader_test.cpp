#include "refhost/rtsp/message/TransportHeader.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

std::string chosen(std::string_view header, bool multicast = false)
{
    const auto choice = TransportHeader::choose(header, multicast);
    if (!choice)
    {
        return "none";
    }
    const std::string secure = choice->secure ? "srtp " : "";
    if (choice->multicast)
    {
        return secure + "multicast";
    }
    if (choice->interleaved)
    {
        return secure + "tcp " + std::to_string(choice->rtpChannel) + "-" +
               std::to_string(choice->rtcpChannel);
    }
    return secure + "udp " + std::to_string(choice->rtpPort) + "-" + std::to_string(choice->rtcpPort);
}

struct HeaderCase
{
    const char* header;
    const char* chosen;
};

const HeaderCase headerCases[] = {
    {"RTP/AVP;unicast;client_port=5000-5001", "udp 5000-5001"},
    {"RTP/AVP/UDP;unicast;client_port=5000-5001", "udp 5000-5001"},
    {"RTP/AVP;client_port=5000-5001", "udp 5000-5001"},
    {"RTP/AVP;unicast;client_port=5000", "udp 5000-5001"},
    {"rtp/avp ; UNICAST ; Client_Port = 5000-5007 ; mode=play", "udp 5000-5007"},
    {"RTP/AVP;unicast;client_port=1024-65535", "udp 1024-65535"},
    {"RTP/AVP;unicast;destination=10.0.0.1;client_port=5000-5001;foo=bar", "udp 5000-5001"},
    {"RTP/AVP;unicast;client_port=5000-5001;mode=\"PLAY\"", "udp 5000-5001"},
    {"RTP/AVP;unicast;client_port=5000-5001;mode=\"RECORD,PLAY\"", "udp 5000-5001"},
    {"RTP/AVP/TCP;unicast;interleaved=0-1", "tcp 0-1"},
    {"RTP/AVP/TCP;interleaved=254-255", "tcp 254-255"},
    {"RTP/AVP/TCP;unicast;interleaved=6", "tcp 6-7"},
    {"RTP/AVP/TCP;unicast;interleaved=2-9", "tcp 2-9"},
    {"RTP/AVP/TCP;unicast", "tcp -1--1"},
    {"RTP/AVP/TCP", "tcp -1--1"},
    {"RTP/AVP/TCP;foo=\"a,b;c\";interleaved=2-3", "tcp 2-3"},
    {"RTP/SAVP;unicast;client_port=1-2, RTP/AVP;multicast ,RTP/AVP/TCP;interleaved=0-1", "tcp 0-1"},
    {"RTP/AVP;unicast;client_port=8000-8001,RTP/AVP/TCP;interleaved=0-1", "udp 8000-8001"},
    {",,RTP/AVP/TCP", "tcp -1--1"},
    {"", "none"},
    {"garbage", "none"},
    {"RTP/AVP", "none"},
    {"RTP/AVP;unicast", "none"},
    {"RTP/AVP;multicast;client_port=5000-5001", "none"},
    {"RTP/AVP;multicast;port=5000-5001;ttl=3", "none"},
    {"RTP/AVPF;unicast;client_port=5000-5001", "none"},
    {"RTP/SAVP;unicast;client_port=5000-5001", "srtp udp 5000-5001"},
    {"rtp/savp/udp;unicast;client_port=5000-5001", "srtp udp 5000-5001"},
    {"RTP/SAVP/TCP;unicast;interleaved=2-3", "srtp tcp 2-3"},
    {"RTP/AVP;unicast;client_port=8000-8001,RTP/SAVP;unicast;client_port=8000-8001", "udp 8000-8001"},
    {"RTP/SAVPF;unicast;client_port=5000-5001", "none"},
    {"RTP/AVPF;unicast;client_port=5000-5001", "none"},
    {"RTP/SAVP/SCTP;unicast;client_port=5000-5001", "none"},
    {"RTP/SAV", "none"},
    {"RAW/RAW/UDP;unicast;client_port=5000", "none"},
    {"RTP/AVP;unicast;client_port=5000-5001;mode=record", "none"},
    {"RTP/AVP;unicast;client_port=5000-5001;mode=\"RECORD\"", "none"},
    {"RTP/AVP;unicast;client_port=0-1", "none"},
    {"RTP/AVP;unicast;client_port=53-54", "none"},
    {"RTP/AVP;unicast;client_port=1023-1024", "none"},
    {"RTP/AVP;unicast;client_port=22-23,RTP/AVP/TCP;interleaved=0-1", "tcp 0-1"},
    {"RTP/AVP;unicast;client_port=65535", "none"},
    {"RTP/AVP;unicast;client_port=5001-5000", "none"},
    {"RTP/AVP;unicast;client_port=5000-5000", "none"},
    {"RTP/AVP;unicast;client_port=70000-70001", "none"},
    {"RTP/AVP;unicast;client_port=a-b", "none"},
    {"RTP/AVP;unicast;client_port=", "none"},
    {"RTP/AVP;unicast;client_port=-5", "none"},
    {"RTP/AVP;unicast;client_port=5000-", "none"},
    {"RTP/AVP;unicast;client_port=5000-5001-5002", "none"},
    {"RTP/AVP;unicast;client_port=99999999999999999999", "none"},
    {"RTP/AVP/TCP;interleaved=255", "none"},
    {"RTP/AVP/TCP;interleaved=256-257", "none"},
    {"RTP/AVP/TCP;interleaved=1-0", "none"},
    {"RTP/AVP/TCP;interleaved=x", "none"},
};

TEST(TransportHeader, PicksTheFirstAcceptableChoice)
{
    for (const HeaderCase& one : headerCases)
    {
        EXPECT_EQ(chosen(one.header), one.chosen) << one.header;
    }
}

TEST(TransportHeader, AChoiceThatIsNotAdmittedIsSkippedAndOneMayBeChanged)
{
    const auto choose = [](std::string_view header)
    {
        return TransportHeader::choose(header, false, 0,
                                       [](TransportChoice& choice)
                                       {
                                           choice.secure = true;
                                           return !choice.interleaved;
                                       });
    };
    const auto choice = choose("RTP/AVP/TCP,RTP/AVP;unicast;client_port=5000-5001");
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->rtpPort, 5000);
    EXPECT_TRUE(choice->secure);
    EXPECT_FALSE(choose("RTP/AVP/TCP"));
}

TEST(TransportHeader, ServersOwnPortsAreRefused)
{
    const auto taken = [](const std::string& ports)
    { return TransportHeader::choose("RTP/AVP;unicast;client_port=" + ports, false, 5000).has_value(); };
    for (const char* const ports : {"5000-5001", "5000", "5001-5002", "4998-5000", "4000-5001", "4999"})
    {
        EXPECT_FALSE(taken(ports)) << ports;
    }
    EXPECT_TRUE(taken("4998-4999"));
    EXPECT_TRUE(taken("5002-5003"));
    EXPECT_FALSE(TransportHeader::choose("RTP/AVP/TCP;interleaved=0-1", false, 5000)->rtpPort != 0);
}

TEST(TransportHeader, NoPrefixDoesHarm)
{
    for (const HeaderCase& one : headerCases)
    {
        const std::string text = one.header;
        for (std::size_t size = 0; size < text.size(); ++size)
        {
            const auto choice = TransportHeader::choose(text.substr(0, size), false);
            if (choice && !choice->interleaved)
            {
                EXPECT_TRUE(choice->rtpPort >= 1024 && choice->rtcpPort <= 65535) << text.substr(0, size);
            }
        }
    }
}

TEST(TransportHeader, MulticastPresentationTakesMulticastOnly)
{
    const HeaderCase cases[] = {
        {"RTP/AVP;multicast", "multicast"},
        {"RTP/AVP/UDP;multicast;mode=play", "multicast"},
        {"RTP/AVP", "multicast"},
        {"RTP/AVP;multicast;client_port=5000-5001", "multicast"},
        {"RTP/AVP;multicast;destination=239.9.9.9;port=5000-5001;ttl=200", "multicast"},
        {"RTP/AVP;unicast;client_port=5000-5001,RTP/AVP/TCP;interleaved=0-1,RTP/AVP;multicast", "multicast"},
        {"RTP/AVP;unicast;client_port=5000-5001", "none"},
        {"RTP/AVP;client_port=5000-5001", "none"},
        {"RTP/AVP;unicast", "none"},
        {"RTP/AVP/TCP;interleaved=0-1", "none"},
        {"RTP/AVP/TCP;multicast", "none"},
        {"RTP/SAVP;multicast", "srtp multicast"},
        {"RTP/AVP;multicast;mode=record", "none"},
        {"", "none"},
    };
    for (const HeaderCase& one : cases)
    {
        EXPECT_EQ(one.chosen, chosen(one.header, true)) << one.header;
    }
}

}  // namespace
}  // namespace refhost

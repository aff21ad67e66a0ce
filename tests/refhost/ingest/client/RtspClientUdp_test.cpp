#include <gmock/gmock.h>

#include "refhost/base/ByteOrder.h"
#include "tests/refhost/ingest/client/ScriptedCamera.h"
#include "tests/refhost/rtsp/connection/TestClient.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using test::CameraRequest;
using test::ClientWorld;
using test::ScriptedCamera;
using test::UdpPort;
using testing::HasSubstr;
using Kind = RtspClientEnd::Kind;

std::string rtp(std::uint16_t sequence)
{
    std::string packet(20, 'x');
    packet[0] = '\x80';
    writeBig16(reinterpret_cast<std::uint8_t*>(packet.data()) + 2, sequence);
    return packet;
}

/// The client's port of RTP in a request for UDP; 0 when there is none.
int clientPort(const CameraRequest& setUp)
{
    const std::string transport = setUp.header("Transport");
    const std::size_t at = transport.find("client_port=");
    return at == std::string::npos ? 0 : std::stoi(transport.substr(at + 12));
}

/// A camera that sends over UDP alone.
class RtspClientUdpTest : public testing::Test
{
protected:
    /// Refuses TCP and grants UDP.
    /// \returns the client's port of RTP
    int setUp(ScriptedCamera& from, const std::string& description = ClientWorld::oneTrack)
    {
        const CameraRequest overTcp = from.serveUpTo("SETUP", description);
        EXPECT_THAT(overTcp.header("Transport"), HasSubstr("RTP/AVP/TCP"));
        from.answer(overTcp, "461 Unsupported Transport");
        return grant(from, from.expect("SETUP"));
    }

    int grant(ScriptedCamera& from, const CameraRequest& overUdp)
    {
        EXPECT_THAT(overUdp.header("Transport"), HasSubstr("RTP/AVP;unicast;client_port="));
        from.answer(overUdp, "200 OK",
                    "Session: 1;timeout=2\r\nTransport: " + overUdp.header("Transport") + ";server_port=" +
                        std::to_string(media.port()) + "-" + std::to_string(reports.port()) + "\r\n");
        return clientPort(overUdp);
    }

    /// Plays one track. \returns the client's port of RTP
    int play()
    {
        camera = world.startAndAccept();
        const int port = setUp(*camera);
        camera->serve("PLAY");
        EXPECT_TRUE(world.events.waitPlaying());
        return port;
    }

    UdpPort media;
    UdpPort reports;
    ClientWorld world;
    std::unique_ptr<ScriptedCamera> camera;
};

TEST_F(RtspClientUdpTest, ACameraThatRefusesTcpIsReadOverUdpInTheSameConnection)
{
    const int port = play();
    EXPECT_EQ(port % 2, 0);
    EXPECT_EQ(world.connector.asked().size(), 1U);
    EXPECT_EQ(media.receive().size(), 12U) << "a packet that opens the path";
    EXPECT_EQ(reports.receive().size(), 8U) << "a report that opens the path";
    media.sendTo(port, rtp(1));
    reports.sendTo(port + 1, "report");
    ASSERT_TRUE(world.events.waitPackets(2));
    for (const auto& packet : world.events.packets())
    {
        EXPECT_EQ(packet.bytes, packet.report ? "report" : rtp(1));
    }
    EXPECT_EQ(camera->serve("OPTIONS").header("Session"), "1") << "keep-alive";
    const std::uint8_t report[] = {1, 2, 3};
    runOn(world.loop,
          [&]
          {
              EXPECT_TRUE(world.client->sendReport(0, report, sizeof report));
              EXPECT_FALSE(world.client->sendReport(1, report, sizeof report));
          });
    EXPECT_EQ(reports.receive(), "\1\2\3");
    runOn(world.loop, [&] { world.client->stop(); });
    EXPECT_EQ(camera->serve("TEARDOWN").header("Session"), "1");
    EXPECT_TRUE(camera->waitClosed());
}

TEST_F(RtspClientUdpTest, EachTrackHasPortsOfItsOwn)
{
    camera = world.startAndAccept();
    const int video = setUp(*camera, ClientWorld::twoTracks);
    const int audio = grant(*camera, camera->expect("SETUP"));
    EXPECT_NE(video, audio);
    camera->serve("PLAY");
    ASSERT_TRUE(world.events.waitPlaying());
    EXPECT_EQ(world.events.playing().size(), 2U);
    media.sendTo(video, rtp(1));
    ASSERT_TRUE(world.events.waitPackets(1));
    media.sendTo(audio, rtp(1));
    ASSERT_TRUE(world.events.waitPackets(2));
    EXPECT_EQ(world.events.packets()[0].track, 0U);
    EXPECT_EQ(world.events.packets()[1].track, 1U);
}

TEST_F(RtspClientUdpTest, AnAudioTrackThatIsRefusedIsLeftOut)
{
    camera = world.startAndAccept();
    setUp(*camera, ClientWorld::twoTracks);
    camera->answer(camera->expect("SETUP"), "461 Unsupported Transport");
    camera->serve("PLAY");
    ASSERT_TRUE(world.events.waitPlaying());
    EXPECT_EQ(world.events.playing().size(), 1U);
}

TEST_F(RtspClientUdpTest, UdpIsRequestedFirstWherePreferred)
{
    world.options.transport = CameraTransport::udp;
    camera = world.startAndAccept();
    const CameraRequest overUdp = camera->serveUpTo("SETUP");
    EXPECT_NE(clientPort(overUdp), 0);
    camera->answer(overUdp, "461 Unsupported Transport");
    EXPECT_THAT(camera->serve("SETUP").header("Transport"), HasSubstr("RTP/AVP/TCP"));
    camera->serve("PLAY");
    ASSERT_TRUE(world.events.waitPlaying());
    camera->send(ScriptedCamera::packet(0, "media"));
    EXPECT_TRUE(world.events.waitPackets(1));
}

TEST_F(RtspClientUdpTest, OneTransportAloneIsRequestedWhereTheOtherIsRuledOut)
{
    world.options.otherTransport = false;
    camera = world.startAndAccept();
    camera->answer(camera->serveUpTo("SETUP"), "461 Unsupported Transport");
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::noUsableTransport);
    EXPECT_EQ(world.events.end().otherTransport, std::nullopt);
}

TEST_F(RtspClientUdpTest, WithoutMediaOverUdpTheOtherTransportIsAdvised)
{
    world.options.transport = CameraTransport::udp;
    world.options.udpTimeout = 50ms;
    camera = world.startAndAccept();
    grant(*camera, camera->serveUpTo("SETUP"));
    camera->serve("PLAY");
    ASSERT_TRUE(world.events.waitPlaying());
    reports.sendTo(1, "");
    camera->serve("TEARDOWN");
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::noUsableTransport);
    EXPECT_EQ(world.events.end().otherTransport, CameraTransport::tcp);
}

TEST_F(RtspClientUdpTest, WithoutMediaOverUdpThatAloneIsOfferedItTimesOut)
{
    world.options.udpTimeout = 1ms;
    world.options.silenceTimeout = 100ms;
    play();
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::silent);
    EXPECT_EQ(world.events.end().text,
              "the camera sent no media for 0.1 s over UDP, which may be blocked on the way");
}

TEST_F(RtspClientUdpTest, MediaThatStopTimeOut)
{
    world.options.transport = CameraTransport::udp;
    world.options.silenceTimeout = 500ms;
    camera = world.startAndAccept();
    const int port = grant(*camera, camera->serveUpTo("SETUP"));
    camera->serve("PLAY");
    media.sendTo(port, rtp(1));
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::silent);
    EXPECT_EQ(world.events.end().text, "the camera sent no media for 0.5 s");
}

TEST_F(RtspClientUdpTest, ACameraThatSendsOverTcpAllTheSameIsRead)
{
    camera = world.startAndAccept();
    camera->answer(camera->serveUpTo("SETUP"), "461 Unsupported Transport");
    camera->serve("SETUP", "Session: 1\r\nTransport: RTP/AVP/TCP;interleaved=4-5\r\n");
    camera->serve("PLAY");
    ASSERT_TRUE(world.events.waitPlaying());
    camera->send(ScriptedCamera::packet(4, "media"));
    EXPECT_TRUE(world.events.waitPackets(1));
}

TEST_F(RtspClientUdpTest, WhateverPortsACameraNamesItIsRead)
{
    for (const char* answer :
         {"", "Transport: RTP/AVP;unicast\r\n", "Transport: RTP/AVP/UDP;server_port=0-0\r\n",
          "Transport: RTP/AVP;server_port=99999-100000\r\n", "Transport: RTP/AVP;server_port=-1\r\n",
          "Transport: RTP/AVP;server_port=x-y\r\n", "Transport: RTP/AVP;unicast;source=camera.example\r\n",
          "Transport: RTP/AVP;unicast;source=239.1.2.3\r\n"})
    {
        SCOPED_TRACE(answer);
        ClientWorld own;
        const auto liar = own.startAndAccept();
        liar->answer(liar->serveUpTo("SETUP"), "461 Unsupported Transport");
        const int port = clientPort(liar->serve("SETUP", std::string("Session: 1\r\n") + answer));
        liar->serve("PLAY");
        ASSERT_TRUE(own.events.waitPlaying());
        media.sendTo(port, rtp(1));
        EXPECT_TRUE(own.events.waitPackets(1));
    }
}

TEST_F(RtspClientUdpTest, WhatIsNoUnicastOverUdpIsRefused)
{
    for (const char* answer :
         {"RTP/AVP;multicast;destination=239.1.2.3;port=5000-5001", "RTP/SAVP;unicast", "x"})
    {
        ClientWorld own;
        const auto liar = own.startAndAccept();
        liar->answer(liar->serveUpTo("SETUP"), "461 Unsupported Transport");
        liar->serve("SETUP", std::string("Session: 1\r\nTransport: ") + answer + "\r\n");
        ASSERT_TRUE(own.events.waitEnded());
        EXPECT_EQ(own.events.end().kind, Kind::noUsableTransport) << answer;
        EXPECT_EQ(own.events.end().text, "the camera does not send over UDP");
        liar->serve("TEARDOWN");
    }
}

TEST_F(RtspClientUdpTest, TheClientMayEndWithinAPacket)
{
    for (const bool destroy : {false, true})
    {
        Signal stopped;
        ClientWorld own;
        own.events.within = [&](const std::string& event)
        {
            if (event == "packet")
            {
                own.client->stop();
                if (destroy)
                {
                    own.client = nullptr;
                }
                stopped.set();
            }
        };
        const auto other = own.startAndAccept();
        const int port = setUp(*other);
        other->serve("PLAY");
        ASSERT_TRUE(own.events.waitPlaying());
        for (std::uint16_t i = 1; i < 20; ++i)
        {
            media.sendTo(port, rtp(i));
        }
        ASSERT_TRUE(stopped.wait());
        other->serve("TEARDOWN");
        EXPECT_EQ(own.events.packets().size(), 1U);
    }
}

}  // namespace
}  // namespace refhost

#include "refhost/rtsp/session/SessionMethods.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::Received;
using test::TestClient;
using test::UdpPort;

/// One track's entry in RTP-Info.
struct RtpInfo
{
    std::string url;
    unsigned sequence = 0;
    std::uint32_t timestamp = 0;
};

std::string valueOf(const std::string& entry, const std::string& name)
{
    const std::size_t at = entry.find(name);
    EXPECT_NE(at, std::string::npos) << name << " in " << entry;
    const std::size_t begin = at + name.size();
    return at == std::string::npos ? "0" : entry.substr(begin, entry.find(';', begin) - begin);
}

std::vector<RtpInfo> rtpInfo(const Received& response)
{
    std::istringstream text(response.header("RTP-Info"));
    std::vector<RtpInfo> all;
    for (std::string entry; std::getline(text, entry, ',');)
    {
        all.push_back({valueOf(entry, "url="), static_cast<unsigned>(std::stoul(valueOf(entry, ";seq="))),
                       static_cast<std::uint32_t>(std::stoul(valueOf(entry, ";rtptime=")))});
    }
    return all;
}

std::uint32_t ssrcOf(const Received& setup)
{
    const std::string transport = setup.header("Transport");
    const std::size_t at = transport.find(";ssrc=");
    EXPECT_NE(at, std::string::npos) << transport;
    return static_cast<std::uint32_t>(std::stoul(transport.substr(at + 6, 8), nullptr, 16));
}

/// Behaviour that does not depend on the controller.
class SessionMethodsTest : public test::RtspServerFixture,
                           public testing::WithParamInterface<test::RtspServerFixture::Controller>
{
protected:
    SessionMethodsTest() : RtspServerFixture(GetParam()) {}

    void SetUp() override
    {
        start();
        client_ = std::make_unique<TestClient>(server->port());
    }

    std::unique_ptr<TestClient> client_;
    UdpPort rtp_;
};

INSTANTIATE_TEST_SUITE_P(Controllers, SessionMethodsTest,
                         testing::Values(test::RtspServerFixture::Controller::first,
                                         test::RtspServerFixture::Controller::second),
                         [](const auto& which) {
                             return which.param == test::RtspServerFixture::Controller::first ? "First"
                                                                                              : "Second";
                         });

TEST_P(SessionMethodsTest, SetupOverUdpNamesPortsSsrcAndSession)
{
    const Received response = client_->request(
        "SETUP", track(url(), 0),
        "Transport: RTP/SAVP;unicast;client_port=1-2,RTP/AVP;unicast;client_port=5000-5001\r\n");
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.header("Transport"),
                testing::MatchesRegex(
                    "RTP/AVP;unicast;client_port=5000-5001;server_port=" + std::to_string(server->rtpPort()) +
                    "-" + std::to_string(server->rtpPort() + 1) + ";ssrc=[0-9A-F]{8};mode=\"PLAY\""));
    EXPECT_THAT(response.header("Session"), testing::MatchesRegex("[0-9A-V]{13};timeout=60"));
    EXPECT_EQ(server->sessionCount(), 1u);
}

TEST_P(SessionMethodsTest, SetupToPortsOfOtherServicesOrTheServersOwnIsRefused)
{
    const std::string own = std::to_string(server->rtpPort());
    for (const std::string& ports : {std::string("22-23"), std::string("1022-1023"), own})
    {
        EXPECT_EQ(client_->request("SETUP", track(url(), 0), udpPorts + ports + "\r\n").status, 461) << ports;
    }
    EXPECT_EQ(server->sessionCount(), 0u);
    EXPECT_EQ(client_->request("SETUP", track(url(), 0), udpPorts + own + ",RTP/AVP/TCP\r\n").status, 200)
        << "the next choice is taken";
}

TEST_P(SessionMethodsTest, SetupOverTcpTakesTheNamedChannelsOrAssignsFreeOnes)
{
    const Received first =
        client_->request("SETUP", track(url(), 0), "Transport: RTP/AVP/TCP;unicast;interleaved=4-5\r\n");
    EXPECT_EQ(first.header("Transport").substr(0, 38), "RTP/AVP/TCP;unicast;interleaved=4-5;ss");
    const Received second = client_->request("SETUP", track(url(), 1), tcp + session(first.session()));
    EXPECT_EQ(second.header("Transport").substr(0, 38), "RTP/AVP/TCP;unicast;interleaved=0-1;ss");
    EXPECT_EQ(second.session(), first.session());
    const Received other =
        client_->request("SETUP", track(url(), 0), "Transport: RTP/AVP/TCP;unicast;interleaved=5-6\r\n");
    EXPECT_EQ(other.header("Transport").substr(0, 38), "RTP/AVP/TCP;unicast;interleaved=2-3;ss")
        << "channel 5 is in use";
    EXPECT_NE(other.session(), first.session());
    EXPECT_EQ(server->sessionCount(), 2u);
}

TEST_P(SessionMethodsTest, ChannelsAreFreeAgainAfterTeardown)
{
    const std::string id = setUpTcp(*client_, 1);
    EXPECT_EQ(client_->request("TEARDOWN", url(), session(id)).status, 200);
    const Received again = client_->request("SETUP", track(url(), 0), tcp);
    EXPECT_NE(again.header("Transport").find("interleaved=0-1"), std::string::npos);
}

TEST_P(SessionMethodsTest, AllChannelsInUseIsAnUnsupportedTransport)
{
    for (int i = 0; i < 64; ++i)
    {
        setUpTcp(*client_, 2);
    }
    EXPECT_EQ(client_->request("SETUP", track(url(), 0), tcp).status, 461);
    EXPECT_EQ(client_->request("SETUP", track(url(), 0), udpPorts + std::string("5000-5001\r\n")).status,
              200);
    EXPECT_EQ(server->sessionCount(), 65u);
}

TEST_P(SessionMethodsTest, PlayOverTcpAnswersBeforeTheFirstFrameAndNamesIt)
{
    frame(true);
    const Received video = client_->request("SETUP", track(url(), 0), tcp);
    const std::string id = video.session();
    const Received audio = client_->request("SETUP", track(url(), 1), tcp + session(id));
    frame(true);
    feedAudio();
    const Received play = client_->request("PLAY", url(), session(id) + "Range: npt=0.000-\r\n");
    EXPECT_EQ(play.status, 200);
    EXPECT_EQ(play.header("Range"), "npt=now-");
    EXPECT_EQ(play.session(), id);
    const std::vector<RtpInfo> info = rtpInfo(play);
    ASSERT_EQ(info.size(), 2u) << play.header("RTP-Info");
    EXPECT_EQ(info[0].url, track(url(), 0));
    EXPECT_EQ(info[1].url, track(url(), 1));
    frame(true);
    feedAudio();
    const Received first = client_->frame(0);
    ASSERT_TRUE(first.isRtp());
    EXPECT_EQ(first.sequence(), info[0].sequence);
    EXPECT_EQ(first.timestamp(), info[0].timestamp);
    EXPECT_EQ(first.ssrc(), ssrcOf(video));
    const Received firstAudio = client_->frame(2);
    ASSERT_TRUE(firstAudio.isRtp());
    EXPECT_EQ(firstAudio.sequence(), info[1].sequence);
    EXPECT_EQ(firstAudio.timestamp(), info[1].timestamp);
    EXPECT_EQ(firstAudio.ssrc(), ssrcOf(audio));
}

TEST_P(SessionMethodsTest, TheCachedKeyFrameFollowsTheAnswerToPlayAtOnce)
{
    const std::string keepsCacheWarm = setUpTcp(*client_, 1);
    client_->request("PLAY", url(), session(keepsCacheWarm));
    frame(true, 5);
    ASSERT_TRUE(client_->frame(0).isRtp());

    TestClient viewer(server->port());
    const std::string id = setUpTcp(viewer, 1);
    viewer.send(TestClient::text("PLAY", url(), 100, session(id), ""));
    const Received play = viewer.receive();
    ASSERT_EQ(play.kind, Received::Kind::response) << "the answer comes before every frame";
    const std::vector<RtpInfo> info = rtpInfo(play);
    ASSERT_EQ(info.size(), 1u);
    const Received first = viewer.frame(0);
    ASSERT_TRUE(first.isRtp());
    EXPECT_EQ(first.sequence(), info[0].sequence);
    EXPECT_EQ(first.timestamp(), info[0].timestamp);
}

TEST_P(SessionMethodsTest, PlayOverUdpSendsToTheClientsPort)
{
    const Received setup =
        client_->request("SETUP", track(url(), 0), udpPorts + std::to_string(rtp_.port()) + "\r\n");
    const Received play = client_->request("PLAY", url(), session(setup.session()));
    const std::vector<RtpInfo> info = rtpInfo(play);
    ASSERT_EQ(info.size(), 1u);
    frame(true);
    Received packet;
    packet.payload = rtp_.receive();
    ASSERT_GE(packet.payload.size(), 12u);
    EXPECT_EQ(packet.sequence(), info[0].sequence);
    EXPECT_EQ(packet.timestamp(), info[0].timestamp);
    EXPECT_EQ(packet.ssrc(), ssrcOf(setup));
}

TEST_P(SessionMethodsTest, PlayOfOneTrackPlaysThisOneAlone)
{
    const std::string id = setUpTcp(*client_, 2);
    const Received play = client_->request("PLAY", track(url(), 1), session(id));
    EXPECT_EQ(play.status, 200);
    ASSERT_EQ(rtpInfo(play).size(), 1u);
    EXPECT_EQ(rtpInfo(play)[0].url, track(url(), 1));
    frame(true);
    feedAudio();
    EXPECT_TRUE(client_->frame(2).isRtp());
    EXPECT_EQ(client_->request("PAUSE", track(url(), 0), session(id)).status, 455) << "it does not play";
    EXPECT_EQ(client_->request("PAUSE", track(url(), 1), session(id)).status, 200);
}

TEST_P(SessionMethodsTest, PauseStopsThePacketsAndPlayGoesOnWithoutAGap)
{
    const std::string id = setUpTcp(*client_, 1);
    EXPECT_EQ(client_->request("PAUSE", url(), session(id)).status, 455) << "nothing plays yet";
    client_->request("PLAY", url(), session(id));
    frame(true, 2);
    client_->frame(0);
    const std::uint16_t last = client_->frame(0).sequence();
    const Received pause = client_->request("PAUSE", url(), session(id));
    EXPECT_EQ(pause.status, 200);
    EXPECT_EQ(pause.session(), id);
    EXPECT_EQ(client_->request("PAUSE", url(), session(id)).status, 455) << "nothing plays any more";
    frame(false);
    frame(true);
    const Received again = client_->request("PLAY", url(), session(id));
    EXPECT_EQ(again.status, 200);
    frame(true);
    const Received next = client_->frame(0);
    ASSERT_TRUE(next.isRtp());
    EXPECT_EQ(next.sequence(), static_cast<std::uint16_t>(last + 1));
    ASSERT_EQ(rtpInfo(again).size(), 1u);
    EXPECT_EQ(rtpInfo(again)[0].sequence, next.sequence());
    EXPECT_EQ(rtpInfo(again)[0].timestamp, next.timestamp());
}

TEST_P(SessionMethodsTest, PlayWhilePlayingGoesOn)
{
    const std::string id = setUpTcp(*client_, 1);
    client_->request("PLAY", url(), session(id));
    frame(true, 1);
    const std::uint16_t first = client_->frame(0).sequence();
    EXPECT_EQ(client_->request("PLAY", url(), session(id)).status, 200);
    frame(false, 1);
    EXPECT_EQ(client_->frame(0).sequence(), static_cast<std::uint16_t>(first + 1));
}

TEST_P(SessionMethodsTest, RangesUnknownToALiveStreamAreRefusedAndChangeNothing)
{
    const std::string id = setUpTcp(*client_, 1);
    EXPECT_EQ(client_->request("PLAY", url(), session(id) + "Range: npt=5-3\r\n").status, 457);
    EXPECT_EQ(client_->request("PLAY", url(), session(id) + "Range: clock=19961108T142300Z-\r\n").status,
              457);
    EXPECT_EQ(client_->request("PLAY", url(), session(id) + "Range: bytes=0-\r\n").status, 501);
    EXPECT_EQ(client_->request("PAUSE", url(), session(id)).status, 455) << "nothing plays";
    EXPECT_EQ(client_->request("PLAY", url(), session(id) + "Range: npt=now-\r\n").status, 200);
}

TEST_P(SessionMethodsTest, SetupOfAPlayingTrackIsRefused)
{
    const std::string id = setUpTcp(*client_, 1);
    client_->request("PLAY", url(), session(id));
    EXPECT_EQ(client_->request("SETUP", track(url(), 0), tcp + session(id)).status, 455);
    frame(true);
    EXPECT_TRUE(client_->frame(0).isRtp()) << "it plays on";
}

TEST_P(SessionMethodsTest, SetupOfATrackThatDoesNotPlayChangesItsTransport)
{
    const std::string id = setUpTcp(*client_, 1);
    const Received again = client_->request("SETUP", track(url(), 0),
                                            udpPorts + std::to_string(rtp_.port()) + "\r\n" + session(id));
    EXPECT_EQ(again.status, 200);
    EXPECT_EQ(again.session(), id);
    client_->request("PLAY", url(), session(id));
    frame(true);
    EXPECT_GE(rtp_.receive().size(), 12u);
    EXPECT_EQ(dispatched(), 1u);
}

TEST_P(SessionMethodsTest, SetupOfOneTrackAgainLeavesTheOther)
{
    const std::string id = setUpTcp(*client_, 2);
    const Received again = client_->request("SETUP", track(url(), 0),
                                            udpPorts + std::to_string(rtp_.port()) + "\r\n" + session(id));
    EXPECT_EQ(again.status, 200);
    const Received played = client_->request("PLAY", url(), session(id));
    EXPECT_EQ(played.status, 200);
    EXPECT_EQ(rtpInfo(played).size(), 2u);
    frame(true);
    feedAudio();
    EXPECT_GE(rtp_.receive().size(), 12u);
    EXPECT_TRUE(client_->frame(2).isRtp());
}

TEST_P(SessionMethodsTest, ATrackThatEndedIsSetUpAgainInTheSameSession)
{
    const std::string id = setUpTcp(*client_, 2);
    client_->request("PLAY", url(), session(id));
    EXPECT_EQ(client_->request("TEARDOWN", track(url(), 0), session(id)).status, 200);
    EXPECT_EQ(client_->request("SETUP", track(url(), 0), tcp + session(id)).status, 200);
    EXPECT_EQ(client_->request("PLAY", track(url(), 0), session(id)).status, 200);
    frame(true);
    EXPECT_TRUE(client_->frame(0).isRtp());
}

TEST_P(SessionMethodsTest, SetupInASessionOfAnotherPresentationIsRefused)
{
    const std::string id = setUpTcp(*client_, 1);
    EXPECT_EQ(client_->request("SETUP", track(url("orv/live/1/1"), 0), tcp + session(id)).status, 459);
    EXPECT_EQ(server->sessionCount(), 1u);
}

TEST_P(SessionMethodsTest, AnUnknownTrackLeavesTheSessionAsItWas)
{
    const std::string id = setUpTcp(*client_, 1);
    EXPECT_EQ(client_->request("SETUP", track(url(), 7), tcp + session(id)).status, 404);
    EXPECT_EQ(client_->request("PLAY", track(url(), 7), session(id)).status, 404);
    EXPECT_EQ(client_->request("PLAY", track(url(), 1), session(id)).status, 455) << "not set up";
    EXPECT_EQ(client_->request("TEARDOWN", track(url(), 1), session(id)).status, 455);
    EXPECT_EQ(client_->request("PLAY", url("orv/live/1/1"), session(id)).status, 404);
    EXPECT_EQ(client_->request("TEARDOWN", url("orv/live/1/1"), session(id)).status, 404);
    EXPECT_EQ(client_->request("PLAY", url(), session(id)).status, 200);
}

TEST_P(SessionMethodsTest, TeardownOfTheLastTrackEndsTheSession)
{
    const std::string id = setUpTcp(*client_, 2);
    const std::size_t before = dispatched();
    EXPECT_EQ(client_->request("TEARDOWN", track(url(), 0), session(id)).status, 200);
    EXPECT_EQ(dispatched(), GetParam() == Controller::first ? before - 1 : before);
    EXPECT_EQ(client_->request("GET_PARAMETER", url(), session(id)).status, 200) << "the session lives";
    EXPECT_EQ(client_->request("TEARDOWN", track(url(), 1), session(id)).status, 200);
    EXPECT_EQ(server->sessionCount(), 0u);
    EXPECT_EQ(client_->request("GET_PARAMETER", url(), session(id)).status, 454);
}

TEST_P(SessionMethodsTest, TeardownOfThePresentationEndsEveryTrack)
{
    const std::string id = setUpTcp(*client_, 2);
    client_->request("PLAY", url(), session(id));
    EXPECT_EQ(client_->request("TEARDOWN", url() + "/", session(id)).status, 200);
    EXPECT_EQ(server->sessionCount(), 0u);
    EXPECT_EQ(dispatched(), 0u);
    EXPECT_EQ(client_->request("TEARDOWN", url(), session(id)).status, 454);
}

TEST_P(SessionMethodsTest, OneConnectionCarriesSeveralSessions)
{
    const std::string first = setUpTcp(*client_, 1);
    const std::string second = setUpTcp(*client_, 1);
    EXPECT_NE(first, second);
    client_->request("PLAY", url(), session(first));
    client_->request("PLAY", url(), session(second));
    frame(true, 1);
    EXPECT_TRUE(client_->frame(0).isRtp());
    EXPECT_TRUE(client_->frame(2).isRtp());
    client_->request("TEARDOWN", url(), session(first));
    EXPECT_EQ(server->sessionCount(), 1u);
}

TEST_P(SessionMethodsTest, AnotherConnectionMayDriveASession)
{
    const std::string id = setUpUdp(*client_, rtp_);
    TestClient other(server->port());
    EXPECT_EQ(other.request("PLAY", url(), session(id)).status, 200);
    frame(true);
    EXPECT_GE(rtp_.receive().size(), 12u);
    EXPECT_EQ(other.request("TEARDOWN", url(), session(id)).status, 200);
    EXPECT_EQ(server->sessionCount(), 0u);
}

TEST_P(SessionMethodsTest, PlayResponseArrivesBeforeTheFirstPacketOfAnotherTransport)
{
    const std::string warm = setUpTcp(*client_, 1);
    client_->request("PLAY", url(), session(warm));
    frame(true, 1);
    ASSERT_TRUE(client_->frame(0).isRtp());

    TestClient viewer(server->port());
    const std::string overUdp = setUpUdp(viewer, rtp_);
    viewer.send(TestClient::text("PLAY", url(), 100, session(overUdp), ""));
    ASSERT_GE(rtp_.receive().size(), 12u);
    EXPECT_EQ(viewer.receive(0).status, 200);

    TestClient remote(server->port());
    const std::string overTcp = setUpTcp(viewer, 1);
    remote.send(TestClient::text("PLAY", url(), 100, session(overTcp), ""));
    ASSERT_TRUE(viewer.frame(0).isRtp());
    EXPECT_EQ(remote.receive(0).status, 200);
}

TEST_P(SessionMethodsTest, KeepAliveNamesTheSession)
{
    const std::string id = setUpTcp(*client_, 1);
    EXPECT_EQ(client_->request("GET_PARAMETER", url(), session(id)).session(), id);
    EXPECT_EQ(client_->request("SET_PARAMETER", "*", session(id + ";timeout=60")).session(), id);
    EXPECT_EQ(client_->request("OPTIONS", url(), session(id)).session(), id);
}

TEST_P(SessionMethodsTest, FramesOfUnknownChannelsAreDropped)
{
    const std::string id = setUpTcp(*client_, 1);
    client_->send(std::string("$\x09\0\4junk", 8) + std::string("$\0\0\4junk", 8) +
                  std::string("$\1\0\4junk", 8));
    EXPECT_EQ(client_->request("PLAY", url(), session(id)).status, 200);
}

}  // namespace
}  // namespace refhost

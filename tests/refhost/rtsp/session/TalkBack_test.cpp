#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "refhost/base/ServerEvents.h"
#include "refhost/rtsp/message/KeyMgmtHeader.h"
#include "refhost/talkback/SharedOutput.h"
#include "tests/CapturedErrors.h"
#include "tests/refhost/rtp/srtp/SrtpPeer.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"
#include "tests/refhost/talkback/CountingPlayer.h"
#include "tests/refhost/talkback/TalkFakes.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr const char* require = "Require: www.onvif.org/ver20/backchannel\r\n";

/// The RTSP server with talk-back on camera 1, and the manager's worker running.
class TalkBackTest : public RtspServerFixture
{
protected:
    TalkBackTest()
    {
        streams->talkBack = Codec::pcmu;
        manager()->setMediaPlayer(SafePointer<IMediaPlayer>(new CountingPlayer(played)));
        EXPECT_EQ(0, manager()->start());
    }

    ~TalkBackTest() override
    {
        server.reset();
        EXPECT_EQ(0, manager()->getSessionNum()) << "the server left talk-back behind";
        manager()->stop();
        SharedOutput::instance().configure(TalkSettings());
    }

    static SafePointer<OVAudioBackDispatcherMgr> manager()
    {
        return OVAudioBackDispatcherMgr::getInstance();
    }

    void startWith(TalkPolicy policy)
    {
        TalkSettings settings;
        settings.policy = policy;
        SharedOutput::instance().configure(settings);
        start();
    }

    std::string talkTrack() const
    {
        return url() + "/trackID=talk";
    }

    /// Sets the back channel up over interleaved TCP, alone, and plays it.
    std::string talkOverTcp(TestClient& client)
    {
        const Received answer = client.request("SETUP", talkTrack(), std::string(tcp) + require);
        EXPECT_EQ(answer.status, 200);
        std::string id = answer.session();
        EXPECT_EQ(client.request("PLAY", url(), session(id) + require).status, 200);
        return id;
    }

    static std::string packet(std::uint16_t number)
    {
        RtpPacket rtp;
        rtp.sequence = number;
        rtp.timestamp = number * 160U;
        const Bytes bytes = rtp.bytes();
        return {bytes.begin(), bytes.end()};
    }

    static std::string interleaved(int channel, const std::string& bytes)
    {
        std::string frame = "$";
        frame += static_cast<char>(channel);
        frame += static_cast<char>(bytes.size() >> 8U);
        frame += static_cast<char>(bytes.size());
        return frame + bytes;
    }

    const std::shared_ptr<Played> played = std::make_shared<Played>();
};

TEST_F(TalkBackTest, IsDescribedToClientsThatRequireIt)
{
    start();
    TestClient client(server->port());
    const std::string plain = client.request("DESCRIBE", url()).body;
    EXPECT_EQ(plain.find("talk"), std::string::npos) << plain;
    EXPECT_EQ(plain.find("only"), std::string::npos) << plain;
    const std::string whole = client.request("DESCRIBE", url(), require).body;
    const std::size_t talk = whole.find("a=control:trackID=talk\r\na=sendonly\r\n");
    EXPECT_NE(talk, std::string::npos) << whole;
    EXPECT_NE(whole.find("a=control:trackID=0\r\na=recvonly\r\n"), std::string::npos) << whole;
    EXPECT_NE(whole.find("a=control:trackID=1\r\na=recvonly\r\n"), std::string::npos) << whole;
    EXPECT_EQ(client.request("DESCRIBE", talkTrack(), require).status, 200);
    EXPECT_EQ(client.request("DESCRIBE", talkTrack()).status, 404);
}

TEST_F(TalkBackTest, IsAbsentWhereTheCameraHasNone)
{
    streams->talkBack = std::nullopt;
    start();
    TestClient client(server->port());
    const Received description = client.request("DESCRIBE", url(), require);
    EXPECT_EQ(description.status, 200);
    EXPECT_EQ(description.body, client.request("DESCRIBE", url()).body);
    EXPECT_EQ(client.request("SETUP", talkTrack(), std::string(tcp) + require).status, 404);
    EXPECT_EQ(server->sessionCount(), 0u);
}

TEST_F(TalkBackTest, InterleavedAudioReachesTheOutput)
{
    start();
    TestClient client(server->port());
    const Received setup = client.request("SETUP", talkTrack(), std::string(tcp) + require);
    EXPECT_EQ(setup.status, 200);
    EXPECT_NE(setup.header("Transport").find("interleaved=0-1"), std::string::npos);
    EXPECT_NE(setup.header("Transport").find("mode=\"PLAY\""), std::string::npos);
    EXPECT_EQ(setup.header("Transport").find("RECORD"), std::string::npos);
    client.send(interleaved(0, packet(1)));
    const Received play = client.request("PLAY", url(), session(setup.session()) + require);
    EXPECT_EQ(play.status, 200);
    EXPECT_EQ(play.header("RTP-Info"), "") << "the device sends nothing there";
    EXPECT_TRUE(eventually([&] { return played->open.load(); }));
    EXPECT_EQ(played->samples, 0u) << "what came before PLAY is not played";
    client.send(interleaved(0, packet(2)));
    EXPECT_TRUE(eventually([&] { return played->samples >= 160; }));
    EXPECT_EQ(client.request("TEARDOWN", url(), session(setup.session())).status, 200);
    EXPECT_EQ(manager()->getSessionNum(), 0);
    EXPECT_TRUE(eventually([&] { return !played->open; }));
}

TEST_F(TalkBackTest, WhoIsPlayedIsLogged)
{
    start();
    CapturedErrors errors;
    TestClient client(server->port(), 0, AF_INET, "127.0.7.1");
    talkOverTcp(client);
    EXPECT_TRUE(eventually([&] { return played->open.load(); }));
    client.send(interleaved(0, packet(1)));
    client.send(interleaved(0, packet(2)));
    EXPECT_TRUE(eventually([&] { return played->samples >= 160; }));
    const auto lines = errors.linesWith("talk-back-taken");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("audit: talk-back-taken address=127.0.7.1 user=\"\" url=\"" + url() + "\""),
              std::string::npos)
        << lines[0];
}

TEST_F(TalkBackTest, WhoIsPlayedAndWhenThatEndsIsPublished)
{
    start();
    const auto events = ServerEvents::instance().subscribe(16, nullptr);
    std::vector<std::string> names;
    const auto published = [&](const std::string& name)
    {
        for (const ServerEvents::EventPtr& event : events->take().events)
        {
            names.emplace_back(event->name);
        }
        return std::count(names.begin(), names.end(), name) == 1;
    };
    TestClient client(server->port());
    const std::string id = talkOverTcp(client);
    EXPECT_TRUE(eventually([&] { return played->open.load(); }));
    client.send(interleaved(0, packet(1)));
    client.send(interleaved(0, packet(2)));
    EXPECT_TRUE(eventually([&] { return published("talk-back-taken"); }));
    EXPECT_FALSE(published("talk-back-ended"));
    EXPECT_EQ(client.request("TEARDOWN", url(), session(id)).status, 200);
    EXPECT_TRUE(eventually([&] { return published("talk-back-ended"); }));
    EXPECT_TRUE(published("talk-back-taken"));
}

TEST_F(TalkBackTest, DatagramsOfTheClientReachTheOutputAndOthersDoNot)
{
    start();
    TestClient client(server->port());
    UdpPort mine;
    UdpPort other;
    const Received setup =
        client.request("SETUP", talkTrack(), udpPorts + std::to_string(mine.port()) + "\r\n" + require);
    ASSERT_EQ(setup.status, 200);
    EXPECT_EQ(client.request("PLAY", url(), session(setup.session()) + require).status, 200);
    EXPECT_TRUE(eventually([&] { return played->open.load(); }));
    for (std::uint16_t number = 1; number < 20; ++number)
    {
        other.sendTo(server->rtpPort(), packet(number));
    }
    mine.sendTo(server->rtpPort(), packet(1));
    EXPECT_TRUE(eventually([&] { return played->samples > 0; }));
    const std::size_t once = played->samples;
    mine.sendTo(server->rtpPort(), packet(2));
    EXPECT_TRUE(eventually([&] { return played->samples > once; }));
    EXPECT_LE(played->samples, 2 * once + once / 2) << "only two of the packets are the sender's";
}

TEST_F(TalkBackTest, EncryptedDatagramsReachTheOutputAndPlainOnesDoNot)
{
    start();
    TestClient client(server->port());
    UdpPort mine;
    const SrtpKey key = SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag32);
    std::string headers = "Transport: RTP/SAVP;unicast;client_port=" + std::to_string(mine.port()) + "\r\n" +
                          require + "KeyMgmt: ";
    KeyMgmtHeader::append(headers, talkTrack(), MikeyMessage::write(key, {}, WallTime()));
    const Received setup = client.request("SETUP", talkTrack(), headers + "\r\n");
    ASSERT_EQ(setup.status, 200);
    EXPECT_EQ(client.request("PLAY", url(), session(setup.session()) + require).status, 200);
    EXPECT_TRUE(eventually([&] { return played->open.load(); }));
    SrtpPeer peer(key, key);
    const auto sealed = [&](std::uint16_t number)
    {
        const auto bytes = peer.seal(SrtpPeer::bytesOf(packet(number)));
        return std::string(bytes.begin(), bytes.end());
    };
    const std::string first = sealed(20);
    mine.sendTo(server->rtpPort(), first);
    EXPECT_TRUE(eventually([&] { return played->samples > 0; }));
    const std::size_t once = played->samples;
    for (std::uint16_t number = 1; number < 20; ++number)
    {
        mine.sendTo(server->rtpPort(), packet(number));
        mine.sendTo(server->rtpPort(), first);
    }
    mine.sendTo(server->rtpPort(), sealed(21));
    EXPECT_TRUE(eventually([&] { return played->samples > once; }));
    EXPECT_LE(played->samples, 2 * once + once / 2) << "only two of the packets are authentic and new";
}

TEST_F(TalkBackTest, SharesASessionWithTheVideo)
{
    start();
    TestClient client(server->port());
    const std::string id = setUpTcp(client, 2);
    const Received setup = client.request("SETUP", talkTrack(), std::string(tcp) + session(id) + require);
    ASSERT_EQ(setup.status, 200);
    EXPECT_EQ(setup.session(), id);
    const Received play = client.request("PLAY", url(), session(id) + require);
    EXPECT_EQ(play.status, 200);
    EXPECT_EQ(play.header("RTP-Info").find("talk"), std::string::npos);
    frame(true);
    EXPECT_TRUE(client.frame(0).isRtp());
    EXPECT_TRUE(eventually([&] { return played->open.load(); }));
    client.send(interleaved(4, packet(1)));
    EXPECT_TRUE(eventually([&] { return played->samples >= 160; }));
    EXPECT_EQ(client.request("PAUSE", url(), session(id)).status, 200);
    EXPECT_TRUE(eventually([&] { return !played->open; }));
    EXPECT_EQ(client.request("PLAY", url(), session(id)).status, 200);
    EXPECT_TRUE(eventually([&] { return played->open.load(); }));
}

TEST_F(TalkBackTest, DoesNotMakeTheCameraWork)
{
    start();
    TestClient client(server->port());
    talkOverTcp(client);
    EXPECT_EQ(streams->streams[0]->viewers, 0);
}

TEST_F(TalkBackTest, SetupWithoutATrackMeansTheDevicesOwn)
{
    start();
    TestClient client(server->port());
    EXPECT_EQ(client.request("SETUP", url(), std::string(tcp) + require).status, 459);
}

TEST_F(TalkBackTest, ASecondClientIsRefusedWhereThePolicySaysSo)
{
    startWith(TalkPolicy::refuse);
    TestClient first(server->port());
    const std::string id = talkOverTcp(first);
    TestClient second(server->port());
    EXPECT_EQ(second.request("SETUP", talkTrack(), std::string(tcp) + require).status, 453);
    EXPECT_EQ(server->sessionCount(), 1u);
    const std::string viewing = setUpTcp(second, 1);
    EXPECT_EQ(second.request("SETUP", talkTrack(), std::string(tcp) + session(viewing) + require).status,
              453);
    EXPECT_EQ(second.request("PLAY", url(), session(viewing)).status, 200) << "the frame is not refused";
    EXPECT_EQ(first.request("TEARDOWN", url(), session(id)).status, 200);
    EXPECT_EQ(second.request("SETUP", talkTrack(), std::string(tcp) + session(viewing) + require).status,
              200);
}

TEST_F(TalkBackTest, NoMoreSessionsTalkAtOnceThanTheSettingsSay)
{
    TalkSettings settings;
    settings.maxTalkSenders = 3;
    SharedOutput::instance().configure(settings);
    start();
    TestClient client(server->port());
    std::string last;
    for (int i = 0; i < 3; ++i)
    {
        const Received answer = client.request("SETUP", talkTrack(), std::string(tcp) + require);
        ASSERT_EQ(answer.status, 200);
        last = answer.session();
    }
    EXPECT_EQ(client.request("SETUP", talkTrack(), std::string(tcp) + require).status, 453);
    EXPECT_EQ(server->sessionCount(), 3u);
    EXPECT_EQ(client.request("TEARDOWN", url(), session(last)).status, 200);
    EXPECT_EQ(client.request("SETUP", talkTrack(), std::string(tcp) + require).status, 200);
}

TEST_F(TalkBackTest, AGoneConnectionEndsIt)
{
    start();
    TestClient client(server->port());
    talkOverTcp(client);
    EXPECT_EQ(manager()->getSessionNum(), 1);
    client.close(true);
    EXPECT_TRUE(eventually([&] { return manager()->getSessionNum() == 0; }));
    EXPECT_TRUE(eventually([&] { return server->sessionCount() == 0; }));
}

TEST_F(TalkBackTest, ASilentUdpClientTimesOut)
{
    start();
    TestClient client(server->port());
    UdpPort mine;
    const Received setup =
        client.request("SETUP", talkTrack(), udpPorts + std::to_string(mine.port()) + "\r\n" + require);
    ASSERT_EQ(setup.status, 200);
    client.request("PLAY", url(), session(setup.session()));
    time.advance(std::chrono::milliseconds(120000));
    EXPECT_TRUE(eventually([&] { return server->sessionCount() == 0; }));
    EXPECT_EQ(manager()->getSessionNum(), 0);
}

TEST_F(TalkBackTest, ByeEndsTalkBackAndNotTheVideo)
{
    start();
    TestClient client(server->port());
    const std::string id = setUpTcp(client, 1);
    ASSERT_EQ(client.request("SETUP", talkTrack(), std::string(tcp) + session(id) + require).status, 200);
    ASSERT_EQ(client.request("PLAY", url(), session(id) + require).status, 200);
    std::string bye("\x80\xc9\x00\x01\x01\x02\x03\x04\x81\xcb\x00\x01\x01\x02\x03\x04", 16);
    client.send(interleaved(3, bye));
    EXPECT_TRUE(eventually([&] { return manager()->getSessionNum() == 0; }));
    EXPECT_EQ(client.request("PAUSE", url(), session(id)).status, 200);
    EXPECT_EQ(client.request("PLAY", url(), session(id)).status, 200);
    frame(true);
    EXPECT_TRUE(client.frame(0).isRtp());
    EXPECT_EQ(client.request("PLAY", talkTrack(), session(id)).status, 455);
    EXPECT_EQ(client.request("TEARDOWN", url(), session(id)).status, 200);
}

}  // namespace
}  // namespace test
}  // namespace refhost

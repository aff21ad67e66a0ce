#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "refhost/live/LiveDispatcher.h"
#include "refhost/rtsp/connection/RtspServer.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::Received;
using test::TestClient;
using test::UdpPort;

using RtspServerTimeoutsTest = test::RtspServerFixture;

/// An empty receiver report: enough to count as activity.
const std::string receiverReport("\x80\xc9\x00\x01\x12\x34\x56\x78", 8);

TEST_F(RtspServerTimeoutsTest, SilentClientIsClosedAfterTheHandshakeTimeout)
{
    config.limits.idleTimeout = 1000000;
    start();
    TestClient silent(server->port());
    TestClient drip(server->port());
    drip.send("OPTIONS * RT");
    TestClient established(server->port());
    EXPECT_EQ(established.request("OPTIONS", "*").status, 200);
    EXPECT_FALSE(silent.ended(20));
    EXPECT_TRUE(endedAfterHandshakeTimes(silent));
    EXPECT_TRUE(endedAfterHandshakeTimes(drip));
    EXPECT_EQ(established.request("OPTIONS", "*").status, 200);
}

TEST_F(RtspServerTimeoutsTest, LaterIncompleteRequestEndsTheConnectionToo)
{
    config.limits.idleTimeout = 1000000;
    start();
    TestClient drip(server->port());
    EXPECT_EQ(drip.request("OPTIONS", "*").status, 200);
    setUpTcp(drip, 1);
    EXPECT_FALSE(endedAfterHandshakeTimes(drip, 3)) << "it may wait between requests";
    drip.send("OPTIONS * RTSP/1.0\r\nCS");
    for (int i = 0; i < 500 && !drip.ended(20); ++i)
    {
        time.advance(std::chrono::milliseconds(config.limits.handshakeTimeout * 100));
        drip.trySend("e");
    }
    EXPECT_TRUE(drip.ended());
}

TEST_F(RtspServerTimeoutsTest, ConnectionOfAViewerWhoWasSentNothingEndsWithItsSession)
{
    start();
    TestClient interleaved(server->port());
    const std::string id = setUpTcp(interleaved);
    EXPECT_EQ(interleaved.request("PLAY", url(), session(id)).status, 200);
    const UdpPort port;
    TestClient datagrams(server->port());
    EXPECT_EQ(datagrams.request("PLAY", url(), session(setUpUdp(datagrams, port))).status, 200);
    EXPECT_EQ(server->endSessions([](int, int) { return true; }, "its stream was removed"), 2U);
    EXPECT_TRUE(interleaved.ended());
    EXPECT_TRUE(datagrams.ended());
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0; })) << "though no client closed";
}

TEST_F(RtspServerTimeoutsTest, ConnectionOfAViewerWhoWasSentNothingStaysForAnotherSession)
{
    start();
    TestClient client(server->port());
    const std::string id = setUpTcp(client, 1);
    EXPECT_EQ(client.request("PLAY", url(), session(id)).status, 200);
    const Received other = client.request("SETUP", track(url("orv/live/1/1"), 0), tcp);
    EXPECT_EQ(server->endSessions([](int, int stream) { return stream == 0; }, "its stream was removed"), 1U);
    EXPECT_FALSE(client.ended(50));
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(id)).status, 454);
    EXPECT_EQ(client.request("GET_PARAMETER", url("orv/live/1/1"), session(other.session())).status, 200);
}

TEST_F(RtspServerTimeoutsTest, ConnectionOfAViewerWhoWasSentMediaStaysWhenItsSessionEnds)
{
    start();
    TestClient client(server->port());
    const std::string id = setUpTcp(client, 1);
    EXPECT_EQ(client.request("PLAY", url(), session(id)).status, 200);
    frame(true);
    client.frame(0);
    EXPECT_EQ(server->endSessions([](int, int) { return true; }, "its stream was removed"), 1U);
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(id)).status, 454) << "after the BYE";
}

TEST_F(RtspServerTimeoutsTest, IdleConnectionEndsUnlessItCarriesASession)
{
    config.limits.sessionTimeout = 10000;
    start();
    TestClient idle(server->port());
    EXPECT_EQ(idle.request("OPTIONS", "*").status, 200);
    TestClient carrier(server->port());
    const std::string id = setUpTcp(carrier, 1);
    time.advance(std::chrono::milliseconds(config.limits.idleTimeout * 1000));
    EXPECT_TRUE(idle.ended());
    EXPECT_EQ(carrier.request("GET_PARAMETER", url(), session(id)).status, 200);
}

TEST_F(RtspServerTimeoutsTest, SessionTimesOutUnlessKeptAliveByRtsp)
{
    start();
    TestClient client(server->port());
    UdpPort port;
    const std::string kept = setUpUdp(client, port);
    const std::string forgotten = setUpUdp(client, port);
    time.advance(std::chrono::milliseconds(40000));
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(kept)).status, 200);
    time.advance(std::chrono::milliseconds(30000));
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 1; }));
    EXPECT_EQ(client.request("PLAY", url(), session(forgotten)).status, 454);
    EXPECT_EQ(client.request("PLAY", url(), session(kept)).status, 200);
}

// Transports report the real time, so the server's clock starts behind it here: a report that comes when the
// session is nearly over counts from the real now.
TEST_F(RtspServerTimeoutsTest, RtcpKeepsASessionAlive)
{
    const std::int64_t timeoutMs = config.limits.sessionTimeout * 1000;
    time.advance(std::chrono::milliseconds(-timeoutMs));
    start();
    TestClient client(server->port());
    UdpPort rtp;
    UdpPort rtcp;
    const Received overUdp =
        client.request("SETUP", track(url(), 0),
                       udpPorts + std::to_string(std::min(rtp.port(), rtcp.port())) + "-" +
                           std::to_string(std::max(rtp.port(), rtcp.port())) + "\r\n");
    ASSERT_EQ(overUdp.status, 200);
    const std::string overTcp = setUpTcp(client, 1);
    UdpPort other;
    const std::string forgotten = setUpUdp(client, other);

    time.advance(std::chrono::milliseconds(timeoutMs - 5000));
    client.send(std::string("$\x01\x00\x08", 4) + receiverReport);
    (rtp.port() > rtcp.port() ? rtp : rtcp).sendTo(server->rtpPort() + 1, receiverReport);
    EXPECT_EQ(client.request("OPTIONS", "*").status, 200);
    time.advance(std::chrono::milliseconds(10000));
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 2; }));
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(forgotten)).status, 454);
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(overUdp.session())).status, 200);
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(overTcp)).status, 200);
}

TEST_F(RtspServerTimeoutsTest, ViewerThatOnlyReceivesFramesOverTcpIsAlive)
{
    start();
    TestClient client(server->port());
    const std::string id = setUpTcp(client, 1);
    client.request("PLAY", url(), session(id));
    for (int second = 0; second < 100; ++second)
    {
        frame(true, 1);
        ASSERT_TRUE(client.frame(0).isRtp()) << "second " << second;
        time.advance(std::chrono::milliseconds(1000));
        client.receive(6);  // lets the server check
    }
    EXPECT_EQ(server->sessionCount(), 1u);
}

TEST_F(RtspServerTimeoutsTest, SilentPausedViewerStaysAliveWhileItsTcpAnswers)
{
    start();
    TestClient client(server->port(), 4096);
    const std::string id = setUpTcp(client, 1);
    client.request("PLAY", url(), session(id));
    // It stops reading: soon the connection is full.
    for (int second = 0; second < 3 * config.limits.sessionTimeout; ++second)
    {
        frame(true, 100);
        time.advance(std::chrono::milliseconds(1000));
        std::this_thread::sleep_for(std::chrono::milliseconds(6));  // lets the server check
    }
    EXPECT_EQ(server->sessionCount(), 1u);
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(id)).status, 200);
}

TEST_F(RtspServerTimeoutsTest, SessionThatWasNeverPlayedTimesOutThoughItsConnectionIsAlive)
{
    start();
    TestClient client(server->port());
    setUpTcp(client, 1);
    time.advance(std::chrono::milliseconds(config.limits.sessionTimeout * 1000));
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0; }));
}

TEST_F(RtspServerTimeoutsTest, TcpSessionEndsWithItsConnection)
{
    start();
    for (const bool reset : {false, true})
    {
        TestClient client(server->port());
        const std::string id = setUpTcp(client, 2);
        client.request("PLAY", url(), session(id));
        frame(true);
        client.close(reset);
        EXPECT_TRUE(
            eventually([this] { return server->sessionCount() == 0 && server->connectionCount() == 0; }));
        EXPECT_EQ(LiveDispatcher::instance().trackCount(), 0u);
        frame(true);
    }
}

TEST_F(RtspServerTimeoutsTest, UdpSessionOutlivesItsConnectionForAWhile)
{
    start();
    UdpPort port;
    std::string id;
    {
        TestClient client(server->port());
        id = setUpUdp(client, port);
    }
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
    EXPECT_EQ(server->sessionCount(), 1u);
    TestClient other(server->port());
    EXPECT_EQ(other.request("PLAY", url(), session(id)).status, 200) << "taken up again";
    other.close();
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
    time.advance(std::chrono::milliseconds(config.limits.orphanTimeout * 1000));
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0; }));
    EXPECT_EQ(LiveDispatcher::instance().trackCount(), 0u);
}

}  // namespace
}  // namespace refhost

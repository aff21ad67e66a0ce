#include "refhost/rtsp/connection/RtspServer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <string>
#include <thread>

#include "refhost/base/ChangeSignal.h"
#include "refhost/live/LiveDispatcher.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::Received;
using test::TestClient;
using test::UdpPort;

class RtspServerTest : public test::RtspServerFixture
{
protected:
    /// Lets the handshake time pass again and again: the server may see the client only after the first.
    bool endedAfterHandshakeTime(TestClient& client)
    {
        return endedAfterHandshakeTimes(client, 500);
    }

    bool endedAfterHandshakeTimes(TestClient& client, int times)
    {
        for (int i = 0; i < times; ++i)
        {
            time.advance(config.limits.handshakeTimeout * 1000);
            if (client.ended(20))
            {
                return true;
            }
        }
        return false;
    }
};

/// An empty receiver report: enough to count as activity.
const std::string receiverReport("\x80\xc9\x00\x01\x12\x34\x56\x78", 8);

TEST_F(RtspServerTest, ReportsWhyItCannotListen)
{
    start();
    ServerConfig taken = config;
    taken.port = server->port();
    RtspServer second(taken, routes);
    std::string error;
    EXPECT_FALSE(second.start(error));
    EXPECT_NE(error.find(std::to_string(taken.port)), std::string::npos) << error;
    EXPECT_EQ(second.port(), 0);

    ServerConfig elsewhere = config;
    elsewhere.listen = "not-an-address";
    EXPECT_FALSE(RtspServer(elsewhere, routes).start(error));
}

TEST_F(RtspServerTest, ConnectionsBeyondTheLimitAreRefusedPolitely)
{
    config.limits.connections = 2;
    start();
    TestClient first(server->port());
    TestClient second(server->port());
    EXPECT_EQ(first.request("OPTIONS", "*").status, 200);
    EXPECT_EQ(second.request("OPTIONS", "*").status, 200);
    TestClient third(server->port());
    EXPECT_EQ(third.request("DESCRIBE", url()).status, 503);
    EXPECT_TRUE(third.ended());
    first.close();
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    TestClient fourth(server->port());
    EXPECT_EQ(fourth.request("OPTIONS", "*").status, 200);
}

TEST_F(RtspServerTest, ConnectionsOfOneAddressAreLimited)
{
    config.limits.connectionsPerAddress = 1;
    start();
    TestClient first(server->port());
    EXPECT_EQ(first.request("OPTIONS", "*").status, 200);
    TestClient second(server->port());
    EXPECT_EQ(second.request("OPTIONS", "*").status, 503);
}

TEST_F(RtspServerTest, AFloodOfRefusedConnectionsIsBoundedAndEnds)
{
    config.limits.connections = 1;
    config.limits.idleTimeout = 1000000;
    config.limits.sessionTimeout = 1000000;
    start();
    TestClient first(server->port());
    setUpTcp(first, 1);
    const int before = openDescriptors();
    std::list<TestClient> flood;
    for (int i = 0; i < 200; ++i)
    {
        flood.emplace_back(server->port());
    }
    EXPECT_EQ(first.request("OPTIONS", "*").status, 200);
    // Those that are answered, and one that is being turned away.
    EXPECT_LE(openDescriptors(), before + 200 + 64 + 1);
    for (TestClient& client : flood)
    {
        EXPECT_TRUE(endedAfterHandshakeTime(client));
    }
    EXPECT_EQ(first.request("OPTIONS", "*").status, 200);
}

TEST_F(RtspServerTest, ConnectionsThatOnlyAskEndSoonWhileTheyAreScarce)
{
    config.limits.connections = 8;
    config.limits.idleTimeout = 1000000;
    config.limits.sessionTimeout = 1000000;
    start();
    TestClient viewer(server->port());
    setUpTcp(viewer, 1);
    std::list<TestClient> idle;
    for (int i = 0; i < 4; ++i)
    {
        idle.emplace_back(server->port());
        EXPECT_EQ(idle.back().request("OPTIONS", "*").status, 200);
    }
    time.advance(config.limits.setupTimeout * 1000);
    EXPECT_FALSE(idle.front().ended(50)) << "there is room";
    idle.emplace_back(server->port());
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 5; })) << "until there is room";
    EXPECT_EQ(idle.back().request("OPTIONS", "*").status, 200) << "a new one has its time";
    EXPECT_EQ(viewer.request("OPTIONS", "*").status, 200);
}

TEST_F(RtspServerTest, AUserComesInThoughSilentConnectionsOfOthersTookEverySlot)
{
    config.listen = "0.0.0.0";
    config.limits.connections = 64;
    start();
    std::list<TestClient> silent;
    for (int i = 0; i < 64; ++i)
    {
        silent.emplace_back(server->port());
    }
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 56; }));
    TestClient user(server->port(), 0, AF_INET, "127.0.0.2");
    const std::string id = setUpTcp(user, 1);
    EXPECT_EQ(user.request("PLAY", url(), session(id)).status, 200);
    for (int i = 0; i < 64; ++i)
    {
        silent.emplace_back(server->port());
    }
    EXPECT_EQ(user.request("OPTIONS", "*").status, 200);
}

TEST_F(RtspServerTest, SessionsAreLimitedInAllAndPerAddress)
{
    config.limits.sessions = 2;
    start();
    TestClient client(server->port());
    const std::string first = setUpTcp(client, 1);
    setUpTcp(client, 1);
    EXPECT_EQ(client.request("SETUP", track(url(), 0), tcp).status, 503);
    EXPECT_EQ(server->sessionCount(), 2u);
    client.request("TEARDOWN", url(), session(first));
    EXPECT_EQ(client.request("SETUP", track(url(), 0), tcp).status, 200);
}

TEST_F(RtspServerTest, SilentClientIsClosedAfterTheHandshakeTimeout)
{
    config.limits.idleTimeout = 1000000;
    start();
    TestClient silent(server->port());
    TestClient drip(server->port());
    drip.send("OPTIONS * RT");
    TestClient established(server->port());
    EXPECT_EQ(established.request("OPTIONS", "*").status, 200);
    EXPECT_FALSE(silent.ended(20));
    EXPECT_TRUE(endedAfterHandshakeTime(silent));
    EXPECT_TRUE(endedAfterHandshakeTime(drip));
    EXPECT_EQ(established.request("OPTIONS", "*").status, 200);
}

TEST_F(RtspServerTest, ALaterRequestThatDoesNotGetWholeEndsTheConnectionToo)
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
        time.advance(config.limits.handshakeTimeout * 100);
        drip.trySend("e");
    }
    EXPECT_TRUE(drip.ended());
}

TEST_F(RtspServerTest, AnIdleConnectionEndsUnlessItCarriesASession)
{
    config.limits.sessionTimeout = 10000;
    start();
    TestClient idle(server->port());
    EXPECT_EQ(idle.request("OPTIONS", "*").status, 200);
    TestClient carrier(server->port());
    const std::string id = setUpTcp(carrier, 1);
    time.advance(config.limits.idleTimeout * 1000);
    EXPECT_TRUE(idle.ended());
    EXPECT_EQ(carrier.request("GET_PARAMETER", url(), session(id)).status, 200);
}

TEST_F(RtspServerTest, ASessionTimesOutUnlessKeptAliveByRtsp)
{
    start();
    TestClient client(server->port());
    UdpPort port;
    const std::string kept = setUpUdp(client, port);
    const std::string forgotten = setUpUdp(client, port);
    time.advance(40000);
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(kept)).status, 200);
    time.advance(30000);
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 1; }));
    EXPECT_EQ(client.request("PLAY", url(), session(forgotten)).status, 454);
    EXPECT_EQ(client.request("PLAY", url(), session(kept)).status, 200);
}

TEST_F(RtspServerTest, ASessionDoesNotExistForOtherAddresses)
{
    start();
    TestClient client(server->port());
    const std::string id = setUpTcp(client, 1);
    EXPECT_EQ(client.request("PLAY", url(), session(id)).status, 200);
    TestClient other(server->port(), 0, AF_INET, "127.0.0.2");
    for (const char* const method :
         {"OPTIONS", "PLAY", "PAUSE", "GET_PARAMETER", "SET_PARAMETER", "TEARDOWN"})
    {
        EXPECT_EQ(other.request(method, url(), session(id)).status, 454) << method;
    }
    EXPECT_EQ(other.request("SETUP", track(url(), 1), tcp + session(id)).status, 454);
    TestClient again(server->port());
    EXPECT_EQ(again.request("PAUSE", url(), session(id)).status, 200) << "another connection of the same";
    EXPECT_EQ(again.request("TEARDOWN", url(), session(id)).status, 200);
}

// Transports report the real time, so the server's clock starts behind it here: a report that comes when the
// session is nearly over counts from the real now.
TEST_F(RtspServerTest, RtcpKeepsASessionAlive)
{
    const std::int64_t timeoutMs = config.limits.sessionTimeout * 1000;
    time.advance(-timeoutMs);
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

    time.advance(timeoutMs - 5000);
    client.send(std::string("$\x01\x00\x08", 4) + receiverReport);
    (rtp.port() > rtcp.port() ? rtp : rtcp).sendTo(server->rtpPort() + 1, receiverReport);
    EXPECT_EQ(client.request("OPTIONS", "*").status, 200);
    time.advance(10000);
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 2; }));
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(forgotten)).status, 454);
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(overUdp.session())).status, 200);
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(overTcp)).status, 200);
}

TEST_F(RtspServerTest, AViewerThatOnlyTakesFramesOverTcpIsAlive)
{
    start();
    TestClient client(server->port());
    const std::string id = setUpTcp(client, 1);
    client.request("PLAY", url(), session(id));
    for (int second = 0; second < 100; ++second)
    {
        frame(true, 1);
        ASSERT_TRUE(client.frame(0).isRtp()) << "second " << second;
        time.advance(1000);
        client.receive(6);  // gives the server time to look
    }
    EXPECT_EQ(server->sessionCount(), 1u);
}

TEST_F(RtspServerTest, SilentPausedViewerStaysAliveWhileItsTcpAnswers)
{
    start();
    TestClient client(server->port(), 4096);
    const std::string id = setUpTcp(client, 1);
    client.request("PLAY", url(), session(id));
    // It stops reading: soon the connection takes nothing more.
    for (int second = 0; second < 3 * config.limits.sessionTimeout; ++second)
    {
        frame(true, 100);
        time.advance(1000);
        std::this_thread::sleep_for(std::chrono::milliseconds(6));  // gives the server time to look
    }
    EXPECT_EQ(server->sessionCount(), 1u);
    EXPECT_EQ(client.request("GET_PARAMETER", url(), session(id)).status, 200);
}

TEST_F(RtspServerTest, ASessionThatWasNeverPlayedTimesOutThoughItsConnectionLives)
{
    start();
    TestClient client(server->port());
    setUpTcp(client, 1);
    time.advance(config.limits.sessionTimeout * 1000);
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0; }));
}

TEST_F(RtspServerTest, ATcpSessionEndsWithItsConnection)
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

TEST_F(RtspServerTest, AUdpSessionOutlivesItsConnectionForAWhile)
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
    time.advance(config.limits.orphanTimeout * 1000);
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0; }));
    EXPECT_EQ(LiveDispatcher::instance().trackCount(), 0u);
}

TEST_F(RtspServerTest, StopEndsEverythingAndLeavesNothing)
{
    // The thread sanitizer brings a thread of its own along with the first one.
    std::thread([] {}).join();
    const int threadsBefore = threads();
    const int descriptorsBefore = openDescriptors();
    start();
    std::list<TestClient> clients;
    UdpPort port;
    const int descriptorsOfClients = 21;
    for (int i = 0; i < 20; ++i)
    {
        TestClient& client = clients.emplace_back(server->port());
        const std::string id = i % 2 == 0 ? setUpTcp(client, 2) : setUpUdp(client, port);
        EXPECT_EQ(client.request("PLAY", url(), session(id)).status, 200);
    }
    frame(true);
    EXPECT_EQ(server->sessionCount(), 20u);
    const auto begin = std::chrono::steady_clock::now();
    server->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_EQ(server->sessionCount(), 0u);
    EXPECT_EQ(server->connectionCount(), 0u);
    EXPECT_EQ(server->port(), 0);
    EXPECT_EQ(LiveDispatcher::instance().trackCount(), 0u);
    EXPECT_EQ(ChangeSignal::instance().subscriberCount(), 0u);
    EXPECT_EQ(threads(), threadsBefore);
    EXPECT_EQ(openDescriptors(), descriptorsBefore + descriptorsOfClients);
    for (TestClient& client : clients)
    {
        EXPECT_TRUE(client.ended());
    }
}

TEST_F(RtspServerTest, ServesAgainAfterStop)
{
    start();
    server->stop();
    server->stop();
    std::string error;
    ASSERT_TRUE(server->start(error)) << error;
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url()).status, 200);
}

TEST_F(RtspServerTest, VanishedClientsLeaveNoDescriptorBehind)
{
    start();
    {
        TestClient warmUp(server->port());
        setUpTcp(warmUp, 1);
    }
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
    const int before = openDescriptors();
    for (int i = 0; i < 50; ++i)
    {
        TestClient client(server->port());
        const std::string id = setUpTcp(client, 2);
        client.request("PLAY", url(), session(id));
        frame(true);
        client.close(i % 2 == 0);
    }
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0 && server->sessionCount() == 0; }));
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(RtspServerTest, FiftyClientsComeAndGoWhileFramesFlow)
{
    start();
    std::atomic<int> running{50};
    std::atomic<bool> stop{false};
    std::thread camera(
        [&]
        {
            for (int i = 0; !stop; ++i)
            {
                frame(i % 10 == 0, 5);
                feedAudio();
                std::this_thread::yield();
            }
        });
    std::vector<std::thread> clients;
    for (int i = 0; i < 50; ++i)
    {
        clients.emplace_back(
            [this, i, &running]
            {
                UdpPort port;
                for (int iteration = 0; iteration < 3; ++iteration)
                {
                    TestClient client(server->port());
                    EXPECT_EQ(client.request("DESCRIBE", url()).status, 200);
                    const bool overTcp = (i + iteration) % 2 == 0;
                    const std::string id = overTcp ? setUpTcp(client, 2) : setUpUdp(client, port);
                    EXPECT_EQ(client.request("PLAY", url(), session(id)).status, 200);
                    if (overTcp)
                    {
                        EXPECT_TRUE(client.frame(0).isRtp());
                    }
                    else
                    {
                        EXPECT_GE(port.receive().size(), 12u);
                    }
                    if ((i + iteration) % 3 != 0)
                    {
                        EXPECT_EQ(client.request("TEARDOWN", url(), session(id)).status, 200);
                    }
                    client.close((i + iteration) % 5 == 0);
                }
                --running;
            });
    }
    for (std::thread& client : clients)
    {
        client.join();
    }
    stop = true;
    camera.join();
    EXPECT_EQ(running, 0);
    time.advance(config.limits.sessionTimeout * 1000);
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0 && server->connectionCount() == 0; }));
}

/// A listen address and the family of a client.
class RtspServerFamilyTest : public RtspServerTest,
                             public testing::WithParamInterface<std::pair<const char*, int>>
{
};

INSTANTIATE_TEST_SUITE_P(Families, RtspServerFamilyTest,
                         testing::Values(std::pair("::1", AF_INET6), std::pair("::", AF_INET6),
                                         std::pair("::", AF_INET)));

TEST_P(RtspServerFamilyTest, IsServedOverUdpAndTcp)
{
    const auto [listen, family] = GetParam();
    config.listen = listen;
    {
        std::string error;
        RtspServer probe(config, routes);
        if (!probe.start(error))
        {
            GTEST_SKIP() << "no IPv6 here: " << error;
        }
    }
    start();
    TestClient client(server->port(), 0, family);
    EXPECT_NE(client.request("DESCRIBE", url())
                  .body.find(family == AF_INET6 ? "c=IN IP6 ::\r\n" : "c=IN IP4 0.0.0.0\r\n"),
              std::string::npos);
    UdpPort rtp(family);
    const std::string overUdp = setUpUdp(client, rtp);
    const std::string overTcp = setUpTcp(client, 1);
    EXPECT_EQ(client.request("PLAY", url(), session(overUdp)).status, 200);
    EXPECT_EQ(client.request("PLAY", url(), session(overTcp)).status, 200);
    frame(true, 1);
    EXPECT_GE(rtp.receive().size(), 12u);
    EXPECT_TRUE(client.frame(0).isRtp());
}

}  // namespace
}  // namespace refhost

#include <gtest/gtest.h>

#include <list>

#include "refhost/rtsp/connection/RtspServer.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::TestClient;

using RtspServerLimitsTest = test::RtspServerFixture;

TEST_F(RtspServerLimitsTest, ConnectionsBeyondTheLimitAreRefusedPolitely)
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

TEST_F(RtspServerLimitsTest, ConnectionsOfOneAddressAreLimited)
{
    config.limits.connectionsPerAddress = 1;
    start();
    TestClient first(server->port());
    EXPECT_EQ(first.request("OPTIONS", "*").status, 200);
    TestClient second(server->port());
    EXPECT_EQ(second.request("OPTIONS", "*").status, 503);
}

TEST_F(RtspServerLimitsTest, FloodOfRefusedConnectionsIsBoundedAndEnds)
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
    // Those that are answered, and one being refused.
    EXPECT_LE(openDescriptors(), before + 200 + 64 + 1);
    for (TestClient& client : flood)
    {
        EXPECT_TRUE(endedAfterHandshakeTimes(client));
    }
    EXPECT_EQ(first.request("OPTIONS", "*").status, 200);
}

TEST_F(RtspServerLimitsTest, ConnectionsWithoutASessionEndSoonWhileSlotsAreScarce)
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
    time.advance(std::chrono::milliseconds(config.limits.setupTimeout * 1000));
    EXPECT_FALSE(idle.front().ended(50)) << "there is room";
    idle.emplace_back(server->port());
    // Both loops may end one at the same time.
    EXPECT_TRUE(eventually([this] { return server->connectionCount() <= 5; })) << "until there is room";
    EXPECT_EQ(idle.back().request("OPTIONS", "*").status, 200) << "a new one has its time";
    EXPECT_EQ(viewer.request("OPTIONS", "*").status, 200);
}

TEST_F(RtspServerLimitsTest, ViewerConnectsThoughSilentConnectionsOfOthersTookEverySlot)
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

TEST_F(RtspServerLimitsTest, SessionsAreLimited)
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

}  // namespace
}  // namespace refhost

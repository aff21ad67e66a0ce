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

using test::TestClient;
using test::UdpPort;

using RtspServerTest = test::RtspServerFixture;

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

TEST_F(RtspServerTest, StopEndsEverythingAndLeavesNothing)
{
    // The thread sanitizer starts a thread of its own with the first one.
    std::thread([] {}).join();
    const int threadsBefore = threads();
    const int descriptorsBefore = openDescriptors();
    start();
    std::list<TestClient> clients;
    UdpPort port;
    const int descriptorsOfClients = 20 + 2;
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
    time.advance(std::chrono::milliseconds(config.limits.sessionTimeout * 1000));
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0 && server->connectionCount() == 0; }));
}

/// A listen address and the family of a client.
class RtspServerFamilyTest : public RtspServerTest,
                             public testing::WithParamInterface<std::pair<const char*, int>>
{
};

INSTANTIATE_TEST_SUITE_P(Families, RtspServerFamilyTest,
                         testing::Values(std::pair("::1", AF_INET6), std::pair("::", AF_INET6),
                                         std::pair("::", AF_INET)),
                         [](const testing::TestParamInfo<RtspServerFamilyTest::ParamType>& tested)
                         {
                             const std::string listen =
                                 tested.param.first == std::string("::") ? "Wildcard" : "Loopback";
                             return listen + (tested.param.second == AF_INET ? "Ipv4" : "Ipv6");
                         });

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

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "refhost/ServedMedia.h"
#include "refhost/live/LiveSessionDispatcher.h"
#include "refhost/live/MulticastRecords.h"
#include "tests/refhost/rtp/GroupMember.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr const char* multicast = "Transport: RTP/AVP;multicast\r\n";
constexpr const char* mainPath = "orv/multicast/1/0";
constexpr const char* smallPath = "orv/multicast/1/1";

/// The value of a parameter of a header such as Transport; empty when it has none.
std::string parameter(const std::string& header, const std::string& name)
{
    const std::size_t begin = header.find(";" + name + "=");
    if (begin == std::string::npos)
    {
        return {};
    }
    const std::size_t value = begin + name.size() + 2;
    return header.substr(value, header.find_first_of(";,", value) - value);
}

/// A server with the routes of the program, whose groups are at the loopback interface.
class MulticastTest : public RtspServerFixture
{
protected:
    /// One viewer, with an RTSP session of its own.
    struct Viewer
    {
        explicit Viewer(int port) : client(port) {}

        TestClient client;
        std::string session;
        Received setup;  ///< of the first track
    };

    MulticastTest()
    {
        config.multicast.pool = "239.255.42.192/28";
        config.multicast.port = GroupMember::firstPort();
        start();
    }

    ~MulticastTest() override
    {
        server.reset();
        EXPECT_EQ(LiveSessionDispatcher::instance().sessionCount(), 0u);
        EXPECT_EQ(streams->streams[0]->viewers.load(), 0);
    }

    void start()
    {
        media = std::make_unique<ServedMedia>(config);
        routes = media->routes(DeviceInfoEx());
        RtspServerFixture::start();
    }

    std::unique_ptr<Viewer> join(int tracks = 1, const char* path = mainPath)
    {
        auto viewer = std::make_unique<Viewer>(server->port());
        for (int i = 0; i < tracks; ++i)
        {
            const std::string known = i == 0 ? "" : session(viewer->session);
            const Received setup = viewer->client.request("SETUP", track(url(path), i), multicast + known);
            EXPECT_EQ(setup.status, 200);
            viewer->session = setup.session();
            viewer->setup = i == 0 ? setup : viewer->setup;
        }
        return viewer;
    }

    Received play(Viewer& viewer)
    {
        return viewer.client.request("PLAY", url(mainPath), session(viewer.session));
    }

    int ask(Viewer& viewer, const char* method)
    {
        return viewer.client.request(method, url(mainPath), session(viewer.session)).status;
    }

    /// The group in the response to SETUP.
    static MulticastGroup groupOf(const Viewer& viewer)
    {
        const std::string transport = viewer.setup.header("Transport");
        const std::string port = parameter(transport, "port");
        const auto group =
            MulticastGroup::parse(parameter(transport, "destination") + ":" + port.substr(0, port.find('-')));
        EXPECT_TRUE(group) << transport;
        return group.value_or(MulticastGroup());
    }

    static int sequenceOf(const GroupMember::Bytes& packet)
    {
        return packet.size() < 12 ? -1 : packet[2] << 8 | packet[3];
    }

    std::unique_ptr<ServedMedia> media;
};

TEST_F(MulticastTest, DescriptionAndSetupNameTheSameGroup)
{
    TestClient client(server->port());
    const Received described = client.request("DESCRIBE", url(mainPath));
    ASSERT_EQ(described.status, 200);
    const auto viewer = join(2);
    const std::string transport = viewer->setup.header("Transport");
    const MulticastGroup group = groupOf(*viewer);
    EXPECT_EQ(transport.find("RTP/AVP;multicast;destination=239.255.42.192;port="), 0u) << transport;
    EXPECT_EQ(parameter(transport, "port"),
              std::to_string(group.port) + "-" + std::to_string(group.port + 1));
    EXPECT_EQ(parameter(transport, "ttl"), "1");
    EXPECT_NE(parameter(transport, "source"), "") << transport;
    EXPECT_EQ(parameter(transport, "ssrc").size(), 8u);
    for (const std::string& line :
         {"c=IN IP4 " + group.addressText() + "/1\r\n",
          "m=video " + std::to_string(group.port) + " RTP/AVP 96",
          "m=audio " + std::to_string(group.port + 2) + " RTP/AVP 0", std::string("s=orv/multicast/1/0\r\n")})
    {
        EXPECT_NE(described.body.find(line), std::string::npos) << line << "in\n" << described.body;
    }
}

TEST_F(MulticastTest, EachStreamHasAGroupOfItsOwn)
{
    const auto one = join();
    const auto other = join(1, smallPath);
    EXPECT_NE(groupOf(*one).address, groupOf(*other).address);
}

TEST_F(MulticastTest, UnicastOnAMulticastUrlIsRefused)
{
    TestClient client(server->port());
    for (const char* transport : {"RTP/AVP;unicast;client_port=5000-5001",
                                  "RTP/AVP/TCP;unicast;interleaved=0-1", "RTP/AVP/TCP;multicast"})
    {
        const Received setup =
            client.request("SETUP", track(url(mainPath), 0), "Transport: " + std::string(transport) + "\r\n");
        EXPECT_EQ(setup.status, 461) << transport;
    }
    EXPECT_EQ(server->sessionCount(), 0u);
}

TEST_F(MulticastTest, NoMemberCanAskForAnEncryptedGroup)
{
    TestClient client(server->port());
    const Received description = client.request("DESCRIBE", url(mainPath) + "?security=srtp");
    EXPECT_EQ(description.status, 200);
    EXPECT_EQ(description.body.find("SAVP"), std::string::npos) << description.body;
    EXPECT_EQ(client.request("SETUP", track(url(mainPath), 0), "Transport: RTP/SAVP;multicast\r\n").status,
              461);
}

TEST_F(MulticastTest, MulticastOnAUnicastUrlIsRefused)
{
    TestClient client(server->port());
    EXPECT_EQ(client.request("SETUP", track(url(), 0), multicast).status, 461);
    EXPECT_EQ(server->sessionCount(), 0u);
}

TEST_F(MulticastTest, UrlsThatNameNoStreamAreNotFound)
{
    TestClient client(server->port());
    for (const char* path :
         {"orv/multicast/1/2", "orv/multicast/2/0", "orv/multicast/1", "orv/multicast/x/0"})
    {
        EXPECT_EQ(client.request("DESCRIBE", url(path)).status, 404) << path;
    }
    EXPECT_EQ(client.request("SETUP", track(url(mainPath), 7), multicast).status, 404);
    EXPECT_EQ(server->sessionCount(), 0u);
}

TEST_F(MulticastTest, FirstViewerStartsThePacketsAndLearnsTheFirst)
{
    const auto viewer = join();
    GroupMember member(groupOf(*viewer), groupOf(*viewer).port);
    const Received played = play(*viewer);
    ASSERT_EQ(played.status, 200);
    frame(true, 2);
    const auto packet = member.receive();
    EXPECT_EQ(parameter(played.header("RTP-Info"), "seq"), std::to_string(sequenceOf(packet)));
    Received asFrame;
    asFrame.payload.assign(packet.begin(), packet.end());
    EXPECT_EQ(parameter(played.header("RTP-Info"), "rtptime"), std::to_string(asFrame.timestamp()));
    EXPECT_EQ(std::stoul(parameter(viewer->setup.header("Transport"), "ssrc"), nullptr, 16), asFrame.ssrc());
}

TEST_F(MulticastTest, ASecondViewerChangesNothingForTheFirst)
{
    const auto first = join();
    GroupMember member(groupOf(*first), groupOf(*first).port);
    play(*first);
    frame(true, 2);
    const int begin = sequenceOf(member.receive());
    member.receive();
    const auto second = join();
    EXPECT_EQ(groupOf(*first), groupOf(*second));
    EXPECT_EQ(parameter(first->setup.header("Transport"), "ssrc"),
              parameter(second->setup.header("Transport"), "ssrc"));
    const Received played = play(*second);
    EXPECT_EQ(parameter(played.header("RTP-Info"), "seq"), std::to_string((begin + 2) & 0xffff));
    frame(false, 1);
    EXPECT_EQ(sequenceOf(member.receive()), (begin + 2) & 0xffff);
    EXPECT_EQ(member.waiting(), 0u) << "sent once, whatever the number of viewers";
    EXPECT_EQ(streams->streams[0]->viewers.load(), 1);
}

TEST_F(MulticastTest, JoiningViewerCausesAKeyFrame)
{
    const auto first = join();
    play(*first);
    frame(true, 1);
    frame(false, 1);
    const int before = streams->streams[0]->keyRequests.load();
    const auto second = join();
    play(*second);
    EXPECT_EQ(streams->streams[0]->keyRequests.load(), before + 1);
}

TEST_F(MulticastTest, OneOfTwoCannotPauseTheOther)
{
    const auto first = join();
    const auto second = join();
    GroupMember member(groupOf(*first), groupOf(*first).port);
    play(*first);
    play(*second);
    EXPECT_EQ(ask(*first, "PAUSE"), 200);
    frame(true, 1);
    EXPECT_FALSE(member.receive().empty());
    EXPECT_EQ(ask(*first, "TEARDOWN"), 200);
    EXPECT_EQ(ask(*second, "PAUSE"), 200);
    frame(true, 1);
    EXPECT_EQ(member.waiting(), 0u) << "alone, a viewer pauses";
    EXPECT_EQ(streams->streams[0]->viewers.load(), 0);
}

TEST_F(MulticastTest, TheLastTeardownEndsThePacketsAndFreesTheGroup)
{
    server.reset();
    media.reset();
    config.multicast.pool = "239.255.42.193";
    start();
    const auto first = join(2);
    const auto second = join(2);
    const MulticastGroup group = groupOf(*first);
    GroupMember member(group, group.port);
    GroupMember reports(group, group.port + 1);
    play(*first);
    play(*second);
    EXPECT_EQ(ask(*first, "TEARDOWN"), 200);
    frame(true, 1);
    EXPECT_FALSE(member.receive().empty());
    TestClient other(server->port());
    EXPECT_EQ(other.request("SETUP", track(url(smallPath), 0), multicast).status, 503) << "no group is free";
    EXPECT_EQ(ask(*second, "TEARDOWN"), 200);
    frame(true, 1);
    EXPECT_EQ(member.waiting(), 0u);
    const auto report = reports.receive();
    EXPECT_FALSE(report.empty());
    EXPECT_FALSE(MulticastRecords::instance().has("multicast/1/0"));
    EXPECT_EQ(other.request("SETUP", track(url(smallPath), 0), multicast).status, 200);
}

TEST_F(MulticastTest, TeardownOfOneTrackLeavesTheGroupWithAll)
{
    server.reset();
    media.reset();
    config.multicast.pool = "239.255.42.193";
    start();
    const auto other = join(2);
    const auto viewer = join(2);
    GroupMember member(groupOf(*viewer), groupOf(*viewer).port);
    play(*other);
    play(*viewer);
    EXPECT_EQ(viewer->client.request("TEARDOWN", track(url(mainPath), 1), session(viewer->session)).status,
              200);
    EXPECT_EQ(server->sessionCount(), 1u);
    frame(true, 1);
    EXPECT_FALSE(member.receive().empty()) << "the other one watches on";
    EXPECT_EQ(other->client.request("TEARDOWN", track(url(mainPath), 0), session(other->session)).status,
              200);
    EXPECT_EQ(server->sessionCount(), 0u);
    frame(true, 1);
    EXPECT_EQ(member.waiting(), 0u);
    EXPECT_EQ(TestClient(server->port()).request("SETUP", track(url(smallPath), 0), multicast).status, 200)
        << "the group is free for another stream";
}

TEST_F(MulticastTest, SetupOfOneTrackAgainLeavesTheOther)
{
    const auto viewer = join(2);
    GroupMember frames(groupOf(*viewer), groupOf(*viewer).port);
    GroupMember blocks(groupOf(*viewer), groupOf(*viewer).port + 2);
    EXPECT_EQ(
        viewer->client.request("SETUP", track(url(mainPath), 0), multicast + session(viewer->session)).status,
        200);
    EXPECT_EQ(play(*viewer).status, 200);
    frame(true, 1);
    feedAudio();
    EXPECT_FALSE(frames.receive().empty());
    EXPECT_FALSE(blocks.receive().empty());
    EXPECT_EQ(ask(*viewer, "TEARDOWN"), 200);
    EXPECT_EQ(server->sessionCount(), 0u);
}

TEST_F(MulticastTest, JoiningViewerGetsASenderReportWithTheNextFrame)
{
    const auto first = join();
    GroupMember reports(groupOf(*first), groupOf(*first).port + 1);
    play(*first);
    frame(true, 1);
    EXPECT_FALSE(reports.receive().empty());
    reports.waiting();
    const auto second = join();
    play(*second);
    frame(false, 1);
    EXPECT_EQ(reports.waiting(), 1u) << "video and audio fit together from the start";
}

TEST_F(MulticastTest, AViewerWhoseConnectionEndsLeavesThoughTheOthersStay)
{
    auto first = join();
    const auto second = join();
    GroupMember member(groupOf(*first), groupOf(*first).port);
    play(*first);
    play(*second);
    ASSERT_EQ(server->sessionCount(), 2u);
    first->client.close(true);
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    time.advance(std::chrono::milliseconds(config.limits.orphanTimeout * 1000 / 2));
    EXPECT_EQ(ask(*second, "GET_PARAMETER"), 200);
    frame(true, 1);
    EXPECT_FALSE(member.receive().empty());
    time.advance(std::chrono::milliseconds(config.limits.orphanTimeout * 1000));
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 1; }));
    EXPECT_EQ(ask(*second, "GET_PARAMETER"), 200);
    frame(false, 1);
    EXPECT_FALSE(member.receive().empty());
}

TEST_F(MulticastTest, ASilentViewerLeavesThoughMembersReport)
{
    const auto silent = join();
    const auto sender = join();
    const MulticastGroup group = groupOf(*silent);
    GroupMember reports(group, group.port + 1);
    play(*silent);
    play(*sender);
    for (int i = 0; i < 4; ++i)
    {
        time.advance(std::chrono::milliseconds(config.limits.sessionTimeout * 1000 / 2));
        EXPECT_EQ(ask(*sender, "GET_PARAMETER"), 200);
        reports.send({0x80, 201, 0, 1, 1, 2, 3, 4});
    }
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 1; }));
    EXPECT_EQ(ask(*sender, "GET_PARAMETER"), 200);
    // Its connection has no session left and may have ended too.
    TestClient late(server->port());
    EXPECT_EQ(late.request("GET_PARAMETER", url(mainPath), session(silent->session)).status, 454);
}

TEST_F(MulticastTest, TheDeathOfTheLastViewerEndsThePackets)
{
    auto only = join(2);
    GroupMember member(groupOf(*only), groupOf(*only).port);
    play(*only);
    only->client.close(true);
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
    time.advance(std::chrono::milliseconds(config.limits.orphanTimeout * 1000 + 1000));
    EXPECT_TRUE(eventually([] { return LiveSessionDispatcher::instance().sessionCount() == 0; }));
    frame(true, 1);
    EXPECT_EQ(member.waiting(), 0u);
    EXPECT_EQ(streams->streams[0]->viewers.load(), 0);
}

TEST_F(MulticastTest, FiveViewersLeaveInEveryOrderWithoutAGap)
{
    server.reset();
    media.reset();
    config.gopCache = false;  // each iteration starts with its own frame
    start();
    std::array<int, 5> order{0, 1, 2, 3, 4};
    do
    {
        std::vector<std::unique_ptr<Viewer>> viewers;
        for (std::size_t i = 0; i < order.size(); ++i)
        {
            viewers.push_back(join());
        }
        GroupMember member(groupOf(*viewers[0]), groupOf(*viewers[0]).port);
        for (const int i : order)
        {
            play(*viewers[static_cast<std::size_t>(i)]);
        }
        frame(true, 1);
        int next = sequenceOf(member.receive());
        for (const int i : order)
        {
            frame(true, 1);
            next = (next + 1) & 0xffff;
            ASSERT_EQ(sequenceOf(member.receive()), next);
            ASSERT_EQ(ask(*viewers[static_cast<std::size_t>(i)], "TEARDOWN"), 200);
        }
        frame(true, 1);
        ASSERT_EQ(member.waiting(), 0u);
        ASSERT_EQ(LiveSessionDispatcher::instance().sessionCount(), 0u);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(MulticastTest, ViewersOfAllThreadsComeAndGoAtOnce)
{
    const auto steady = join();
    GroupMember member(groupOf(*steady), groupOf(*steady).port);
    play(*steady);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [this, i]
            {
                for (int turn = 0; turn < 25; ++turn)
                {
                    const auto viewer = join(1 + turn % 2);
                    EXPECT_EQ(play(*viewer).status, 200);
                    // The others leave without TEARDOWN.
                    if ((turn + i) % 3 != 0)
                    {
                        EXPECT_EQ(ask(*viewer, "TEARDOWN"), 200);
                    }
                }
            });
    }
    constexpr int sent = 200;
    for (int i = 0; i < sent; ++i)
    {
        frame(i % 25 == 0, 1);
        std::this_thread::yield();
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    // Packets delayed by another thread's method are sent with the next frames.
    for (int i = 0; i < sent; ++i)
    {
        frame(false, 1);
    }
    int next = sequenceOf(member.receive());
    for (int i = 1; i < sent; ++i)
    {
        next = (next + 1) & 0xffff;
        ASSERT_EQ(sequenceOf(member.receive()), next) << "packet " << i;
    }
    EXPECT_EQ(ask(*steady, "TEARDOWN"), 200);
}

TEST_F(MulticastTest, LastLeavingViewerDoesNotDisturbOneThatJoins)
{
    server.reset();
    media.reset();
    config.threads = 4;
    start();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [this]
            {
                for (int turn = 0; turn < 200; ++turn)
                {
                    const auto viewer = join(2);
                    EXPECT_EQ(play(*viewer).status, 200);
                    EXPECT_EQ(ask(*viewer, "TEARDOWN"), 200);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(LiveSessionDispatcher::instance().sessionCount(), 0u);
}

}  // namespace
}  // namespace test
}  // namespace refhost

#include "refhost/rtp/multicast/MulticastServer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/SafePointer.h"
#include "tests/refhost/rtp/GroupMember.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using Bytes = std::vector<std::uint8_t>;
using Transport = std::optional<SafePointer<RtpTransport>>;

const MulticastPool::Stream mainStream{1, 0};
const MulticastPool::Stream smallStream{1, 1};

class Listener : public TransportListener
{
public:
    void onTransportReady() override {}

    void onRtcp(const std::uint8_t* data, std::size_t size) override
    {
        reports.emplace_back(data, data + size);
    }

    std::vector<Bytes> reports;
};

class MulticastServerTest : public testing::Test
{
protected:
    /// Ports that no other test's process uses at the same time.
    MulticastServerTest()
    {
        options.pool.range = *MulticastRange::parse("239.255.42.128/30");
        options.pool.port = GroupMember::firstPort();
        options.interface = "127.0.0.1";
        options.segmentationOffload = false;
    }

    std::shared_ptr<MulticastServer> open()
    {
        std::string error;
        auto server = MulticastServer::open(options, error);
        EXPECT_TRUE(server) << error;
        return server;
    }

    MulticastServer::Options options;
};

TEST_F(MulticastServerTest, AnUnknownInterfaceIsRefused)
{
    for (const char* name : {"nosuch0", "192.0.2.1"})
    {
        options.interface = name;
        std::string error;
        EXPECT_FALSE(MulticastServer::open(options, error));
        EXPECT_NE(std::string::npos, error.find(name)) << error;
    }
}

TEST_F(MulticastServerTest, ListenAddressSelectsTheInterface)
{
    options.interface.clear();
    options.listen = "127.0.0.1";
    const auto server = open();
    Transport transport;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    GroupMember member(destination.group, destination.group.portOf(0));
    (*transport)->send(makeUnit(1, 1, true, 1), 0, {7, 8, 9, 96}, false);
    EXPECT_EQ(112U, member.receive().size());
}

TEST_F(MulticastServerTest, ATransportIsSharedAndTakesFewUnitsAtOnce)
{
    const auto server = open();
    Transport transport;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    const TransportTraits& traits = (*transport)->traits();
    EXPECT_TRUE(traits.shared);
    EXPECT_EQ(traits.maxCatchUpUnits, 4U);
    EXPECT_FALSE(traits.joinsUnits);
    EXPECT_FALSE(traits.reportsReady);
    EXPECT_FALSE(traits.silentWhenGone);
}

/// Whether packets are sent in segmented messages or one by one.
class MulticastSendingTest : public MulticastServerTest, public testing::WithParamInterface<bool>
{
};

INSTANTIATE_TEST_SUITE_P(Offload, MulticastSendingTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& segmented)
                         { return segmented.param ? "Segmented" : "SinglePackets"; });

TEST_P(MulticastSendingTest, EveryMemberGetsWhatIsSentOnce)
{
    options.segmentationOffload = GetParam();
    const auto server = open();
    Transport transport;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    EXPECT_EQ(IConnection::udpMulticast, (*transport)->transportKind);
    GroupMember one(destination.group, destination.group.portOf(0));
    GroupMember other(destination.group, destination.group.portOf(0));
    const SendResult result = (*transport)->send(makeUnit(1, 1, true, 3), 0, {7, 100, 9, 96}, false);
    EXPECT_EQ(SendStatus::sent, result.status);
    EXPECT_EQ(3U, result.packets);
    for (GroupMember* member : {&one, &other})
    {
        for (const int sequence : {100, 101, 102})
        {
            const Bytes packet = member->receive();
            ASSERT_LT(12U, packet.size());
            EXPECT_EQ(sequence, packet[3]);
        }
        EXPECT_EQ(0U, member->waiting());
    }
}

TEST_F(MulticastServerTest, PacketsLeaveFromTheAnnouncedPortsAndAddress)
{
    const auto server = open();
    Transport tracks[MulticastGroup::tracks];
    for (int track = 0; track < MulticastGroup::tracks; ++track)
    {
        MulticastDestination destination;
        ASSERT_TRUE(server->makeTransport(mainStream, track, tracks[track], destination));
        const int port = destination.group.portOf(track);
        GroupMember rtp(destination.group, port);
        GroupMember rtcp(destination.group, port + 1);
        (*tracks[track])->send(makeUnit(1, 1, true, 1), 0, {7, 8, 9, 96}, false);
        const Bytes report{0x80, 200, 0, 1, 1, 2, 3, 4};
        (*tracks[track])->sendRtcp(report.data(), report.size());
        SocketAddress from;
        EXPECT_EQ(112U, rtp.receive(from).size());
        EXPECT_EQ(destination.source + ":" + std::to_string(port), from.textWithPort());
        EXPECT_EQ(report, rtcp.receive(from));
        EXPECT_EQ(destination.source + ":" + std::to_string(port + 1), from.textWithPort());
    }
}

TEST_F(MulticastServerTest, EachTrackAndEachStreamHasPortsOfItsOwn)
{
    const auto server = open();
    Transport video;
    Transport audio;
    MulticastDestination destination;
    MulticastDestination same;
    MulticastDestination other;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, video, destination));
    ASSERT_TRUE(server->makeTransport(mainStream, 1, audio, same));
    ASSERT_TRUE(server->describe(smallStream, other));
    EXPECT_EQ(destination.group, same.group);
    EXPECT_NE(destination.group.address, other.group.address);
    GroupMember listener(destination.group, destination.group.portOf(1));
    (*video)->send(makeUnit(1, 1, true, 1), 0, {7, 8, 9, 96}, false);
    (*audio)->send(makeUnit(1, 1, true, 1, 160, 50), 0, {7, 8, 9, 0}, false);
    EXPECT_EQ(62U, listener.receive().size());
    EXPECT_EQ(0U, listener.waiting());
}

TEST_F(MulticastServerTest, TracksBeyondTheGroupsPortsAreRefused)
{
    const auto server = open();
    Transport transport;
    MulticastDestination destination;
    EXPECT_FALSE(server->makeTransport(mainStream, 2, transport, destination));
    EXPECT_FALSE(server->makeTransport(mainStream, -1, transport, destination));
    EXPECT_FALSE(transport);
    EXPECT_EQ(0U, server->groupsTaken());
}

TEST_F(MulticastServerTest, TheGroupIsFreeAfterTheLastTransport)
{
    options.pool.range = *MulticastRange::parse("239.255.42.128");
    const auto server = open();
    Transport video;
    Transport audio;
    Transport other;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, video, destination));
    ASSERT_TRUE(server->makeTransport(mainStream, 1, audio, destination));
    EXPECT_EQ(1U, server->groupsTaken());
    video.reset();
    EXPECT_FALSE(server->makeTransport(smallStream, 0, other, destination));
    audio.reset();
    EXPECT_EQ(0U, server->groupsTaken());
    EXPECT_TRUE(server->makeTransport(smallStream, 0, other, destination));
}

TEST_F(MulticastServerTest, SenderReportsGoToTheGroup)
{
    const auto server = open();
    Transport transport;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    GroupMember member(destination.group, destination.group.portOf(0) + 1);
    const Bytes report{0x80, 200, 0, 1, 1, 2, 3, 4};
    (*transport)->sendRtcp(report.data(), report.size());
    EXPECT_EQ(report, member.receive());
}

TEST_F(MulticastServerTest, ReportsOfMembersGoToTheLastListener)
{
    const auto server = open();
    Transport older;
    Transport younger;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, older, destination));
    ASSERT_TRUE(server->makeTransport(mainStream, 0, younger, destination));
    const auto silent = std::make_shared<Listener>();
    const auto listener = std::make_shared<Listener>();
    (*older)->setListener(silent);
    (*younger)->setListener(listener);
    GroupMember member(destination.group, destination.group.portOf(0) + 1);
    const Bytes report{0x80, 201, 0, 1, 1, 2, 3, 4};
    member.send(report);
    ASSERT_TRUE(GroupMember::waitReadable(server->descriptor()));
    server->onReadable();
    ASSERT_EQ(1U, listener->reports.size());
    EXPECT_EQ(report, listener->reports.front());
    EXPECT_TRUE(silent->reports.empty());
}

TEST_F(MulticastServerTest, ReportsStillComeWhenALaterTransportCameToNothing)
{
    const auto server = open();
    Transport used;
    Transport unused;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, used, destination));
    const auto listener = std::make_shared<Listener>();
    (*used)->setListener(listener);
    ASSERT_TRUE(server->makeTransport(mainStream, 0, unused, destination));
    unused.reset();
    GroupMember member(destination.group, destination.group.portOf(0) + 1);
    member.send({0x80, 201, 0, 1, 1, 2, 3, 4});
    ASSERT_TRUE(GroupMember::waitReadable(server->descriptor()));
    server->onReadable();
    EXPECT_EQ(1U, listener->reports.size());
}

TEST_F(MulticastServerTest, ReportsBehindTheEndOfTheGroupAreNobodys)
{
    const auto server = open();
    Transport transport;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    GroupMember member(destination.group, destination.group.portOf(0) + 1);
    member.send({0x80, 201, 0, 1, 1, 2, 3, 4});
    ASSERT_TRUE(GroupMember::waitReadable(server->descriptor()));
    transport.reset();
    server->onReadable();
    pollfd quiet{server->descriptor(), POLLIN, 0};
    EXPECT_EQ(0, poll(&quiet, 1, 0));
}

TEST_F(MulticastServerTest, FloodOfReportsIsReadInBoundedShares)
{
    const auto server = open();
    Transport transport;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    const auto listener = std::make_shared<Listener>();
    (*transport)->setListener(listener);
    GroupMember member(destination.group, destination.group.portOf(0) + 1);
    constexpr std::size_t sent = 150;
    for (std::size_t i = 0; i < sent; ++i)
    {
        member.send({0x80, 201, 0, 1, 1, 2, 3, 4});
    }
    server->onReadable();
    EXPECT_EQ(128U, listener->reports.size());
    ASSERT_TRUE(GroupMember::waitReadable(server->descriptor()));
    server->onReadable();
    EXPECT_EQ(sent, listener->reports.size());
}

TEST_F(MulticastServerTest, ATakenRtpPortKeepsNothingFromBeingSent)
{
    const auto server = open();
    MulticastDestination destination;
    ASSERT_TRUE(server->describe(mainStream, destination));
    auto taken = std::make_unique<Descriptor>(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    SocketAddress wildcard = SocketAddress::any(AF_INET);
    wildcard.setPort(destination.group.portOf(0));
    ASSERT_EQ(0, ::bind(taken->get(), wildcard.get(), wildcard.size()));
    Transport transport;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    taken.reset();
    GroupMember member(destination.group, destination.group.portOf(0));
    (*transport)->send(makeUnit(1, 1, true, 1), 0, {7, 8, 9, 96}, false);
    EXPECT_EQ(112U, member.receive().size());
}

TEST_F(MulticastServerTest, ATakenReportPortKeepsNothingFromBeingSent)
{
    const auto server = open();
    MulticastDestination destination;
    ASSERT_TRUE(server->describe(mainStream, destination));
    const Descriptor taken(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const SocketAddress address = GroupMember::addressOf(destination.group, destination.group.portOf(0) + 1);
    ASSERT_EQ(0, ::bind(taken.get(), address.get(), address.size()));
    Transport transport;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    GroupMember member(destination.group, destination.group.portOf(0));
    (*transport)->send(makeUnit(1, 1, true, 1), 0, {7, 8, 9, 96}, false);
    EXPECT_EQ(112U, member.receive().size());
    const Bytes report{0x80, 200, 0, 1, 1, 2, 3, 4};
    (*transport)->sendRtcp(report.data(), report.size());
}

TEST_F(MulticastServerTest, TransportsOutliveTheServer)
{
    auto server = open();
    Transport transport;
    MulticastDestination destination;
    ASSERT_TRUE(server->makeTransport(mainStream, 0, transport, destination));
    GroupMember member(destination.group, destination.group.portOf(0));
    server.reset();
    (*transport)->send(makeUnit(1, 1, true, 1), 0, {7, 8, 9, 96}, false);
    EXPECT_EQ(112U, member.receive().size());
}

}  // namespace
}  // namespace test
}  // namespace refhost

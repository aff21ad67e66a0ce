#include "refhost/rtp/udp/UdpServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/SocketAddress.h"
#include "support/SafePointer.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using Bytes = std::vector<std::uint8_t>;
constexpr int boundMs = 5000;

bool waitReadable(int descriptor)
{
    pollfd waiting{descriptor, POLLIN, 0};
    return poll(&waiting, 1, boundMs) == 1;
}

/// A client's port.
class ClientSocket
{
public:
    explicit ClientSocket(const std::string& address)
    {
        const SocketAddress any = *SocketAddress::parse(address);
        descriptor_ = ::socket(any.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int room = 4 << 20;
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &room, sizeof(room));
        EXPECT_EQ(0, ::bind(descriptor_, any.get(), any.size()));
        socklen_t size = SocketAddress::room;
        EXPECT_EQ(0, getsockname(descriptor_, bound_.fill(), &size));
    }

    ~ClientSocket()
    {
        ::close(descriptor_);
    }

    ClientSocket(const ClientSocket&) = delete;
    ClientSocket& operator=(const ClientSocket&) = delete;

    int port() const
    {
        return bound_.port();
    }

    const SocketAddress& address() const
    {
        return bound_;
    }

    /// The next datagram; empty when none comes.
    Bytes receive() const
    {
        if (!waitReadable(descriptor_))
        {
            return {};
        }
        Bytes room(65536);
        const ssize_t got = ::recv(descriptor_, room.data(), room.size(), 0);
        room.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return room;
    }

    bool nothingLeft() const
    {
        char byte = 0;
        return ::recv(descriptor_, &byte, 1, MSG_DONTWAIT) < 0;
    }

    void sendTo(int port, const Bytes& data) const
    {
        SocketAddress to = bound_;
        to.setPort(port);
        EXPECT_EQ(static_cast<ssize_t>(data.size()),
                  ::sendto(descriptor_, data.data(), data.size(), 0, to.get(), to.size()));
    }

private:
    int descriptor_ = -1;
    SocketAddress bound_;
};

/// An empty receiver report of a client's.
Bytes reportBy(std::uint8_t client)
{
    return {0x80, 201, 0, 1, 0, 0, 0, client};
}

/// An RTP packet with one byte of payload.
Bytes packetBy(std::uint8_t client)
{
    return {0x80, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, client, client};
}

struct RtcpListener : TransportListener
{
    void onTransportReady() override {}

    void onRtcp(const std::uint8_t* data, std::size_t size) override
    {
        rtcp.emplace_back(data, data + size);
    }

    void onRtp(const std::uint8_t* data, std::size_t size) override
    {
        rtp.emplace_back(data, data + size);
    }

    std::vector<Bytes> rtcp;
    std::vector<Bytes> rtp;
};

std::shared_ptr<UdpServer> openServer(const std::string& address = "127.0.0.1", bool segmentation = true)
{
    UdpServer::Options options;
    options.address = address;
    options.segmentationOffload = segmentation;
    std::string error;
    auto server = UdpServer::open(options, error);
    EXPECT_NE(nullptr, server) << error;
    return server;
}

/// The datagrams expected: every packet with the session's header.
std::vector<Bytes> expected(const AccessUnit& unit, std::size_t first, const RtpHeaderFields& header)
{
    std::vector<Bytes> datagrams;
    std::uint16_t sequence = header.sequence;
    for (std::size_t i = first; i < unit.packets.size(); ++i)
    {
        const std::uint8_t* at = unit.bytes.data() + unit.packets[i].offset;
        Bytes datagram(at, at + unit.packets[i].size);
        datagram[1] = static_cast<std::uint8_t>((datagram[1] & 0x80U) | header.payloadType);
        datagram[2] = static_cast<std::uint8_t>(sequence >> 8U);
        datagram[3] = static_cast<std::uint8_t>(sequence);
        for (unsigned byte = 0; byte < 4; ++byte)
        {
            datagram[4 + byte] = static_cast<std::uint8_t>(header.timestamp >> (24U - 8U * byte));
            datagram[8 + byte] = static_cast<std::uint8_t>(header.ssrc >> (24U - 8U * byte));
        }
        ++sequence;
        datagrams.push_back(std::move(datagram));
    }
    return datagrams;
}

AccessUnitPtr unitOfSizes(const std::vector<std::size_t>& payloads)
{
    auto unit = std::make_shared<AccessUnit>();
    std::uint8_t fill = 1;
    for (const std::size_t payload : payloads)
    {
        Bytes packet(AccessUnit::rtpHeaderSize + payload, fill++);
        packet[0] = 0x80;
        unit->append(packet.data(), packet.size());
    }
    return unit;
}

const RtpHeaderFields header{0xcafe0001U, 0xfffe, 0x80000001U, 96};

TEST(UdpServer, ATransportTakesFewUnitsAtOnceAndItsClientJustFallsSilent)
{
    const auto server = openServer();
    const ClientSocket rtp("127.0.0.1");
    const auto transport = server->makeTransport(rtp.address(), rtp.port(), rtp.port(), nullptr);
    const TransportTraits& traits = transport->traits();
    EXPECT_EQ(traits.maxCatchUpUnits, 4U);
    EXPECT_FALSE(traits.joinsUnits);
    EXPECT_FALSE(traits.reportsReady);
    EXPECT_TRUE(traits.silentWhenGone);
    EXPECT_FALSE(traits.shared);
}

class UdpServerAddressTest : public testing::TestWithParam<std::tuple<const char*, bool>>
{
};

TEST_P(UdpServerAddressTest, ClientsGetEveryPacketWhateverTheSizes)
{
    const auto [address, segmentation] = GetParam();
    const auto server = openServer(address, segmentation);
    const ClientSocket rtp(address);
    const ClientSocket rtcp(address);
    auto transport = server->makeTransport(rtp.address(), rtp.port(), rtcp.port(), nullptr);
    EXPECT_EQ(IConnection::udpUnicast, transport->transportKind);
    const std::vector<std::vector<std::size_t>> cases = {
        {160},
        {1364, 1364, 1364, 500},
        {30, 8, 1364, 1364, 700},             // parameter sets in front
        {8, 30, 1364},                        // growing
        {1364, 1364, 1364},                   // no short one
        {0, 0, 1},                            // nothing but headers
        std::vector<std::size_t>(150, 1364),  // more than one message holds
        std::vector<std::size_t>(130, 20),    // more segments than one message holds
        {700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700,
         100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100, 700, 100},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
    {
        const auto unit = unitOfSizes(cases[i]);
        for (const std::size_t first : {std::size_t{0}, unit->packets.size() / 2})
        {
            const SendResult result = transport->send(unit, first, header, false);
            EXPECT_EQ(SendStatus::sent, result.status);
            EXPECT_EQ(unit->packets.size() - first, result.packets);
            for (const Bytes& datagram : expected(*unit, first, header))
            {
                ASSERT_EQ(datagram, rtp.receive()) << "case " << i;
            }
            EXPECT_TRUE(rtp.nothingLeft()) << "case " << i;
        }
    }
    EXPECT_EQ(segmentation, server->segmentationOffload());
}

INSTANTIATE_TEST_SUITE_P(Families, UdpServerAddressTest,
                         testing::Combine(testing::Values("127.0.0.1", "::1"), testing::Bool()),
                         [](const testing::TestParamInfo<UdpServerAddressTest::ParamType>& tested)
                         {
                             const bool ipv6 = std::get<0>(tested.param) == std::string("::1");
                             const bool segmented = std::get<1>(tested.param);
                             return std::string(ipv6 ? "Ipv6" : "Ipv4") +
                                    (segmented ? "Segmented" : "SinglePackets");
                         });

TEST(UdpServer, PacketsBeyondThePathAreFragmentedWithoutGivingUpSegments)
{
    const auto server = openServer();
    const ClientSocket rtp("127.0.0.1");
    auto transport = server->makeTransport(rtp.address(), rtp.port(), rtp.port(), nullptr);
    // The loopback's MTU is 65536: segments of that size do not exist, but two such packets do.
    const auto unit = unitOfSizes({40000, 40000});
    EXPECT_EQ(SendStatus::sent, transport->send(unit, 0, header, false).status);
    for (const Bytes& datagram : expected(*unit, 0, header))
    {
        EXPECT_EQ(datagram, rtp.receive());
    }
    EXPECT_TRUE(server->segmentationOffload());
}

TEST(UdpServer, PortsAreAnEvenOneAndTheNext)
{
    for (int i = 0; i < 20; ++i)
    {
        const auto server = openServer();
        EXPECT_EQ(0, server->rtpPort() % 2);
        EXPECT_GT(server->rtpPort(), 0);
        EXPECT_EQ(server->rtpPort() + 1, server->rtcpPort());
    }
}

TEST(UdpServer, TakenPortsAndBadAddressesAreReported)
{
    const auto server = openServer();
    std::string error;
    UdpServer::Options options;
    options.rtpPort = server->rtpPort();
    EXPECT_EQ(nullptr, UdpServer::open(options, error));
    EXPECT_NE(std::string::npos, error.find("in use")) << error;
    options.rtpPort = 5001;
    EXPECT_EQ(nullptr, UdpServer::open(options, error));
    EXPECT_NE(std::string::npos, error.find("even")) << error;
    options.rtpPort = 0;
    options.address = "localhost";
    EXPECT_EQ(nullptr, UdpServer::open(options, error));
    EXPECT_NE(std::string::npos, error.find("numeric")) << error;
}

TEST(UdpServer, DescriptorsAreClosedOnExecAndDoNotBlock)
{
    const auto server = openServer();
    for (const int descriptor : {server->rtpDescriptor(), server->rtcpDescriptor()})
    {
        EXPECT_NE(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
        EXPECT_NE(0, fcntl(descriptor, F_GETFL) & O_NONBLOCK);
    }
}

TEST(UdpServer, ReportsGoToTheTransportOfTheirSender)
{
    const auto server = openServer();
    const ClientSocket first("127.0.0.1");
    const ClientSocket second("127.0.0.1");
    const ClientSocket stranger("127.0.0.1");
    const auto liveness = std::make_shared<SessionLiveness>();
    const auto listener = std::make_shared<RtcpListener>();
    const auto other = std::make_shared<RtcpListener>();
    auto transport = server->makeTransport(first.address(), 9, first.port(), liveness);
    auto otherTransport = server->makeTransport(second.address(), 9, second.port(), nullptr);
    transport->setListener(listener);
    otherTransport->setListener(other);

    stranger.sendTo(server->rtcpPort(), reportBy(9));
    first.sendTo(server->rtcpPort(), reportBy(1));
    second.sendTo(server->rtcpPort(), reportBy(3));
    ASSERT_TRUE(waitReadable(server->rtcpDescriptor()));
    server->onRtcpReadable();
    EXPECT_EQ((std::vector<Bytes>{reportBy(1)}), listener->rtcp);
    EXPECT_EQ((std::vector<Bytes>{reportBy(3)}), other->rtcp);
    EXPECT_GT(liveness->lastActivity(), MonotonicTime());
}

TEST(UdpServer, MalformedPacketsKeepNoSessionAlive)
{
    const auto server = openServer();
    const ClientSocket client("127.0.0.1");
    const auto liveness = std::make_shared<SessionLiveness>();
    const auto listener = std::make_shared<RtcpListener>();
    auto transport = server->makeTransport(client.address(), client.port(), client.port(), liveness);
    transport->setListener(listener);
    transport->takeRtp();
    const Bytes padded = {0xa0, 201, 0, 2, 0, 0, 0, 1, 0, 0, 0, 4};
    const Bytes feedbackAlone = {0x81, 206, 0, 2, 1, 1, 1, 1, 2, 2, 2, 2};
    for (const Bytes& packet : {Bytes{1}, Bytes(8, 0xff), packetBy(1), padded, feedbackAlone})
    {
        client.sendTo(server->rtcpPort(), packet);
    }
    client.sendTo(server->rtpPort(), Bytes(100, 0));
    client.sendTo(server->rtpPort(), Bytes{0x80, 0});
    ASSERT_TRUE(waitReadable(server->rtcpDescriptor()));
    server->onRtcpReadable();
    ASSERT_TRUE(waitReadable(server->rtpDescriptor()));
    server->onRtpReadable();
    EXPECT_EQ(5U, listener->rtcp.size()) << "listeners count it";
    EXPECT_EQ(2U, listener->rtp.size());
    EXPECT_EQ(MonotonicTime(), liveness->lastActivity());
}

TEST(UdpServer, RtpGoesToTheTransportOfItsSenderWhereThatOneTakesIt)
{
    const auto server = openServer();
    const ClientSocket sender("127.0.0.1");
    const ClientSocket viewer("127.0.0.1");
    const ClientSocket stranger("127.0.0.1");
    const auto liveness = std::make_shared<SessionLiveness>();
    const auto received = std::make_shared<RtcpListener>();
    const auto other = std::make_shared<RtcpListener>();
    auto talking = std::make_unique<SafePointer<RtpTransport>>(
        server->makeTransport(sender.address(), sender.port(), 9, liveness));
    auto viewing = server->makeTransport(viewer.address(), viewer.port(), 9, nullptr);
    (*talking)->setListener(received);
    viewing->setListener(other);
    (*talking)->takeRtp();

    viewer.sendTo(server->rtpPort(), packetBy(7));
    stranger.sendTo(server->rtpPort(), packetBy(8));
    sender.sendTo(server->rtpPort(), Bytes(1501, 9));
    sender.sendTo(server->rtpPort(), packetBy(1));
    ASSERT_TRUE(waitReadable(server->rtpDescriptor()));
    server->onRtpReadable();
    EXPECT_EQ((std::vector<Bytes>{packetBy(1)}), received->rtp) << "a packet that was cut is malformed";
    EXPECT_TRUE(other->rtp.empty());
    EXPECT_GT(liveness->lastActivity(), MonotonicTime());

    talking.reset();
    sender.sendTo(server->rtpPort(), packetBy(3));
    ASSERT_TRUE(waitReadable(server->rtpDescriptor()));
    server->onRtpReadable();
    EXPECT_EQ(1U, received->rtp.size());
}

TEST(UdpServer, EndedTransportLeavesItsPortToTheNewer)
{
    const auto server = openServer();
    const ClientSocket client("127.0.0.1");
    const auto listener = std::make_shared<RtcpListener>();
    std::unique_ptr<SafePointer<RtpTransport>> former(
        new SafePointer<RtpTransport>(server->makeTransport(client.address(), 9, client.port(), nullptr)));
    auto younger = server->makeTransport(client.address(), 9, client.port(), nullptr);
    younger->setListener(listener);
    former.reset();
    client.sendTo(server->rtcpPort(), reportBy(1));
    ASSERT_TRUE(waitReadable(server->rtcpDescriptor()));
    server->onRtcpReadable();
    EXPECT_EQ(1U, listener->rtcp.size());
}

TEST(UdpServer, AFloodIsReadInBoundedShares)
{
    const auto server = openServer();
    const ClientSocket client("127.0.0.1");
    const auto listener = std::make_shared<RtcpListener>();
    auto transport = server->makeTransport(client.address(), 9, client.port(), nullptr);
    transport->setListener(listener);
    for (int i = 0; i < 200; ++i)
    {
        client.sendTo(server->rtcpPort(), reportBy(1));
        client.sendTo(server->rtpPort(), packetBy(1));
    }
    server->onRtcpReadable();
    EXPECT_EQ(128U, listener->rtcp.size());
    server->onRtcpReadable();
    EXPECT_EQ(200U, listener->rtcp.size());
    server->onRtpReadable();
    server->onRtpReadable();
    pollfd drained{server->rtpDescriptor(), POLLIN, 0};
    EXPECT_EQ(0, poll(&drained, 1, 0));
}

TEST(UdpServer, RefusalsOfTheNetworkDoNotCloseTheTransport)
{
    const auto server = openServer();
    // A port that nobody listens on.
    auto transport = server->makeTransport(*SocketAddress::parse("127.0.0.1"), 9, 10, nullptr);
    // An address that a socket bound to loopback has no route to.
    auto lost = server->makeTransport(*SocketAddress::parse("0.0.0.1"), 9, 10, nullptr);
    const auto unit = makeUnit(0, 0, true, 40);
    for (int i = 0; i < 10; ++i)
    {
        for (auto* each : {&transport, &lost})
        {
            const SendResult result = (*each)->send(unit, 0, header, false);
            EXPECT_EQ(SendStatus::sent, result.status);
            EXPECT_EQ(40U, result.packets);
        }
    }
    EXPECT_TRUE(server->segmentationOffload());
}

TEST(UdpServer, ReportsGoFromTheRtcpPort)
{
    const auto server = openServer();
    const ClientSocket rtcp("127.0.0.1");
    auto transport = server->makeTransport(rtcp.address(), 9, rtcp.port(), nullptr);
    transport->sendRtcp(Bytes{1, 2, 3}.data(), 3);
    EXPECT_EQ((Bytes{1, 2, 3}), rtcp.receive());
}

TEST(UdpServer, TransportsOutliveTheServer)
{
    auto server = openServer();
    const ClientSocket rtp("127.0.0.1");
    auto transport = server->makeTransport(rtp.address(), rtp.port(), 9, nullptr);
    server.reset();
    EXPECT_EQ(SendStatus::sent, transport->send(unitOfSizes({10}), 0, header, false).status);
    EXPECT_EQ(22U, rtp.receive().size());
}

TEST(UdpServer, Ipv6WildcardServesIpv4)
{
    const auto server = openServer("::");
    const ClientSocket rtp("127.0.0.1");
    auto transport = server->makeTransport(rtp.address(), rtp.port(), rtp.port(), nullptr);
    const auto listener = std::make_shared<RtcpListener>();
    transport->setListener(listener);
    EXPECT_EQ(SendStatus::sent, transport->send(unitOfSizes({10}), 0, header, false).status);
    EXPECT_EQ(22U, rtp.receive().size());
    rtp.sendTo(server->rtcpPort(), reportBy(1));
    ASSERT_TRUE(waitReadable(server->rtcpDescriptor()));
    server->onRtcpReadable();
    EXPECT_EQ(1U, listener->rtcp.size());
}

}  // namespace
}  // namespace test
}  // namespace refhost

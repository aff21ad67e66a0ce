#include "refhost/ingest/client/CameraDatagrams.h"

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "refhost/base/ByteOrder.h"
#include "tests/refhost/rtsp/connection/TestClient.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using test::UdpPort;
using testing::ElementsAre;

/// Ports of a client whose camera is the test.
class CameraDatagramsTest : public testing::Test, private CameraDatagrams::Events
{
protected:
    CameraDatagramsTest()
    {
        runOn(loop,
              [&]
              {
                  std::string error;
                  ports = CameraDatagrams::open(loop, loopback, loopback, 7, *this, owner, error);
                  ASSERT_NE(ports, nullptr) << error;
              });
        setSource("server_port=" + std::to_string(media.port()) + "-" + std::to_string(reports.port()));
    }

    /// Not in the destructor, when this is not what the loop calls any more.
    void TearDown() override
    {
        runOn(loop, [&] { ports = nullptr; });
    }

    void setSource(const std::string& parameters)
    {
        runOn(loop, [&] { ports->setSource(TransportReply::read("RTP/AVP;unicast;" + parameters)); });
    }

    static std::string packet(std::uint16_t sequence, std::uint32_t ssrc = 1, std::size_t size = 20)
    {
        std::string bytes(size, 'x');
        auto* const data = reinterpret_cast<std::uint8_t*>(bytes.data());
        data[0] = 0x80;
        writeBig16(data + 2, sequence);
        writeBig32(data + 8, ssrc);
        return bytes;
    }

    void send(UdpPort& from, std::uint16_t sequence, std::uint32_t ssrc = 1)
    {
        from.sendTo(ports->port(), packet(sequence, ssrc));
    }

    /// Waits for that many packets. \returns the sequence numbers of all
    std::vector<int> sequences(std::size_t count, std::chrono::milliseconds patience = bound)
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, patience, [&] { return packets.size() >= count; });
        std::vector<int> all;
        for (const std::string& each : packets)
        {
            all.push_back(readBig16(reinterpret_cast<const std::uint8_t*>(each.data()) + 2));
        }
        return all;
    }

    /// Waits until the reports that were sent have been received.
    void settle()
    {
        const std::size_t before = reportCount();
        reports.sendTo(ports->port() + 1, "settled");
        std::unique_lock<std::mutex> lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, bound, [&] { return received.size() > before; }));
        lock.unlock();
        runOn(loop, [] {});
    }

    std::size_t reportCount()
    {
        const std::lock_guard<std::mutex> guard(mutex);
        return received.size();
    }

    const SocketAddress loopback = *SocketAddress::parse("127.0.0.1");
    UdpPort media;
    UdpPort reports;
    const std::shared_ptr<int> owner = std::make_shared<int>();
    EventLoop loop{"client"};
    std::unique_ptr<CameraDatagrams> ports;
    bool closeInPacket = false;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> packets;
    std::vector<std::string> received;  ///< reports

private:
    void onMedia(std::size_t track, bool isReport, const std::uint8_t* data, std::size_t size,
                 MonotonicTime) override
    {
        EXPECT_EQ(track, 7U);
        if (closeInPacket)
        {
            ports->close();
        }
        const std::lock_guard<std::mutex> guard(mutex);
        (isReport ? received : packets).emplace_back(reinterpret_cast<const char*>(data), size);
        changed.notify_all();
    }
};

TEST_F(CameraDatagramsTest, PacketsThatOvertakeEachOtherGoOnInOrder)
{
    for (const int sequence : {65533, 65535, 65534, 1, 0, 2})
    {
        send(media, static_cast<std::uint16_t>(sequence));
    }
    EXPECT_THAT(sequences(6), ElementsAre(65533, 65534, 65535, 0, 1, 2));
}

TEST_F(CameraDatagramsTest, AMissingPacketIsNotWaitedForForEver)
{
    send(media, 1);
    send(media, 3);
    EXPECT_THAT(sequences(2), ElementsAre(1, 3));
    send(media, 2);  // late
    send(media, 4);
    EXPECT_THAT(sequences(3), ElementsAre(1, 3, 4));
}

TEST_F(CameraDatagramsTest, ManyLaterPacketsEndTheWait)
{
    send(media, 1);
    for (std::uint16_t i = 0; i < CameraDatagrams::maxHeld; ++i)
    {
        send(media, static_cast<std::uint16_t>(3 + i));
    }
    EXPECT_EQ(sequences(CameraDatagrams::maxHeld + 1).size(), CameraDatagrams::maxHeld + 1);
}

TEST_F(CameraDatagramsTest, DuplicatesAreLeftOut)
{
    for (const int sequence : {1, 1, 3, 3, 2, 2, 4})
    {
        send(media, static_cast<std::uint16_t>(sequence));
    }
    EXPECT_THAT(sequences(4), ElementsAre(1, 2, 3, 4));
}

TEST_F(CameraDatagramsTest, AJumpOfTheSequenceIsFollowed)
{
    for (const int sequence : {1, 2, 30000, 30001, 30002})
    {
        send(media, static_cast<std::uint16_t>(sequence));
    }
    EXPECT_THAT(sequences(4), ElementsAre(1, 2, 30001, 30002));
}

TEST_F(CameraDatagramsTest, OtherHostsAreNotRead)
{
    const Descriptor stranger(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    SocketAddress address = *SocketAddress::parse("127.0.0.2");
    address.setPort(media.port());
    ASSERT_EQ(::bind(stranger.get(), address.get(), address.size()), 0);
    const auto intrude = [&](int port, const std::string& bytes)
    {
        SocketAddress client = loopback;
        client.setPort(port);
        ASSERT_EQ(::sendto(stranger.get(), bytes.data(), bytes.size(), 0, client.get(), client.size()),
                  static_cast<ssize_t>(bytes.size()));
    };
    intrude(ports->port(), packet(100));
    intrude(ports->port() + 1, "report");
    send(media, 1);
    EXPECT_THAT(sequences(1), ElementsAre(1));
    settle();
    EXPECT_THAT(received, ElementsAre("settled"));

    // A camera may name another host that sends for it.
    setSource("source=127.0.0.2");
    intrude(ports->port(), packet(2));
    EXPECT_THAT(sequences(2), ElementsAre(1, 2));
}

TEST_F(CameraDatagramsTest, OtherPortsAreNotReadBesideTheOneThatTheCameraNames)
{
    UdpPort other;
    send(other, 100);
    send(media, 1);
    EXPECT_THAT(sequences(1), ElementsAre(1));
    send(other, 2);
    send(media, 2);
    EXPECT_THAT(sequences(2), ElementsAre(1, 2));
}

TEST_F(CameraDatagramsTest, AnotherPortIsReadWhenNothingComesFromTheOneThatTheCameraNames)
{
    UdpPort other;
    const auto start = std::chrono::steady_clock::now();
    std::uint16_t sequence = 1;
    while (sequences(1, 20ms).empty() && std::chrono::steady_clock::now() - start < bound)
    {
        send(other, sequence++);
    }
    EXPECT_FALSE(sequences(1).empty());
    EXPECT_GE(std::chrono::steady_clock::now() - start, CameraDatagrams::portPatience - 100ms);
    send(media, 9999);
    send(other, sequence);
    EXPECT_EQ(sequences(2).back(), sequence) << "from then on it is the only one";
}

TEST_F(CameraDatagramsTest, TheFirstPortCountsWhereTheCameraNamesNone)
{
    setSource("");
    send(media, 1);
    EXPECT_THAT(sequences(1), ElementsAre(1));
    UdpPort other;
    send(other, 2);
    send(media, 2);
    send(media, 3);
    EXPECT_THAT(sequences(3), ElementsAre(1, 2, 3));
}

TEST_F(CameraDatagramsTest, AnotherSourceIsReadWhenTheFirstOneHasEnded)
{
    send(media, 1, 1);
    ASSERT_EQ(sequences(1).size(), 1U);
    send(media, 100, 2);
    send(media, 101, 2);
    send(media, 2, 1);
    EXPECT_THAT(sequences(2), ElementsAre(1, 2)) << "not beside the first";
    const auto start = std::chrono::steady_clock::now();
    std::uint16_t sequence = 200;
    while (sequences(3, 20ms).size() < 3 && std::chrono::steady_clock::now() - start < bound)
    {
        send(media, sequence++, 2);
    }
    EXPECT_GE(sequences(3).back(), 200);
}

TEST_F(CameraDatagramsTest, WhatIsNoRtpIsLeftOut)
{
    std::string oldVersion = packet(1);
    oldVersion[0] = 0x40;
    for (const std::string& rubbish : {std::string(), std::string("x"), packet(1).substr(0, 11), oldVersion})
    {
        media.sendTo(ports->port(), rubbish);
    }
    reports.sendTo(ports->port() + 1, "");
    send(media, 5);
    EXPECT_THAT(sequences(1), ElementsAre(5));
    settle();
    EXPECT_EQ(reportCount(), 1U);
}

TEST_F(CameraDatagramsTest, TheLongestDatagramIsRead)
{
    media.sendTo(ports->port(), packet(1, 1, CameraDatagrams::maxDatagram));
    ASSERT_EQ(sequences(1).size(), 1U);
    EXPECT_EQ(packets[0].size(), CameraDatagrams::maxDatagram);
}

TEST_F(CameraDatagramsTest, AFloodDoesNotHoldUpTheLoop)
{
    std::atomic<bool> ends{false};
    std::thread flood(
        [&]
        {
            UdpPort camera;
            for (std::uint16_t i = 0; !ends; ++i)
            {
                camera.sendTo(ports->port(), packet(i));
            }
        });
    setSource("");
    EXPECT_GE(sequences(1'000).size(), 1'000U);
    for (int i = 0; i < 10; ++i)
    {
        runOn(loop, [] {});
    }
    ends = true;
    flood.join();
}

TEST_F(CameraDatagramsTest, NothingIsReportedOnceTheyAreClosed)
{
    closeInPacket = true;
    for (std::uint16_t i = 1; i < 10; ++i)
    {
        send(media, i);
    }
    EXPECT_EQ(sequences(1).size(), 1U);
    runOn(loop,
          [&]
          {
              const std::uint8_t report[] = {1};
              EXPECT_FALSE(ports->sendReport(report, sizeof report));
              ports->close();
          });
    EXPECT_EQ(sequences(1).size(), 1U);
}

TEST_F(CameraDatagramsTest, ReportsAndPathsGoToTheCamerasPorts)
{
    EXPECT_EQ(ports->port() % 2, 0);
    runOn(loop,
          [&]
          {
              ports->punch();
              const std::uint8_t report[] = {1, 2};
              EXPECT_TRUE(ports->sendReport(report, sizeof report));
          });
    EXPECT_EQ(media.receive().size(), 12U);
    EXPECT_EQ(reports.receive().size(), 8U);
    EXPECT_EQ(reports.receive(), "\1\2");
}

}  // namespace
}  // namespace refhost

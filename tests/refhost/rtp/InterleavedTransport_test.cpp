#include "refhost/rtp/InterleavedTransport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "support/SafePointer.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using Bytes = std::vector<std::uint8_t>;

struct FakeWriter : FrameWriter
{
    SendStatus writeFrames(const std::uint8_t* data, std::size_t size, bool) override
    {
        if (status == SendStatus::sent)
        {
            writes.emplace_back(data, data + size);
        }
        return status;
    }

    void notifyWhenWritable(std::weak_ptr<TransportListener> listener) override
    {
        waiting.push_back(std::move(listener));
    }

    SendStatus status = SendStatus::sent;
    std::vector<Bytes> writes;
    std::vector<std::weak_ptr<TransportListener>> waiting;
};

struct CountingListener : TransportListener
{
    void onTransportReady() override
    {
        ++ready;
        if (onReady)
        {
            onReady();
        }
    }

    void onRtcp(const std::uint8_t* data, std::size_t size) override
    {
        rtcp.emplace_back(data, data + size);
    }

    int ready = 0;
    std::function<void()> onReady;
    std::vector<Bytes> rtcp;
};

class InterleavedTransportTest : public testing::Test
{
protected:
    InterleavedTransportTest()
        : handle(new SafePointer<InterleavedTransport>(new InterleavedTransport(writer, 4, 5, liveness))),
          transport(handle->operator->())
    {
        transport->setListener(listener);
    }

    std::shared_ptr<FakeWriter> writer = std::make_shared<FakeWriter>();
    std::shared_ptr<SessionLiveness> liveness = std::make_shared<SessionLiveness>();
    std::shared_ptr<CountingListener> listener = std::make_shared<CountingListener>();
    const std::unique_ptr<SafePointer<InterleavedTransport>> handle;  // a fixture's destructor must not throw
    InterleavedTransport* const transport;
    const RtpHeaderFields header{0x01020304, 0xffff, 0x0a0b0c0d, 97};
};

TEST_F(InterleavedTransportTest, TakesAGopAtOnceAndReportsWhenItIsReadyAgain)
{
    const TransportTraits& traits = transport->traits();
    EXPECT_EQ(traits.maxCatchUpUnits, std::numeric_limits<unsigned>::max());
    EXPECT_TRUE(traits.joinsUnits);
    EXPECT_TRUE(traits.reportsReady);
    EXPECT_FALSE(traits.silentWhenGone) << "its connection ends";
    EXPECT_FALSE(traits.shared);
}

TEST_F(InterleavedTransportTest, AUnitIsOneWriteOfFrames)
{
    const auto unit = makeUnit(0, 0, true, 3, 50, 20);
    const SendResult result = transport->send(unit, 0, header, false);
    EXPECT_EQ(SendStatus::sent, result.status);
    EXPECT_EQ(3U, result.packets);
    ASSERT_EQ(1U, writer->writes.size());
    const Bytes& bytes = writer->writes[0];
    std::size_t at = 0;
    for (std::size_t i = 0; i < 3; ++i)
    {
        const std::size_t size = i == 2 ? 32 : 62;
        ASSERT_LE(at + 4 + size, bytes.size());
        EXPECT_EQ((Bytes{'$', 4, 0, static_cast<std::uint8_t>(size)}), Bytes(&bytes[at], &bytes[at] + 4));
        const std::uint8_t marker = i == 2 ? 0x80 : 0;
        const auto sequence = static_cast<std::uint16_t>(0xffff + i);
        EXPECT_EQ(
            (Bytes{0x80, static_cast<std::uint8_t>(marker | 97), static_cast<std::uint8_t>(sequence >> 8U),
                   static_cast<std::uint8_t>(sequence), 0x0a, 0x0b, 0x0c, 0x0d, 1, 2, 3, 4}),
            Bytes(&bytes[at + 4], &bytes[at + 4] + 12));
        EXPECT_EQ(Bytes(size - 12, static_cast<std::uint8_t>(i + 1)),
                  Bytes(&bytes[at + 16], &bytes[at + 4] + size));
        at += 4 + size;
    }
    EXPECT_EQ(at, bytes.size());
}

TEST_F(InterleavedTransportTest, TheUnitItselfStaysAsItWas)
{
    const auto unit = makeUnit(0, 0, true, 3);
    const Bytes before = unit->bytes;
    transport->send(unit, 0, header, false);
    EXPECT_EQ(before, unit->bytes);
}

TEST_F(InterleavedTransportTest, SessionsOfOneThreadDoNotMixTheirHeaders)
{
    SafePointer<InterleavedTransport> other(new InterleavedTransport(writer, 8, 9, nullptr));
    const auto unit = makeUnit(0, 0, true, 2, 50, 20);
    transport->send(unit, 0, header, false);
    other->send(unit, 0, {7, 8, 9, 10}, false);
    transport->send(unit, 0, header, false);
    ASSERT_EQ(3U, writer->writes.size());
    EXPECT_EQ(writer->writes[0], writer->writes[2]);
    EXPECT_EQ(8, writer->writes[1][1]);
    EXPECT_EQ(7, writer->writes[1][4 + 11]);
}

TEST_F(InterleavedTransportTest, ALaterUnitAtTheSameAddressIsNotTakenForTheFormer)
{
    for (std::uint8_t i = 1; i < 20; ++i)
    {
        transport->send(makeUnit(0, 0, true, 1, 0, i), 0, header, false);
        EXPECT_EQ(16U + i, writer->writes.back().size());
    }
}

TEST_F(InterleavedTransportTest, SendsFromAPacketInTheMiddle)
{
    const auto unit = makeUnit(0, 0, true, 3, 50, 20);
    EXPECT_EQ(1U, transport->send(unit, 2, header, false).packets);
    ASSERT_EQ(1U, writer->writes.size());
    EXPECT_EQ(36U, writer->writes[0].size());
    EXPECT_EQ(0xff, writer->writes[0][6]);
}

TEST_F(InterleavedTransportTest, CongestionTakesNothingAndAsksOnce)
{
    writer->status = SendStatus::congested;
    const auto unit = makeUnit(0, 0, true, 3);
    for (int i = 0; i < 3; ++i)
    {
        const SendResult result = transport->send(unit, 0, header, false);
        EXPECT_EQ(SendStatus::congested, result.status);
        EXPECT_EQ(0U, result.packets);
    }
    ASSERT_EQ(1U, writer->waiting.size());
    writer->waiting[0].lock()->onTransportReady();
    EXPECT_EQ(1, listener->ready);
    transport->send(unit, 0, header, false);
    EXPECT_EQ(2U, writer->waiting.size());
}

TEST_F(InterleavedTransportTest, HoldKeepsPacketsBackAndReportsInOrder)
{
    transport->hold();
    EXPECT_EQ(SendStatus::held, transport->state());
    const auto unit = makeUnit(0, 0, true, 1);
    EXPECT_EQ(SendStatus::held, transport->send(unit, 0, header, false).status);
    const Bytes first = {1, 2, 3, 4};
    const Bytes second = {5, 6, 7, 8};
    transport->sendRtcp(first.data(), first.size());
    transport->sendRtcp(second.data(), second.size());
    EXPECT_TRUE(writer->writes.empty());
    listener->onReady = [&] { transport->send(unit, 0, header, false); };
    transport->release();
    ASSERT_EQ(3U, writer->writes.size());
    EXPECT_EQ((Bytes{'$', 5, 0, 4, 1, 2, 3, 4}), writer->writes[0]);
    EXPECT_EQ((Bytes{'$', 5, 0, 4, 5, 6, 7, 8}), writer->writes[1]);
    EXPECT_EQ(1, listener->ready);
    transport->release();
    EXPECT_EQ(1, listener->ready);
}

TEST_F(InterleavedTransportTest, ReportsKeptWhileHeldAreBounded)
{
    transport->hold();
    const Bytes report(8, 1);
    for (int i = 0; i < 1000; ++i)
    {
        transport->sendRtcp(report.data(), report.size());
    }
    transport->release();
    EXPECT_EQ(8U, writer->writes.size());
}

TEST_F(InterleavedTransportTest, NothingLeavesAfterClose)
{
    transport->hold();
    transport->close();
    transport->release();
    const auto unit = makeUnit(0, 0, true, 1);
    EXPECT_EQ(SendStatus::closed, transport->send(unit, 0, header, false).status);
    const Bytes report(8, 1);
    transport->sendRtcp(report.data(), report.size());
    transport->hold();
    EXPECT_EQ(SendStatus::closed, transport->state());
    EXPECT_TRUE(writer->writes.empty());
    EXPECT_EQ(0, listener->ready);
}

TEST_F(InterleavedTransportTest, AGoneConnectionCountsAsClosed)
{
    writer.reset();
    EXPECT_EQ(SendStatus::closed, transport->send(makeUnit(0, 0, true, 1), 0, header, false).status);
    EXPECT_EQ(SendStatus::closed, transport->state());
    const Bytes report(8, 1);
    transport->sendRtcp(report.data(), report.size());
}

TEST_F(InterleavedTransportTest, ReportsFromTheClientAreHandedOnAndShowThatItLives)
{
    transport->receivedRtcp(Bytes(8, 1).data(), 8);
    EXPECT_EQ(MonotonicTime(), liveness->lastActivity()) << "that was none";
    const Bytes report = {0x80, 201, 0, 1, 1, 1, 1, 1};
    transport->receivedRtcp(report.data(), report.size());
    ASSERT_EQ(2U, listener->rtcp.size());
    EXPECT_EQ(report, listener->rtcp[1]);
    EXPECT_GT(liveness->lastActivity(), MonotonicTime());
    listener.reset();
    transport->receivedRtcp(report.data(), report.size());
}

}  // namespace
}  // namespace test
}  // namespace refhost

#include "refhost/talkback/TalkReceiveQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

class TalkReceiveQueueTest : public testing::Test
{
protected:
    void put(std::uint8_t byte)
    {
        receiveQueue.onRtp(&byte, 1);
    }

    ManualClock clock;
    TalkReceiveQueue receiveQueue{clock};
    TalkReceiveQueue::Packet packet;
};

TEST_F(TalkReceiveQueueTest, GivesPacketsInTheirOrderWithTheirTime)
{
    receiveQueue.open();
    put(1);
    clock.advance(std::chrono::milliseconds(5));
    put(2);
    ASSERT_TRUE(receiveQueue.takeRtp(packet));
    EXPECT_EQ((std::vector<std::uint8_t>{1}), packet.bytes);
    const MonotonicTime first = packet.arrival;
    ASSERT_TRUE(receiveQueue.takeRtp(packet));
    EXPECT_EQ((std::vector<std::uint8_t>{2}), packet.bytes);
    EXPECT_EQ(std::chrono::milliseconds(5), packet.arrival - first);
    EXPECT_FALSE(receiveQueue.takeRtp(packet));
}

TEST_F(TalkReceiveQueueTest, RtpAndRtcpDoNotMix)
{
    receiveQueue.open();
    const std::uint8_t report = 9;
    receiveQueue.onRtcp(&report, 1);
    EXPECT_FALSE(receiveQueue.takeRtp(packet));
    EXPECT_TRUE(receiveQueue.takeRtcp(packet));
}

TEST_F(TalkReceiveQueueTest, TakesNothingInWhileClosed)
{
    put(1);
    EXPECT_FALSE(receiveQueue.takeRtp(packet));
    receiveQueue.open();
    put(2);
    receiveQueue.close();
    EXPECT_FALSE(receiveQueue.takeRtp(packet));
    receiveQueue.open();
    EXPECT_FALSE(receiveQueue.takeRtp(packet)) << "what waited before the break is gone";
}

TEST_F(TalkReceiveQueueTest, KeepsTheNewestWhenItIsFull)
{
    receiveQueue.open();
    for (int i = 0; i < 70; ++i)
    {
        put(static_cast<std::uint8_t>(i));
    }
    EXPECT_EQ(6U, receiveQueue.overrun());
    for (int i = 6; i < 70; ++i)
    {
        ASSERT_TRUE(receiveQueue.takeRtp(packet));
        EXPECT_EQ(i, packet.bytes[0]);
    }
    EXPECT_FALSE(receiveQueue.takeRtp(packet));
}

TEST_F(TalkReceiveQueueTest, CountsDroppedPacketsUntilItIsOpenedAgain)
{
    const std::vector<std::uint8_t> longer(4097);
    receiveQueue.open();
    receiveQueue.onRtp(longer.data(), longer.size());
    receiveQueue.close();
    EXPECT_EQ(1U, receiveQueue.overrun());
    receiveQueue.onRtp(longer.data(), longer.size());
    EXPECT_EQ(1U, receiveQueue.overrun()) << "what comes while it is closed is nobody's";
    receiveQueue.open();
    EXPECT_EQ(0U, receiveQueue.overrun());
}

TEST_F(TalkReceiveQueueTest, DropsWhatIsTooLong)
{
    receiveQueue.open();
    const std::vector<std::uint8_t> longest(4096);
    const std::vector<std::uint8_t> longer(4097);
    receiveQueue.onRtp(longer.data(), longer.size());
    EXPECT_FALSE(receiveQueue.takeRtp(packet));
    EXPECT_EQ(1U, receiveQueue.overrun());
    receiveQueue.onRtp(longest.data(), longest.size());
    EXPECT_TRUE(receiveQueue.takeRtp(packet));
}

TEST_F(TalkReceiveQueueTest, ThreadsPutAndTakeConcurrently)
{
    receiveQueue.open();
    std::atomic<bool> done{false};
    std::thread network(
        [&]
        {
            for (int i = 0; i < 20000; ++i)
            {
                put(static_cast<std::uint8_t>(i));
            }
            done = true;
        });
    std::uint64_t taken = 0;
    while (true)
    {
        const bool last = done;
        while (receiveQueue.takeRtp(packet))
        {
            ++taken;
        }
        if (last)
        {
            break;
        }
    }
    network.join();
    EXPECT_EQ(20000U, taken + receiveQueue.overrun());
}

}  // namespace
}  // namespace test
}  // namespace refhost

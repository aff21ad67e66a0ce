#include "refhost/talkback/TalkInbox.h"

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

class TalkInboxTest : public testing::Test
{
protected:
    void put(std::uint8_t byte)
    {
        inbox.onRtp(&byte, 1);
    }

    ManualClock clock;
    TalkInbox inbox{clock};
    TalkInbox::Packet packet;
};

TEST_F(TalkInboxTest, GivesPacketsInTheirOrderWithTheirTime)
{
    inbox.open();
    put(1);
    clock.advanceMs(5);
    put(2);
    ASSERT_TRUE(inbox.takeRtp(packet));
    EXPECT_EQ((std::vector<std::uint8_t>{1}), packet.bytes);
    const std::int64_t first = packet.arrivalNs;
    ASSERT_TRUE(inbox.takeRtp(packet));
    EXPECT_EQ((std::vector<std::uint8_t>{2}), packet.bytes);
    EXPECT_EQ(5'000'000, packet.arrivalNs - first);
    EXPECT_FALSE(inbox.takeRtp(packet));
}

TEST_F(TalkInboxTest, RtpAndRtcpDoNotMix)
{
    inbox.open();
    const std::uint8_t report = 9;
    inbox.onRtcp(&report, 1);
    EXPECT_FALSE(inbox.takeRtp(packet));
    EXPECT_TRUE(inbox.takeRtcp(packet));
}

TEST_F(TalkInboxTest, TakesNothingInWhileClosed)
{
    put(1);
    EXPECT_FALSE(inbox.takeRtp(packet));
    inbox.open();
    put(2);
    inbox.close();
    EXPECT_FALSE(inbox.takeRtp(packet));
    inbox.open();
    EXPECT_FALSE(inbox.takeRtp(packet)) << "what waited before the break is gone";
}

TEST_F(TalkInboxTest, KeepsTheNewestWhenItIsFull)
{
    inbox.open();
    for (int i = 0; i < 70; ++i)
    {
        put(static_cast<std::uint8_t>(i));
    }
    EXPECT_EQ(6U, inbox.overrun());
    for (int i = 6; i < 70; ++i)
    {
        ASSERT_TRUE(inbox.takeRtp(packet));
        EXPECT_EQ(i, packet.bytes[0]);
    }
    EXPECT_FALSE(inbox.takeRtp(packet));
}

TEST_F(TalkInboxTest, TellsWhatWasDroppedUntilItIsOpenedAgain)
{
    const std::vector<std::uint8_t> longer(4097);
    inbox.open();
    inbox.onRtp(longer.data(), longer.size());
    inbox.close();
    EXPECT_EQ(1U, inbox.overrun());
    inbox.onRtp(longer.data(), longer.size());
    EXPECT_EQ(1U, inbox.overrun()) << "what comes while it is closed is nobody's";
    inbox.open();
    EXPECT_EQ(0U, inbox.overrun());
}

TEST_F(TalkInboxTest, DropsWhatIsTooLong)
{
    inbox.open();
    const std::vector<std::uint8_t> longest(4096);
    const std::vector<std::uint8_t> longer(4097);
    inbox.onRtp(longer.data(), longer.size());
    EXPECT_FALSE(inbox.takeRtp(packet));
    EXPECT_EQ(1U, inbox.overrun());
    inbox.onRtp(longest.data(), longest.size());
    EXPECT_TRUE(inbox.takeRtp(packet));
}

TEST_F(TalkInboxTest, ThreadsThatPutAndTakeDoNotDisturbEachOther)
{
    inbox.open();
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
        while (inbox.takeRtp(packet))
        {
            ++taken;
        }
        if (last)
        {
            break;
        }
    }
    network.join();
    EXPECT_EQ(20000U, taken + inbox.overrun());
}

}  // namespace
}  // namespace test
}  // namespace refhost

#include "refhost/rtp/ReorderWindow.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/Instants.h"

namespace refhost
{
namespace
{

using Added = ReorderWindow::Added;
using Next = ReorderWindow::Next;

using test::atMs;

class ReorderWindowTest : public testing::Test
{
protected:
    Added add(std::uint32_t sequence, std::int64_t ms = 0)
    {
        ReorderWindow::Packet packet;
        packet.sequence = sequence;
        packet.arrival = atMs(ms);
        return window.add(std::move(packet));
    }

    /// The next sequence number; 0 for none, 1 for waiting.
    std::uint32_t next(std::int64_t ms = 0)
    {
        ReorderWindow::Packet packet;
        switch (window.take(atMs(ms), packet, lost))
        {
            case Next::none:
                return 0;
            case Next::waiting:
                return 1;
            case Next::packet:
                break;
        }
        return packet.sequence;
    }

    ReorderWindow window{std::chrono::milliseconds(40)};
    std::uint32_t lost = 0;
};

TEST_F(ReorderWindowTest, PacketsInOrderPassAtOnce)
{
    for (std::uint32_t i = 100; i < 120; ++i)
    {
        EXPECT_EQ(Added::taken, add(i));
        EXPECT_EQ(i, next());
        EXPECT_EQ(0U, lost);
        EXPECT_EQ(0U, next());
    }
}

TEST_F(ReorderWindowTest, NeighboursAreExchangedBack)
{
    add(100);
    EXPECT_EQ(100U, next());
    add(102, 20);
    EXPECT_EQ(1U, next(20));
    add(101, 30);
    EXPECT_EQ(101U, next(30));
    EXPECT_EQ(102U, next(30));
    EXPECT_EQ(0U, lost);
}

TEST_F(ReorderWindowTest, AMissingPacketIsGivenUpAfterItsTime)
{
    add(100);
    next();
    add(103, 20);
    EXPECT_EQ(1U, next(59));
    EXPECT_EQ(103U, next(60));
    EXPECT_EQ(2U, lost);
    EXPECT_EQ(Added::late, add(101, 61));
    EXPECT_EQ(Added::late, add(103, 61));
    EXPECT_EQ(0U, next(61));
}

TEST_F(ReorderWindowTest, AMissingPacketIsGivenUpWhenManyHaveFollowed)
{
    add(100);
    next();
    for (std::uint32_t i = 102; i < 109; ++i)
    {
        add(i);
        EXPECT_EQ(1U, next());
    }
    add(109);
    EXPECT_EQ(102U, next());
    EXPECT_EQ(1U, lost);
    EXPECT_EQ(103U, next());
    EXPECT_EQ(0U, lost);
}

TEST_F(ReorderWindowTest, TheSamePacketIsTakenOnce)
{
    add(100);
    next();
    EXPECT_EQ(Added::taken, add(102));
    EXPECT_EQ(Added::duplicate, add(102));
}

TEST_F(ReorderWindowTest, AnythingMayComeFirst)
{
    EXPECT_EQ(Added::taken, add(7));
    EXPECT_EQ(7U, next());
    window.reset();
    EXPECT_EQ(Added::taken, add(3));
    EXPECT_EQ(3U, next());
}

TEST_F(ReorderWindowTest, PacketsInOrderNeedNotBeHeld)
{
    EXPECT_TRUE(window.passes(100));
    EXPECT_TRUE(window.passes(101));
    EXPECT_FALSE(window.passes(101));
    EXPECT_FALSE(window.passes(103));
    EXPECT_EQ(MonotonicTime::max(), window.waitsUntil());
    EXPECT_EQ(Added::taken, add(103, 5));
    EXPECT_FALSE(window.passes(102)) << "a later one is held";
    EXPECT_EQ(1U, next(5));
    EXPECT_EQ(atMs(45), window.waitsUntil());
    EXPECT_EQ(Added::taken, add(102, 6));
    EXPECT_EQ(102U, next(6));
    EXPECT_EQ(103U, next(6));
    EXPECT_TRUE(window.passes(104));
}

TEST_F(ReorderWindowTest, HowManyLaterPacketsEndTheWaitCanBeChosen)
{
    ReorderWindow deep{std::chrono::seconds(1), 20};
    ReorderWindow::Packet packet;
    EXPECT_TRUE(deep.passes(1));
    for (std::uint32_t i = 3; i < 22; ++i)
    {
        packet.sequence = i;
        deep.add(ReorderWindow::Packet(packet));
    }
    EXPECT_EQ(Next::waiting, deep.take(atMs(0), packet, lost));
    packet.sequence = 22;
    deep.add(ReorderWindow::Packet(packet));
    EXPECT_EQ(Next::packet, deep.take(atMs(0), packet, lost));
    EXPECT_EQ(3U, packet.sequence);
    EXPECT_EQ(1U, lost);
}

}  // namespace
}  // namespace refhost

#include "refhost/rtsp/connection/ConnectionSlots.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace refhost
{
namespace
{

using SlotPtr = std::shared_ptr<ConnectionSlots::Slot>;

/// An IPv4 address.
SocketAddress::Key address(unsigned number)
{
    SocketAddress::Key key{};
    key[10] = key[11] = 0xff;
    key[12] = 10;
    key[13] = static_cast<unsigned char>(number >> 16);
    key[14] = static_cast<unsigned char>(number >> 8);
    key[15] = static_cast<unsigned char>(number);
    return key;
}

/// Connections that close when displaced, like a server's.
class ConnectionSlotsTest : public testing::Test
{
protected:
    /// \returns the connection's number, or -1 when it is refused
    int connect(const SocketAddress::Key& from)
    {
        SlotPtr slot = slots.take(from, now);
        if (slot == nullptr)
        {
            return -1;
        }
        const auto number = static_cast<int>(connections.size());
        connections.push_back(slot);
        slot->onDisplaced([this, number] { connections[static_cast<std::size_t>(number)].reset(); });
        return number;
    }

    bool lives(int number) const
    {
        return number >= 0 && connections[static_cast<std::size_t>(number)] != nullptr;
    }

    void establish(int number, bool established = true)
    {
        connections[static_cast<std::size_t>(number)]->setEstablished(established, now);
    }

    MonotonicTime now;
    ConnectionSlots slots{80, 40};
    std::vector<SlotPtr> connections;
};

TEST_F(ConnectionSlotsTest, SilentConnectionsOfSomeAddressesKeepNobodyOut)
{
    for (unsigned i = 0; i < 200; ++i)
    {
        connect(address(i % 5));
    }
    EXPECT_EQ(slots.count(), 70u) << "one of eight is kept";
    for (unsigned user = 100; user < 110; ++user)
    {
        const int connection = connect(address(user));
        EXPECT_TRUE(lives(connection));
        for (unsigned i = 0; i < 50; ++i)
        {
            connect(address(i % 5));
        }
        EXPECT_TRUE(lives(connection)) << "who has one connection is not displaced by who has many";
    }
    EXPECT_LE(slots.count(), 70u);
}

TEST_F(ConnectionSlotsTest, EstablishedConnectionsAreNeverDisplaced)
{
    std::vector<int> users;
    for (unsigned i = 0; i < 40; ++i)
    {
        users.push_back(connect(address(7)));
        ASSERT_TRUE(lives(users.back()));
        establish(users.back());
    }
    for (unsigned i = 0; i < 1000; ++i)
    {
        connect(address(100 + i));
    }
    for (const int user : users)
    {
        EXPECT_TRUE(lives(user));
    }
    EXPECT_EQ(slots.count(), 70u);
}

TEST_F(ConnectionSlotsTest, SomeAreKeptForAddressesThatWereEstablishedBefore)
{
    const int user = connect(address(1));
    establish(user);
    connections[static_cast<std::size_t>(user)].reset();
    for (unsigned i = 0; i < 100; ++i)
    {
        connect(address(100 + i));
    }
    EXPECT_EQ(slots.count(), 70u);
    EXPECT_EQ(connect(address(2)), -1) << "everybody has one connection: nobody makes room";
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_TRUE(lives(connect(address(1))));
    }
    EXPECT_EQ(slots.count(), 80u);
}

TEST_F(ConnectionSlotsTest, OneAddressHasItsOwnLimitAndItsOldestMakeRoom)
{
    for (int i = 0; i < 40; ++i)
    {
        EXPECT_TRUE(lives(connect(address(1))));
    }
    EXPECT_EQ(connect(address(1)), -1);
    now += ConnectionSlots::ownAge;
    const int late = connect(address(1));
    EXPECT_TRUE(lives(late));
    EXPECT_FALSE(lives(0));
    EXPECT_TRUE(lives(1));
    EXPECT_EQ(slots.count(), 40u);
}

TEST_F(ConnectionSlotsTest, AnIpv6NetworkCountsAsOneAddress)
{
    for (unsigned i = 0; i < 100; ++i)
    {
        SocketAddress::Key key{0x20, 0x01, 0x0d, 0xb8};
        key[15] = static_cast<unsigned char>(i);
        connect(key);
    }
    EXPECT_EQ(slots.count(), 40u);
    SocketAddress::Key neighbour{0x20, 0x01, 0x0d, 0xb8};
    neighbour[7] = 1;
    EXPECT_TRUE(lives(connect(neighbour)));
}

TEST_F(ConnectionSlotsTest, WhoIsNotEstablishedAnyMoreCanBeDisplacedAgain)
{
    const int user = connect(address(1));
    establish(user);
    establish(user, false);
    now += ConnectionSlots::ownAge;
    for (int i = 0; i < 40; ++i)
    {
        connect(address(1));
    }
    EXPECT_FALSE(lives(user));
}

TEST_F(ConnectionSlotsTest, DisplacedConnectionsThatAreNotClosedYetAreBounded)
{
    std::vector<SlotPtr> held;
    for (unsigned i = 0; i < 70; ++i)
    {
        held.push_back(slots.take(address(i % 2), now));
    }
    unsigned taken = 0;
    for (unsigned i = 0; i < 200; ++i)
    {
        SlotPtr slot = slots.take(address(100 + i), now);
        taken += slot != nullptr ? 1 : 0;
        held.push_back(slot);
    }
    EXPECT_EQ(taken, ConnectionSlots::maxLeaving);
    held.clear();
    EXPECT_EQ(slots.count(), 0u);
    EXPECT_TRUE(lives(connect(address(1))));
}

TEST_F(ConnectionSlotsTest, ConnectionDisplacedBeforeItListensIsNotifiedAtOnce)
{
    const SlotPtr early = slots.take(address(1), now);
    for (unsigned i = 0; i < 39; ++i)
    {
        connect(address(1));
    }
    now += ConnectionSlots::ownAge;
    connect(address(1));
    bool notified = false;
    early->onDisplaced([&notified] { notified = true; });
    EXPECT_TRUE(notified);
}

TEST_F(ConnectionSlotsTest, AreScarceWhenThreeQuartersAreTaken)
{
    for (unsigned i = 0; i < 52; ++i)
    {
        connect(address(i));
    }
    EXPECT_FALSE(slots.scarce());
    connect(address(60));
    EXPECT_TRUE(slots.scarce());
    connections.back().reset();
    EXPECT_FALSE(slots.scarce());
}

TEST_F(ConnectionSlotsTest, KnownAddressesAreBounded)
{
    for (unsigned i = 0; i <= ConnectionSlots::maxKnown; ++i)
    {
        const int user = connect(address(i));
        establish(user);
        connections.clear();
    }
    for (unsigned i = 0; i < 70; ++i)
    {
        connect(address(10000 + i));
    }
    EXPECT_EQ(connect(address(0)), -1) << "the oldest is forgotten";
    EXPECT_TRUE(lives(connect(address(1))));
}

TEST(ConnectionSlots, ThreadsTakeAndGiveBackAtTheSameTime)
{
    ConnectionSlots slots(16, 8);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&slots, t]
            {
                for (int i = 0; i < 2000; ++i)
                {
                    const MonotonicTime now{std::chrono::milliseconds(i)};
                    const SlotPtr slot = slots.take(address(t), now);
                    if (slot != nullptr)
                    {
                        slot->onDisplaced([] {});
                        slot->setEstablished(i % 3 == 0, now);
                        const SlotPtr second = slots.take(address(t + 10), now);
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(slots.count(), 0u);
}

TEST_F(ConnectionSlotsTest, ACompanionIsEstablishedWithItsSlot)
{
    const int main = connect(address(1));
    const int companion = connect(address(1));
    connections[0]->join(connections[1]);
    establish(main);
    now += std::chrono::hours(1);
    // The others are displaced, these two are not.
    for (int i = 0; i < 200; ++i)
    {
        connect(address(1));
        now += ConnectionSlots::ownAge;
    }
    EXPECT_TRUE(lives(main));
    EXPECT_TRUE(lives(companion));
    establish(main, false);
    for (int i = 0; i < 200; ++i)
    {
        connect(address(1));
        now += ConnectionSlots::ownAge;
    }
    EXPECT_FALSE(lives(main));
}

TEST_F(ConnectionSlotsTest, ACompanionThatJoinsAnEstablishedSlotIsEstablished)
{
    const int main = connect(address(1));
    establish(main);
    const int companion = connect(address(1));
    connections[0]->join(connections[1]);
    for (int i = 0; i < 200; ++i)
    {
        now += ConnectionSlots::ownAge;
        connect(address(1));
    }
    EXPECT_TRUE(lives(companion));
}

TEST_F(ConnectionSlotsTest, ADisplacedCompanionDisplacesItsSlot)
{
    std::vector<std::string> displaced;
    const SlotPtr companion = slots.take(address(1), now);
    companion->onDisplaced([&] { displaced.emplace_back("companion alone"); });
    const SlotPtr main = slots.take(address(1), now);
    main->join(companion);
    main->onDisplaced([&] { displaced.emplace_back("main"); });
    std::vector<SlotPtr> others;
    for (int i = 0; i < 40 && displaced.empty(); ++i)
    {
        now += ConnectionSlots::ownAge;
        others.push_back(slots.take(address(1), now));
    }
    EXPECT_EQ(displaced, std::vector<std::string>{"main"}) << "the companion is the oldest";
    const SlotPtr late = slots.take(address(2), now);
    late->onDisplaced([&] { displaced.emplace_back("late"); });
    late->join(companion);
    EXPECT_EQ(displaced.back(), "late") << "it was displaced before it joined";
}

}  // namespace
}  // namespace refhost

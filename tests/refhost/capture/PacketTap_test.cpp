#include "refhost/capture/PacketTap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/refhost/capture/CollectingSink.h"

namespace refhost
{
namespace
{

AccessUnitPtr unit(bool key)
{
    auto made = std::make_shared<AccessUnit>();
    made->keyFrame = key;
    return made;
}

TEST(PacketTap, NewSinkStartsWithAKeyFrame)
{
    PacketTap tap;
    const auto sink = std::make_shared<CollectingSink>();
    tap.add(sink);
    tap.deliver(unit(false));
    EXPECT_TRUE(sink->units().empty());
    tap.deliver(unit(true));
    tap.deliver(unit(false));
    EXPECT_EQ(sink->units().size(), 2U);
}

TEST(PacketTap, SinkStartsWithAKeyFrameAfterADiscontinuity)
{
    PacketTap tap;
    const auto sink = std::make_shared<CollectingSink>();
    tap.add(sink);
    tap.deliver(unit(true));
    tap.discontinuity();
    tap.deliver(unit(false));
    EXPECT_EQ(sink->discontinuities(), 1);
    EXPECT_EQ(sink->units().size(), 1U);
}

TEST(PacketTap, RemovedSinkIsNotCalled)
{
    PacketTap tap;
    const auto first = std::make_shared<CollectingSink>();
    const auto second = std::make_shared<CollectingSink>();
    tap.add(first);
    tap.add(second);
    EXPECT_TRUE(tap.remove(first.get()));
    EXPECT_FALSE(tap.remove(first.get()));
    tap.deliver(unit(true));
    tap.discontinuity();
    EXPECT_TRUE(first->units().empty());
    EXPECT_EQ(first->discontinuities(), 0);
    EXPECT_EQ(second->units().size(), 1U);
    EXPECT_FALSE(tap.isEmpty());
    EXPECT_TRUE(tap.remove(second.get()));
    EXPECT_TRUE(tap.isEmpty());
}

TEST(PacketTap, SinkMayRemoveItselfAndOthersWhileItIsCalled)
{
    struct Remover : AccessUnitSink
    {
        void onAccessUnit(AccessUnitPtr) override
        {
            tap->remove(this);
            tap->remove(other);
        }
        void onDiscontinuity() override {}
        PacketTap* tap = nullptr;
        const AccessUnitSink* other = nullptr;
    };
    PacketTap tap;
    const auto remover = std::make_shared<Remover>();
    const auto other = std::make_shared<CollectingSink>();
    remover->tap = &tap;
    remover->other = other.get();
    tap.add(remover);
    tap.add(other);
    tap.deliver(unit(true));
    EXPECT_TRUE(other->units().empty());
    EXPECT_TRUE(tap.isEmpty());
}

TEST(PacketTap, RemovalWaitsForADeliveryInProgress)
{
    struct Slow : AccessUnitSink
    {
        void onAccessUnit(AccessUnitPtr) override
        {
            inside = true;
            for (int i = 0; i < 1000 && !removing; ++i)
            {
                std::this_thread::yield();
            }
            inside = false;
        }
        void onDiscontinuity() override {}
        std::atomic<bool> inside{false};
        std::atomic<bool> removing{false};
    };
    PacketTap tap;
    const auto sink = std::make_shared<Slow>();
    tap.add(sink);
    std::atomic<bool> stop{false};
    std::thread deliverer(
        [&]
        {
            while (!stop)
            {
                tap.deliver(unit(true));
            }
        });
    for (int iteration = 0; iteration < 200; ++iteration)
    {
        while (!sink->inside)
        {
            std::this_thread::yield();
        }
        sink->removing = true;
        tap.remove(sink.get());
        EXPECT_FALSE(sink->inside);
        sink->removing = false;
        tap.add(sink);
    }
    stop = true;
    deliverer.join();
}

}  // namespace
}  // namespace refhost

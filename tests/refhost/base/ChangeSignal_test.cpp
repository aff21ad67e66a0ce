#include "refhost/base/ChangeSignal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace refhost
{
namespace
{

TEST(ChangeSignal, AnnouncementReachesEverySubscriber)
{
    ChangeSignal signal;
    int first = 0;
    int second = 0;
    signal.subscribe([&first] { ++first; });
    signal.subscribe([&second] { ++second; });
    signal.announce();
    signal.announce();
    EXPECT_EQ(first, 2);
    EXPECT_EQ(second, 2);
    EXPECT_EQ(signal.subscriberCount(), 2u);
}

TEST(ChangeSignal, UnsubscribedFunctionIsNotCalled)
{
    ChangeSignal signal;
    int calls = 0;
    const int id = signal.subscribe([&calls] { ++calls; });
    signal.unsubscribe(id);
    signal.announce();
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(signal.subscriberCount(), 0u);
}

TEST(ChangeSignal, SubscriberMayUnsubscribeItselfAndAnnounceAgain)
{
    ChangeSignal signal;
    int calls = 0;
    int id = 0;
    id = signal.subscribe(
        [&]
        {
            ++calls;
            signal.unsubscribe(id);
            signal.announce();
        });
    signal.announce();
    EXPECT_EQ(calls, 1);
}

TEST(ChangeSignal, UnsubscribeWaitsForACallInProgress)
{
    ChangeSignal signal;
    std::promise<void> entered;
    std::promise<void> leave;
    std::atomic<bool> left{false};
    const int id = signal.subscribe(
        [&]
        {
            entered.set_value();
            leave.get_future().wait();
            left = true;
        });
    std::thread announcer([&signal] { signal.announce(); });
    entered.get_future().wait();
    std::thread helper([&leave] { leave.set_value(); });
    signal.unsubscribe(id);
    EXPECT_TRUE(left);
    announcer.join();
    helper.join();
}

TEST(ChangeSignal, InstanceIsOnePerProcess)
{
    EXPECT_EQ(&ChangeSignal::instance(), &ChangeSignal::instance());
}

}  // namespace
}  // namespace refhost

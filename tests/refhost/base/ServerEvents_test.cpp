#include "refhost/base/ServerEvents.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

ServerEvent event(std::string text)
{
    return {"test", WallTime{}, {{"text", std::move(text)}}};
}

TEST(ServerEvents, HaveSubscribersWhileSomebodySubscribes)
{
    ServerEvents events;
    EXPECT_FALSE(events.hasSubscribers());
    auto queue = events.subscribe(1, nullptr);
    EXPECT_TRUE(events.hasSubscribers());
    queue = nullptr;
    events.publish(event("to nobody"));
    EXPECT_FALSE(events.hasSubscribers());
}

TEST(ServerEvents, QueueKeepsItsMaximumAndCountsTheRest)
{
    ServerEvents events;
    const auto queue = events.subscribe(2, nullptr);
    for (const char* text : {"a", "b", "c", "d"})
    {
        events.publish(event(text));
    }
    auto taken = queue->take();
    ASSERT_EQ(taken.events.size(), 2U);
    EXPECT_EQ(std::get<std::string>(*taken.events[1]->find("text")), "b");
    EXPECT_EQ(taken.lost, 2U);
    taken = queue->take();
    EXPECT_TRUE(taken.events.empty());
    EXPECT_EQ(taken.lost, 0U);
}

TEST(ServerEvents, SubscriberIsWokenOncePerFilledQueue)
{
    ServerEvents events;
    int woken = 0;
    const auto queue = events.subscribe(9, [&woken] { ++woken; });
    events.publish(event("a"));
    events.publish(event("b"));
    EXPECT_EQ(woken, 1);
    (void)queue->take();
    events.publish(event("c"));
    EXPECT_EQ(woken, 2);
    queue->close();
    (void)queue->take();
    events.publish(event("d"));
    EXPECT_EQ(woken, 2);
    EXPECT_TRUE(queue->take().events.empty());
}

TEST(ServerEvents, EventIsOneLineOfJson)
{
    const ServerEvent sample{"camera-state",
                             wallTimeOfUnix(1700000000) + std::chrono::microseconds(12999),
                             {{"camera", std::int64_t{2}},
                              {"title", std::string("the \"yard\"\n\xff")},
                              {"seconds", 1.5},
                              {"start", ServerEvent::dateOf(wallTimeOfUnix(0))}}};
    EXPECT_EQ(sample.json(),
              R"({"event":"camera-state","time":"2023-11-14T22:13:20.012Z","camera":2,)"
              R"("title":"the \"yard\"\u000a\\xff","seconds":1.500,"start":"1970-01-01T00:00:00.000Z"})");
}

}  // namespace
}  // namespace refhost

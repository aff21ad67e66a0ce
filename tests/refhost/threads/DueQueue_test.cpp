#include "refhost/threads/DueQueue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

constexpr MonotonicTime start{1000s};

}  // namespace

TEST(DueQueue, NothingIsTakenBeforeItsDueTime)
{
    DueQueue<std::string> queue;
    queue.add(start + 1ms, "later");
    EXPECT_EQ(std::nullopt, queue.takeDue(start + 999us));
    EXPECT_EQ(1U, queue.size());
    EXPECT_EQ("later", queue.takeDue(start + 1ms));
    EXPECT_TRUE(queue.empty());
}

TEST(DueQueue, EntriesAreOrderedByDueTimeThenByAdding)
{
    DueQueue<std::string> queue;
    queue.add(start + 2ms, "c");
    queue.add(start + 1ms, "a");
    queue.add(start + 2ms, "d");
    queue.add(start + 1ms, "b");
    EXPECT_EQ(start + 1ms, queue.nextDue());
    for (const char* const expected : {"a", "b", "c", "d"})
    {
        EXPECT_EQ(expected, queue.takeDue(start + 1h));
    }
}

TEST(DueQueue, EmptyQueueIsNeverDue)
{
    DueQueue<int> queue;
    EXPECT_EQ(MonotonicTime::max(), queue.nextDue());
    EXPECT_EQ(std::nullopt, queue.takeDue(MonotonicTime::max()));
}

TEST(DueQueue, TicketRemovesOnlyItsEntry)
{
    DueQueue<int> queue;
    const auto first = queue.add(start, 1);
    const auto second = queue.add(start, 2);
    EXPECT_TRUE(queue.remove(first));
    EXPECT_FALSE(queue.remove(first));
    EXPECT_EQ(2, queue.takeDue(start));
    EXPECT_FALSE(queue.remove(second));
}

TEST(DueQueue, TicketsAreNotReused)
{
    DueQueue<int> queue;
    const auto first = queue.add(start, 1);
    EXPECT_EQ(1, queue.takeDue(start));
    queue.add(start, 2);
    EXPECT_FALSE(queue.remove(first));
    EXPECT_EQ(1U, queue.size());
}

TEST(DueQueue, EntriesMayBeMoveOnly)
{
    DueQueue<std::unique_ptr<int>> queue;
    queue.add(start, std::make_unique<int>(7));
    EXPECT_EQ(7, **queue.takeDue(start));
}

}  // namespace refhost

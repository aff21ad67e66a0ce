#include "refhost/threads/TaskQueue.h"

#include <gtest/gtest.h>

#include <future>
#include <vector>

namespace refhost
{
namespace
{

using std::chrono::milliseconds;

TEST(TaskQueue, TasksRunInTheOrderOfPostingOnOneThread)
{
    TaskQueue queue;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::promise<void> done;
    for (int i = 0; i < 100; ++i)
    {
        queue.post(
            [&, i]
            {
                order.push_back(i);
                threads.push_back(std::this_thread::get_id());
            });
    }
    queue.post([&] { done.set_value(); });
    done.get_future().wait();
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
        EXPECT_EQ(threads[static_cast<std::size_t>(i)], threads[0]);
    }
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(TaskQueue, DelayedTaskDoesNotDelayOthers)
{
    TaskQueue queue;
    std::vector<int> order;
    std::promise<void> done;
    const auto start = std::chrono::steady_clock::now();
    queue.post(
        [&]
        {
            order.push_back(2);
            done.set_value();
        },
        milliseconds(30));
    queue.post([&] { order.push_back(1); }, milliseconds(10));
    queue.post([&] { order.push_back(0); });
    done.get_future().wait();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(30));
}

TEST(TaskQueue, TaskMayPostAnother)
{
    TaskQueue queue;
    std::promise<void> done;
    queue.post([&] { queue.post([&] { done.set_value(); }); });
    EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST(TaskQueue, CloseDropsTasksThatAreNotDueAndLaterOnes)
{
    TaskQueue queue;
    bool ran = false;
    queue.post([&] { ran = true; }, std::chrono::hours(1));
    queue.close();
    queue.post([&] { ran = true; });
    queue.close();
    EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace refhost

#include "refhost/threads/EventLoop.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

TEST(EventLoop, HandlersRunOnItsOwnNamedThread)
{
    EventLoop loop("a loop with a long name");
    std::string name(32, '\0');
    bool inside = false;
    runOn(loop,
          [&]
          {
              pthread_getname_np(pthread_self(), &name[0], name.size());
              inside = loop.onLoopThread();
          });
    EXPECT_STREQ("a loop with a l", name.c_str());
    EXPECT_TRUE(inside);
    EXPECT_FALSE(loop.onLoopThread());
}

TEST(EventLoop, PostedTasksRunInTheOrderOfPosting)
{
    EventLoop loop("test");
    std::vector<int> order;
    for (int i = 0; i < 1000; ++i)
    {
        loop.post([&order, i] { order.push_back(i); });
    }
    runOn(loop, [] {});
    ASSERT_EQ(1000u, order.size());
    for (int i = 0; i < 1000; ++i)
    {
        ASSERT_EQ(i, order[i]);
    }
}

TEST(EventLoop, TaskPostedByATaskRuns)
{
    EventLoop loop("test");
    Signal done;
    loop.post([&] { loop.post([&] { done.set(); }); });
    EXPECT_TRUE(done.wait());
}

TEST(EventLoop, PostsOfManyThreadsAllRun)
{
    EventLoop loop("test");
    int ran = 0;
    std::vector<std::thread> posters;
    for (int i = 0; i < 4; ++i)
    {
        posters.emplace_back(
            [&]
            {
                for (int n = 0; n < 5000; ++n)
                {
                    loop.post([&ran] { ++ran; });
                }
            });
    }
    for (std::thread& poster : posters)
    {
        poster.join();
    }
    runOn(loop, [&] { EXPECT_EQ(20000, ran); });
}

TEST(EventLoop, UnknownDescriptorsAreIgnored)
{
    EventLoop loop("test");
    loop.modify(-1, EventLoop::readable);
    loop.modify(500, EventLoop::readable);
    loop.remove(-1);
    loop.remove(500);
    runOn(loop, [] {});
}

TEST(EventLoop, LoopContinuesAfterAHandlersException)
{
    EventLoop loop("test");
    loop.post([] { throw std::runtime_error("deliberate, in a test"); });
    loop.post([] { throw 1; });
    runOn(loop, [] {});
}

TEST(EventLoop, DestructorDropsPendingTasksAndDestroysHandlersWhileUsable)
{
    struct RemovesAtTheEnd
    {
        ~RemovesAtTheEnd()
        {
            loop->remove(descriptor);
            loop->post([] {});
        }
        EventLoop* loop;
        int descriptor;
    };
    SocketPair sockets;
    std::weak_ptr<RemovesAtTheEnd> seen;
    {
        EventLoop loop("test");
        auto held = std::make_shared<RemovesAtTheEnd>();
        seen = held;
        held->loop = &loop;
        held->descriptor = sockets.near();
        loop.every(std::chrono::seconds(1), [held] {});
        loop.add(sockets.near(), EventLoop::readable, [held](std::uint32_t) {});
    }
    EXPECT_TRUE(seen.expired());
}

}  // namespace
}  // namespace refhost

#include "refhost/threads/EventLoop.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using refhost::EventLoop;
using namespace std::chrono_literals;

namespace
{

constexpr auto bound = 10s;  // how long anything may take before the test fails

/// Two connected stream sockets.
class SocketPair
{
public:
    SocketPair()
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends_.data()) != 0)
        {
            throw std::runtime_error("socketpair");
        }
    }
    ~SocketPair()
    {
        ::close(ends_[0]);
        closeFar();
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    int near() const
    {
        return ends_[0];
    }
    void writeFar(char byte)
    {
        ASSERT_EQ(1, ::write(ends_[1], &byte, 1));
    }
    char readNear()
    {
        char byte = 0;
        EXPECT_EQ(1, ::read(ends_[0], &byte, 1));
        return byte;
    }
    void closeFar()
    {
        if (ends_[1] >= 0)
        {
            ::close(ends_[1]);
            ends_[1] = -1;
        }
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

/// Lets a test wait for an event with a bound.
class Signal
{
public:
    void set()
    {
        if (!isSet_.exchange(true))
        {
            promise_.set_value();
        }
    }
    bool wait()
    {
        return future_.wait_for(bound) == std::future_status::ready;
    }
    bool isSet() const
    {
        return isSet_;
    }

private:
    std::atomic<bool> isSet_{false};
    std::promise<void> promise_;
    std::future<void> future_ = promise_.get_future();
};

/// Runs `call` on the loop's thread and waits until it has run.
template <class Call>
void runOn(EventLoop& loop, const Call& call)
{
    Signal done;
    loop.post(
        [&]
        {
            call();
            done.set();
        });
    ASSERT_TRUE(done.wait());
}

}  // namespace

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

TEST(EventLoop, TaskPostedByATaskRunsToo)
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

TEST(EventLoop, TellsThatADescriptorIsReadable)
{
    EventLoop loop("test");
    SocketPair sockets;
    std::promise<char> got;
    loop.add(sockets.near(), EventLoop::readable,
             [&](std::uint32_t events)
             {
                 EXPECT_EQ(EventLoop::readable, events);
                 got.set_value(sockets.readNear());
             });
    sockets.writeFar('x');
    auto future = got.get_future();
    ASSERT_EQ(std::future_status::ready, future.wait_for(bound));
    EXPECT_EQ('x', future.get());
    loop.remove(sockets.near());
}

TEST(EventLoop, UnreadBytesAreToldAgain)
{
    EventLoop loop("test");
    SocketPair sockets;
    Signal third;
    std::atomic<int> times{0};
    loop.add(sockets.near(), EventLoop::readable,
             [&](std::uint32_t)
             {
                 if (++times == 3)
                 {
                     third.set();
                 }
             });
    sockets.writeFar('x');
    EXPECT_TRUE(third.wait());
    loop.remove(sockets.near());
}

TEST(EventLoop, TellsOnlyWhatIsWatchedForNow)
{
    EventLoop loop("test");
    SocketPair sockets;
    Signal writable;
    Signal readable;
    loop.add(sockets.near(), EventLoop::writable,
             [&](std::uint32_t events)
             {
                 if (events == EventLoop::writable)
                 {
                     loop.modify(sockets.near(), EventLoop::readable);
                     writable.set();
                 }
                 else
                 {
                     EXPECT_EQ(EventLoop::readable, events);
                     loop.modify(sockets.near(), 0);
                     readable.set();
                 }
             });
    EXPECT_TRUE(writable.wait());
    EXPECT_FALSE(readable.isSet());
    sockets.writeFar('x');
    EXPECT_TRUE(readable.wait());
    loop.remove(sockets.near());
}

TEST(EventLoop, TellsAHangUpWithoutBeingAsked)
{
    EventLoop loop("test");
    SocketPair sockets;
    Signal hungUp;
    loop.add(sockets.near(), 0,
             [&](std::uint32_t events)
             {
                 EXPECT_EQ(EventLoop::hungUp, events);
                 loop.remove(sockets.near());
                 hungUp.set();
             });
    sockets.closeFar();
    EXPECT_TRUE(hungUp.wait());
}

TEST(EventLoop, AddOfABadDescriptorThrowsAndLeavesTheLoopUsable)
{
    EventLoop loop("test");
    EXPECT_THROW(loop.add(-1, EventLoop::readable, [](std::uint32_t) {}), std::system_error);
    EXPECT_THROW(loop.add(1 << 20, EventLoop::readable, [](std::uint32_t) {}), std::system_error);
    runOn(loop, [] {});
}

TEST(EventLoop, UnknownDescriptorsAndTimersAreIgnored)
{
    EventLoop loop("test");
    loop.modify(-1, EventLoop::readable);
    loop.modify(500, EventLoop::readable);
    loop.remove(-1);
    loop.remove(500);
    loop.cancel(0);
    loop.cancel(77);
    runOn(loop, [] {});
}

TEST(EventLoop, HandlerRemovedByAnEarlierOneOfTheSameBatchDoesNotRun)
{
    EventLoop loop("test");
    SocketPair first;
    SocketPair second;
    int ran = 0;
    SocketPair* const both[] = {&first, &second};
    runOn(loop,
          [&]
          {
              for (SocketPair* sockets : both)
              {
                  // Both become readable before the loop looks again, so that they come in one batch.
                  sockets->writeFar('x');
                  loop.add(sockets->near(), EventLoop::readable,
                           [&](std::uint32_t)
                           {
                               ++ran;
                               loop.remove(first.near());
                               loop.remove(second.near());
                           });
              }
          });
    runOn(loop, [] {});
    runOn(loop, [&] { EXPECT_EQ(1, ran); });
}

TEST(EventLoop, EventOfARemovedWatchDoesNotReachItsSuccessorOnTheSameDescriptor)
{
    EventLoop loop("test");
    SocketPair first;
    SocketPair second;
    int successorRan = 0;
    const auto replaceOther = [&](SocketPair& other)
    {
        return [&](std::uint32_t)
        {
            loop.remove(first.near());
            loop.remove(second.near());
            other.readNear();
            loop.add(other.near(), EventLoop::readable, [&](std::uint32_t) { ++successorRan; });
        };
    };
    runOn(loop,
          [&]
          {
              first.writeFar('x');
              second.writeFar('x');
              loop.add(first.near(), EventLoop::readable, replaceOther(second));
              loop.add(second.near(), EventLoop::readable, replaceOther(first));
          });
    runOn(loop, [] {});
    runOn(loop, [&] { EXPECT_EQ(0, successorRan); });
    loop.remove(first.near());
    loop.remove(second.near());
}

TEST(EventLoop, RemoveFromAnotherThreadWaitsForTheHandler)
{
    EventLoop loop("test");
    SocketPair sockets;
    Signal entered;
    Signal mayLeave;
    std::atomic<bool> left{false};
    loop.add(sockets.near(), EventLoop::readable,
             [&](std::uint32_t)
             {
                 sockets.readNear();
                 entered.set();
                 mayLeave.wait();
                 left = true;
             });
    sockets.writeFar('x');
    ASSERT_TRUE(entered.wait());
    auto removal = std::async(std::launch::async,
                              [&]
                              {
                                  loop.remove(sockets.near());
                                  return left.load();
                              });
    EXPECT_EQ(std::future_status::timeout, removal.wait_for(20ms));
    mayLeave.set();
    EXPECT_TRUE(removal.get());
}

TEST(EventLoop, RemoveDropsWhatTheHandlerHolds)
{
    EventLoop loop("test");
    SocketPair sockets;
    auto held = std::make_shared<int>(1);
    loop.add(sockets.near(), EventLoop::readable, [held](std::uint32_t) {});
    EXPECT_EQ(2, held.use_count());
    loop.remove(sockets.near());
    EXPECT_EQ(1, held.use_count());
}

TEST(EventLoop, HandlerThatRemovesItselfKeepsItsCapturesUntilItEnds)
{
    EventLoop loop("test");
    SocketPair sockets;
    auto held = std::make_shared<int>(7);
    const std::weak_ptr<int> seen = held;
    Signal done;
    int afterRemoval = 0;
    loop.add(sockets.near(), EventLoop::readable,
             [&, held](std::uint32_t)
             {
                 loop.remove(sockets.near());
                 afterRemoval = *held;
                 done.set();
             });
    held.reset();
    sockets.writeFar('x');
    ASSERT_TRUE(done.wait());
    runOn(loop, [] {});
    EXPECT_EQ(7, afterRemoval);
    EXPECT_TRUE(seen.expired());
}

TEST(EventLoop, ExceptionOfAHandlerEndsNothing)
{
    EventLoop loop("test");
    loop.post([] { throw std::runtime_error("deliberate, in a test"); });
    loop.post([] { throw 1; });
    runOn(loop, [] {});
}

TEST(EventLoop, TimerRunsAgainAndAgainUntilCancelled)
{
    EventLoop loop("test");
    Signal third;
    int times = 0;
    const auto start = std::chrono::steady_clock::now();
    const int timer = loop.every(5,
                                 [&]
                                 {
                                     if (++times == 3)
                                     {
                                         third.set();
                                     }
                                 });
    EXPECT_GT(timer, 0);
    ASSERT_TRUE(third.wait());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 15ms);
    loop.cancel(timer);
    const int timesAtCancel = times;
    // A later timer of the same interval would come after the cancelled one.
    Signal later;
    const int other = loop.every(5, [&] { later.set(); });
    ASSERT_TRUE(later.wait());
    EXPECT_EQ(timesAtCancel, times);
    loop.cancel(other);
}

TEST(EventLoop, EarlierTimerIsNotHeldUpByALaterOne)
{
    EventLoop loop("test");
    Signal early;
    const int late = loop.every(3600 * 1000, [] {});
    const int soon = loop.every(1, [&] { early.set(); });
    EXPECT_TRUE(early.wait());
    loop.cancel(late);
    loop.cancel(soon);
}

TEST(EventLoop, TimerMayCancelItself)
{
    EventLoop loop("test");
    int times = 0;
    int timer = 0;
    Signal done;
    runOn(loop,
          [&]
          {
              timer = loop.every(1,
                                 [&]
                                 {
                                     ++times;
                                     loop.cancel(timer);
                                     done.set();
                                 });
          });
    ASSERT_TRUE(done.wait());
    Signal later;
    const int other = loop.every(2, [&] { later.set(); });
    ASSERT_TRUE(later.wait());
    runOn(loop, [&] { EXPECT_EQ(1, times); });
    loop.cancel(other);
}

TEST(EventLoop, TimesMissedByABusyLoopAreLeftOut)
{
    EventLoop loop("test");
    int times = 0;
    int timer = 0;
    runOn(loop,
          [&]
          {
              timer = loop.every(10, [&] { ++times; });
              std::this_thread::sleep_for(100ms);  // the loop is what must be busy here
          });
    runOn(loop, [] {});
    runOn(loop, [&] { EXPECT_LE(times, 2); });
    loop.cancel(timer);
}

TEST(EventLoop, DestructorDropsWhatDidNotRunAndEndsTheHandlersWhole)
{
    struct RemovesAtTheEnd
    {
        ~RemovesAtTheEnd()
        {
            loop->remove(descriptor);
            loop->cancel(timer);
            loop->post([] {});
        }
        EventLoop* loop;
        int descriptor;
        int timer;
    };
    SocketPair sockets;
    std::weak_ptr<RemovesAtTheEnd> seen;
    {
        EventLoop loop("test");
        auto held = std::make_shared<RemovesAtTheEnd>();
        seen = held;
        held->loop = &loop;
        held->descriptor = sockets.near();
        held->timer = loop.every(1000, [held] {});
        loop.add(sockets.near(), EventLoop::readable, [held](std::uint32_t) {});
    }
    EXPECT_TRUE(seen.expired());
}

TEST(EventLoop, WatchesComeAndGoFromManyThreads)
{
    EventLoop loop("test");
    std::vector<std::thread> users;
    std::atomic<int> told{0};
    for (int i = 0; i < 4; ++i)
    {
        users.emplace_back(
            [&]
            {
                for (int n = 0; n < 300; ++n)
                {
                    SocketPair sockets;
                    auto state = std::make_unique<int>(0);
                    Signal seen;
                    loop.add(sockets.near(), EventLoop::readable,
                             [&, raw = state.get()](std::uint32_t)
                             {
                                 ++*raw;
                                 ++told;
                                 seen.set();
                             });
                    sockets.writeFar('x');
                    EXPECT_TRUE(seen.wait());
                    loop.remove(sockets.near());
                    state.reset();  // the handler would write to freed memory if it still ran
                }
            });
    }
    for (std::thread& user : users)
    {
        user.join();
    }
    EXPECT_GE(told, 1200);
}

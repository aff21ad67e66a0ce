#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

TEST(EventLoopWatches, ReportsThatADescriptorIsReadable)
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

TEST(EventLoopWatches, UnreadBytesAreReportedAgain)
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

TEST(EventLoopWatches, ReportsOnlyWatchedEvents)
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

TEST(EventLoopWatches, AlwaysReportsAHangUp)
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

TEST(EventLoopWatches, AddOfABadDescriptorThrowsAndLeavesTheLoopUsable)
{
    EventLoop loop("test");
    EXPECT_THROW(loop.add(-1, EventLoop::readable, [](std::uint32_t) {}), std::system_error);
    EXPECT_THROW(loop.add(1 << 20, EventLoop::readable, [](std::uint32_t) {}), std::system_error);
    runOn(loop, [] {});
}

TEST(EventLoopWatches, HandlerRemovedByAnEarlierHandlerOfItsBatchDoesNotRun)
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
                  // Both become readable before the loop polls again, so that they are in one batch.
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

TEST(EventLoopWatches, EventOfARemovedWatchDoesNotReachItsSuccessorOnTheSameDescriptor)
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

TEST(EventLoopWatches, RemoveFromAnotherThreadWaitsForTheHandler)
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

TEST(EventLoopWatches, RemoveDropsTheHandlersCaptures)
{
    EventLoop loop("test");
    SocketPair sockets;
    auto held = std::make_shared<int>(1);
    loop.add(sockets.near(), EventLoop::readable, [held](std::uint32_t) {});
    EXPECT_EQ(2, held.use_count());
    loop.remove(sockets.near());
    EXPECT_EQ(1, held.use_count());
}

TEST(EventLoopWatches, HandlerThatRemovesItselfKeepsItsCapturesUntilItEnds)
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

TEST(EventLoopWatches, WatchesMayBeAddedAndRemovedFromManyThreads)
{
    EventLoop loop("test");
    std::vector<std::thread> users;
    std::atomic<int> reports{0};
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
                                 ++reports;
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
    EXPECT_GE(reports, 1200);
}

TEST(EventLoopWatches, LoopsThatShareAnExclusiveWatchServeAllOfIt)
{
    constexpr int bytes = 100;
    SocketPair sockets;
    std::atomic<int> read{0};
    Signal done;
    EventLoop one("one");
    EventLoop other("other");
    for (EventLoop* const loop : {&one, &other})
    {
        loop->add(sockets.near(), EventLoop::readable | EventLoop::exclusive,
                  [&](std::uint32_t)
                  {
                      char byte = 0;
                      if (::read(sockets.near(), &byte, 1) == 1 && ++read == bytes)
                      {
                          done.set();
                      }
                  });
    }
    for (int i = 0; i < bytes; ++i)
    {
        sockets.writeFar('x');
    }
    EXPECT_TRUE(done.wait());
    one.remove(sockets.near());
    other.remove(sockets.near());
}

TEST(EventLoopWatches, ModifyLeavesAnExclusiveWatchAsItIs)
{
    SocketPair sockets;
    Signal called;
    EventLoop loop("test");
    loop.add(sockets.near(), EventLoop::readable | EventLoop::exclusive,
             [&](std::uint32_t)
             {
                 sockets.readNear();
                 called.set();
             });
    loop.modify(sockets.near(), 0);
    sockets.writeFar('x');
    EXPECT_TRUE(called.wait());
    loop.remove(sockets.near());
}

}  // namespace
}  // namespace refhost

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "support/SafePointer.h"
#include "tests/AllocationCounter.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/RefCountInspector.h"
#include "tests/support/Probe.h"

namespace
{

const int threadCount = 4;
const int iterations = 2000;

// Runs `body` in several threads that start together.
void inThreads(const std::function<void(int)>& body)
{
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                while (!go)
                {
                    std::this_thread::yield();
                }
                body(i);
            });
    }
    go = true;
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

}  // namespace

TEST(SafePointerThreads, CopiesInManyThreadsCountExactly)
{
    Probe* const object = new Probe;
    {
        SafePointer<Probe> shared(object);
        inThreads(
            [&](int)
            {
                for (int iteration = 0; iteration < iterations; ++iteration)
                {
                    SafePointer<Probe> copy(shared);
                    SafePointer<Probe> assigned;
                    assigned = copy;
                }
            });
        EXPECT_EQ(1, RefCountInspector::holders(object));
        EXPECT_EQ(1, Probe::living());
    }
    EXPECT_EQ(0, Probe::living());
}

TEST(SafePointerThreads, HandlesMadeFromOneRawPointerInManyThreadsCountExactly)
{
    Probe* const object = new Probe;
    {
        SafePointer<Probe> shared(object);
        inThreads(
            [&](int)
            {
                for (int iteration = 0; iteration < iterations; ++iteration)
                {
                    SafePointer<Probe> another(object);
                    EXPECT_EQ(1, another->number());
                }
            });
        EXPECT_EQ(1, RefCountInspector::holders(object));
    }
    EXPECT_EQ(0, Probe::living());
}

TEST(SafePointerThreads, LastHandleInAnyThreadDeletesOnce)
{
    for (int iteration = 0; iteration < iterations / 10; ++iteration)
    {
        std::vector<SafePointer<Probe>> handles(threadCount);
        {
            SafePointer<Probe> first(new Probe);
            for (SafePointer<Probe>& handle : handles)
            {
                handle = first;
            }
        }
        inThreads([&](int i) { handles[static_cast<std::size_t>(i)].dec_reference(); });
        ASSERT_EQ(0, Probe::living());
        // All but one still name the object; the count they held is gone, so they must not release again.
        for (SafePointer<Probe>& handle : handles)
        {
            new (&handle) SafePointer<Probe>;
        }
    }
}

TEST(SafePointerThreads, ObjectsThatComeAndGoAtOneAddressKeepTheirCountsApart)
{
    inThreads(
        [](int)
        {
            for (int iteration = 0; iteration < iterations; ++iteration)
            {
                // The allocator reuses the address that the previous iteration has just freed.
                SafePointer<Probe> handle(new Probe);
                SafePointer<Probe> copy(handle);
                EXPECT_EQ(1, copy->number());
            }
        });
    EXPECT_EQ(0, Probe::living());
    EXPECT_EQ(0u, FakeHost::instance().recordsInUse());
}

TEST(SafePointerThreads, CopyAndReleaseAllocateNothing)
{
    SafePointer<Probe> handle(new Probe);
    SafePointer<Probe> target;
    const AllocationCounter counter;
    {
        SafePointer<Probe> copy(handle);
        target = copy;
    }
    EXPECT_EQ(0u, counter.count());
}

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "hostapi/base/OVMutex.h"
#include "support/OVMutexManager.h"

TEST(OVMutexContract, FreshMutexIsUsableWithAndWithoutInit)
{
    OVMutex fresh;
    fresh.Lock("here.cpp", 1);
    fresh.Unlock("here.cpp", 2);
    OVMutex initialised;
    EXPECT_EQ(0, initialised.Init());
    initialised.Lock("here.cpp", 3);
    initialised.Unlock("here.cpp", 4);
    EXPECT_EQ(0, initialised.Init());
}

TEST(OVMutexContract, LockWaitsForTheHolder)
{
    OVMutex mutex;
    std::atomic<bool> givenBack{false};
    std::promise<void> waiterRuns;
    mutex.Lock("here.cpp", 1);
    auto waiter = std::async(std::launch::async,
                             [&]
                             {
                                 waiterRuns.set_value();
                                 mutex.Lock("there.cpp", 1);
                                 const bool inOrder = givenBack;
                                 mutex.Unlock("there.cpp", 2);
                                 return inOrder;
                             });
    waiterRuns.get_future().wait();
    EXPECT_EQ(std::future_status::timeout, waiter.wait_for(std::chrono::milliseconds(20)));
    givenBack = true;
    mutex.Unlock("here.cpp", 2);
    EXPECT_TRUE(waiter.get());
}

TEST(OVMutexContract, GuardsOfManyThreadsExcludeEachOther)
{
    constexpr int threads = 4;
    constexpr int iterations = 5000;
    OVMutex mutex;
    int counter = 0;
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i)
    {
        all.emplace_back(
            [&]
            {
                for (int n = 0; n < iterations; ++n)
                {
                    const OVMutexManager guard(mutex, "OVMutex_contract.cpp", n);
                    ++counter;
                }
            });
    }
    for (std::thread& one : all)
    {
        one.join();
    }
    EXPECT_EQ(threads * iterations, counter);
}

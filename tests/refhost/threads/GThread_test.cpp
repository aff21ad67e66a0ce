#include "hostapi/threads/GThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "support/SafePointer.h"
#include "tests/ThreadCalls.h"

namespace
{

constexpr auto bound = std::chrono::seconds(10);

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool underSanitizer = true;
#else
constexpr bool underSanitizer = false;
#endif

/// Exits with 0 when start() reports that there is no memory for a thread's stack and succeeds later.
void startWithoutMemory()
{
    const SafePointer<GThread> thread(
        new GThread(ThreadCalls::nothing(), "starved", ThreadCalls::nothing(), ThreadCalls::nothing()));
    std::ifstream statm("/proc/self/statm");
    rlim_t pages = 0;
    statm >> pages;
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    const rlimit tight{pages * 4096 + (1 << 20), before.rlim_max};  // less than a stack needs
    setrlimit(RLIMIT_AS, &tight);
    const bool refused = thread->start() == 0 && !thread->IsRunning();
    setrlimit(RLIMIT_AS, &before);
    const bool worksAgain = thread->start() != 0 && thread->IsRunning();
    thread->stop();
    std::exit(refused && worksAgain ? 0 : 1);
}

}  // namespace

TEST(GThread, ThreadNameIsCutToTheSystemsLimit)
{
    std::promise<std::string> name;
    bool reported = false;
    const SafePointer<GThread> thread(
        new GThread(ThreadCalls::of(
                        [&]
                        {
                            char text[32] = {};
                            pthread_getname_np(pthread_self(), text, sizeof text);
                            if (!std::exchange(reported, true))
                            {
                                name.set_value(text);
                            }
                            return 0;
                        }),
                    "OVAudioBackDispatcherMgr", ThreadCalls::nothing(), ThreadCalls::nothing()));
    ASSERT_NE(0, thread->start());
    auto future = name.get_future();
    ASSERT_EQ(std::future_status::ready, future.wait_for(bound));
    EXPECT_EQ("OVAudioBackDisp", future.get());
    thread->stop();
}

TEST(GThread, StartReportsThatNoThreadCouldBeCreated)
{
    if (underSanitizer)
    {
        GTEST_SKIP() << "a sanitizer's shadow memory does not fit the limit";
    }
    GTEST_FLAG_SET(death_test_style,
                   "threadsafe");  // a process that has no stack of an ended thread to reuse
    EXPECT_EXIT(startWithoutMemory(), testing::ExitedWithCode(0), "");
}

TEST(GThread, LastHandleMayBeDroppedByTheBodyItself)
{
    std::promise<void> ended;
    std::promise<void> dropped;
    auto handle = std::make_shared<SafePointer<GThread>>();
    std::weak_ptr<SafePointer<GThread>> seen = handle;
    std::promise<void> mayDrop;
    *handle = SafePointer<GThread>(new GThread(ThreadCalls::of(
                                                   [&, own = handle]() mutable
                                                   {
                                                       mayDrop.get_future().wait();
                                                       own.reset();
                                                       dropped.set_value();
                                                       return 0;
                                                   }),
                                               "self-ended", ThreadCalls::nothing(),
                                               ThreadCalls::of(
                                                   [&]
                                                   {
                                                       ended.set_value();
                                                       return 0;
                                                   })));
    ASSERT_NE(0, (*handle)->start());
    handle.reset();
    mayDrop.set_value();
    EXPECT_EQ(std::future_status::ready, dropped.get_future().wait_for(bound));
    EXPECT_EQ(std::future_status::ready, ended.get_future().wait_for(bound));
    EXPECT_TRUE(seen.expired());
}

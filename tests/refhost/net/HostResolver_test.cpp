#include "refhost/net/HostResolver.h"

#include <gmock/gmock.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

/// A look-up that the test answers.
class HeldLookUps
{
public:
    ~HeldLookUps()
    {
        release();
    }

    HostResolver::LookUp lookUp()
    {
        return [state = state_](const std::string& host)
        {
            std::unique_lock<std::mutex> lock(state->mutex);
            state->hosts.push_back(host);
            state->changed.notify_all();
            state->changed.wait(lock, [&] { return state->released; });
            return HostResolver::Result{{*SocketAddress::parse("192.0.2.1")}, ""};
        };
    }

    /// Waits until so many are at work, and returns their names.
    std::vector<std::string> waitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(state_->mutex);
        EXPECT_TRUE(state_->changed.wait_for(lock, bound, [&] { return state_->hosts.size() >= count; }));
        return state_->hosts;
    }

    void release()
    {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->released = true;
        state_->changed.notify_all();
    }

private:
    struct State
    {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::string> hosts;
        bool released = false;
    };
    // The threads may outlive the test.
    const std::shared_ptr<State> state_ = std::make_shared<State>();
};

TEST(HostResolver, FindsAddressesOnTheLoop)
{
    EventLoop loop("test");
    HostResolver resolver;
    Signal found;
    std::unique_ptr<HostResolver::Query> query;
    runOn(loop,
          [&]
          {
              query = resolver.find(loop, "localhost",
                                    [&](const HostResolver::Result& result)
                                    {
                                        EXPECT_TRUE(loop.onLoopThread());
                                        EXPECT_FALSE(result.addresses.empty()) << result.error;
                                        query = nullptr;
                                        found.set();
                                    });
          });
    EXPECT_TRUE(found.wait());
}

TEST(HostResolver, SaysWhatTheSystemDoesNotFind)
{
    const HostResolver::Result result = HostResolver::systemLookUp("no such host.invalid");
    EXPECT_TRUE(result.addresses.empty());
    EXPECT_FALSE(result.error.empty());
}

TEST(HostResolver, LooksAHostUpOnceForAllWhoAsk)
{
    EventLoop loop("test");
    HeldLookUps held;
    HostResolver resolver(held.lookUp());
    std::vector<std::unique_ptr<HostResolver::Query>> queries;
    int answers = 0;
    Signal all;
    const auto ask = [&](const std::string& host)
    {
        queries.push_back(resolver.find(loop, host,
                                        [&](const HostResolver::Result& result)
                                        {
                                            EXPECT_EQ(result.addresses.size(), 1U);
                                            if (++answers == 4)
                                            {
                                                all.set();
                                            }
                                        }));
    };
    runOn(loop,
          [&]
          {
              ask("a");
              ask("a");
              ask("b");
          });
    held.waitFor(2);
    runOn(loop, [&] { ask("a"); });
    held.release();
    ASSERT_TRUE(all.wait());
    EXPECT_THAT(held.waitFor(2), testing::UnorderedElementsAre("a", "b"));
    runOn(loop, [&] { queries.clear(); });
}

TEST(HostResolver, AnAbandonedQueryIsNotAnsweredAndNotLookedUpWhereNoThreadIsAtIt)
{
    EventLoop loop("test");
    HeldLookUps held;
    HostResolver resolver(held.lookUp());
    std::vector<std::unique_ptr<HostResolver::Query>> queries;
    bool answered = false;
    Signal last;
    const auto ask = [&](const std::string& host)
    { queries.push_back(resolver.find(loop, host, [&](const HostResolver::Result&) { answered = true; })); };
    std::vector<std::string> busy;
    runOn(loop,
          [&]
          {
              for (std::size_t i = 0; i < HostResolver::maxThreads; ++i)
              {
                  ask("busy" + std::to_string(i));
              }
          });
    held.waitFor(HostResolver::maxThreads);
    std::unique_ptr<HostResolver::Query> kept;
    runOn(loop,
          [&]
          {
              ask("waiting");
              queries.clear();
              kept = resolver.find(loop, "kept", [&](const HostResolver::Result&) { last.set(); });
          });
    held.release();
    ASSERT_TRUE(last.wait());
    runOn(loop,
          [&]
          {
              EXPECT_FALSE(answered);
              kept = nullptr;
          });
    EXPECT_THAT(held.waitFor(5), testing::Not(testing::Contains("waiting")));
}

TEST(HostResolver, QueriesBeyondTheBoundAreRefused)
{
    EventLoop loop("test");
    HeldLookUps held;
    HostResolver resolver(held.lookUp());
    std::vector<std::unique_ptr<HostResolver::Query>> queries;
    Signal refused;
    runOn(loop,
          [&]
          {
              for (std::size_t i = 0; i < HostResolver::maxQueries; ++i)
              {
                  queries.push_back(resolver.find(loop, "a", [](const HostResolver::Result&) {}));
              }
              queries.push_back(resolver.find(loop, "a",
                                              [&](const HostResolver::Result& result)
                                              {
                                                  EXPECT_FALSE(result.error.empty());
                                                  refused.set();
                                              }));
          });
    EXPECT_TRUE(refused.wait());
    Signal again;
    runOn(loop,
          [&]
          {
              queries.clear();
              queries.push_back(resolver.find(loop, "a", [&](const HostResolver::Result&) { again.set(); }));
          });
    held.release();
    EXPECT_TRUE(again.wait());
    runOn(loop, [&] { queries.clear(); });
}

TEST(HostResolver, ItsEndDoesNotWaitForALookUpThatHangs)
{
    EventLoop loop("test");
    HeldLookUps held;
    const auto start = std::chrono::steady_clock::now();
    {
        HostResolver resolver(held.lookUp());
        std::unique_ptr<HostResolver::Query> query;
        runOn(loop, [&] { query = resolver.find(loop, "a", [](const HostResolver::Result&) {}); });
        held.waitFor(1);
        runOn(loop, [&] { query = nullptr; });
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, bound);
}

}  // namespace
}  // namespace refhost

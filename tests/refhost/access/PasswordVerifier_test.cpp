#include "refhost/access/PasswordVerifier.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "refhost/access/SlowHash.h"
#include "tests/refhost/rtsp/connection/SteppedClock.h"

namespace refhost
{
namespace
{

using Result = PasswordVerifier::Result;

constexpr SocketAddress::Key here{1};
constexpr SocketAddress::Key elsewhere{2};

class PasswordVerifierTest : public testing::Test
{
protected:
    PasswordVerifier::Attempt attempt(const std::string& password, const std::string& user = "a") const
    {
        return {user, password, hash_};
    }

    /// Asks until there is a result, which takes a bounded number of checks.
    Result resultOf(const PasswordVerifier::Attempt& attempt)
    {
        for (int i = 0; i < 100; ++i)
        {
            const std::size_t before = finished();
            const Result result = verifier_.check(attempt, here);
            if (result != Result::pending)
            {
                return result;
            }
            EXPECT_TRUE(waitFor(before + 1));
        }
        return Result::pending;
    }

    std::size_t finished()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return finished_;
    }

    bool waitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return finished_ >= count; });
    }

    const std::string hash_ = SlowHash::make("secret");
    SteppedClock time_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t finished_ = 0;
    PasswordVerifier verifier_{time_, [this]
                               {
                                   const std::lock_guard<std::mutex> guard(mutex_);
                                   ++finished_;
                                   changed_.notify_all();
                               }};
};

TEST_F(PasswordVerifierTest, TheFirstAnswerIsNotThereAtOnce)
{
    EXPECT_EQ(verifier_.check(attempt("secret"), here), Result::pending);
    ASSERT_TRUE(waitFor(1));
    EXPECT_EQ(verifier_.check(attempt("secret"), here), Result::right);
    EXPECT_EQ(resultOf(attempt("wrong")), Result::wrong);
}

TEST_F(PasswordVerifierTest, ARightPasswordIsRememberedForItsLifetime)
{
    EXPECT_EQ(resultOf(attempt("secret")), Result::right);
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EQ(verifier_.check(attempt("secret"), elsewhere), Result::right);
    }
    EXPECT_EQ(finished(), 1U);
    time_.advance(PasswordVerifier::lifetime);
    EXPECT_EQ(verifier_.check(attempt("secret"), here), Result::pending);
}

TEST_F(PasswordVerifierTest, AWrongOneIsAnsweredOnceAndThenCheckedAgain)
{
    EXPECT_EQ(resultOf(attempt("wrong")), Result::wrong);
    EXPECT_EQ(verifier_.size(), 0U);
    EXPECT_EQ(verifier_.check(attempt("wrong"), here), Result::pending);
}

TEST_F(PasswordVerifierTest, WhatIsRememberedIsOfOneUserPasswordAndHash)
{
    EXPECT_EQ(resultOf(attempt("secret")), Result::right);
    EXPECT_EQ(verifier_.check(attempt("secret", "b"), here), Result::pending);
    EXPECT_EQ(resultOf({"a", "secret", SlowHash::make("other")}), Result::wrong);
}

TEST_F(PasswordVerifierTest, AKnownResultOnlyTakesTheTime)
{
    EXPECT_EQ(resultOf({"a", "secret", hash_, false}), Result::wrong);
    EXPECT_EQ(resultOf({"a", "anything", hash_, true}), Result::right);
}

TEST_F(PasswordVerifierTest, TheSameAttemptOfManyIsCheckedOnce)
{
    for (int i = 0; i < 200; ++i)
    {
        EXPECT_NE(verifier_.check(attempt("secret"), here), Result::busy);
    }
    ASSERT_TRUE(waitFor(1));
    EXPECT_EQ(verifier_.check(attempt("secret"), here), Result::right);
    EXPECT_EQ(finished(), 1U);
}

TEST_F(PasswordVerifierTest, FewAttemptsOfAnAddressAndNotManyInAllWait)
{
    const auto flood = [this](const SocketAddress::Key& address, int count)
    {
        int busy = 0;
        for (int i = 0; i < count; ++i)
        {
            busy += verifier_.check(attempt(std::to_string(address[0]) + "-" + std::to_string(i)), address) ==
                    Result::busy;
        }
        return busy;
    };
    EXPECT_GT(flood(here, 100), 0);
    EXPECT_LE(verifier_.size(), PasswordVerifier::maxWaitingPerAddress + 100);
    EXPECT_EQ(verifier_.check(attempt("other"), elsewhere), Result::pending) << "others still get their turn";
    int busy = 0;
    for (std::uint8_t address = 10; address < 30; ++address)
    {
        busy += flood({address}, 8);
    }
    EXPECT_GT(busy, 0) << "20 times 8 are more than may wait";
}

}  // namespace
}  // namespace refhost

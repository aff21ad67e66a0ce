#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeHost.h"

/// Tries an operation with each of its host calls failing in turn: in the first attempt the first call fails,
/// in the next the second, and so on until none is left to fail.
class FailingCalls
{
public:
    /// What an operation did.
    struct Attempt
    {
        /// The call that failed, and its code; no two calls have the same.
        int nth;
        int code;
        int result;
        std::string printed;
    };

    /// `count` calls are to fail; those before the `first` do not.
    explicit FailingCalls(int count, int first = 1) : count_(count), first_(first) {}

    /// What is done before each attempt, with no call failing.
    FailingCalls& before(std::function<void()> prepare)
    {
        prepare_ = std::move(prepare);
        return *this;
    }

    /// Runs `operation` and has `judge` look at every attempt in which a call failed; the log holds the calls
    /// of that attempt then. Expects that `count` calls failed, and that the operation is successful when
    /// none does. \returns the last attempt, in which none failed
    Attempt during(const std::function<int()>& operation,
                   const std::function<void(const Attempt&)>& judge) const
    {
        FakeHost& host = FakeHost::instance();
        for (int nth = first_;; ++nth)
        {
            prepare_();
            host.clearCalls();
            Attempt attempt{nth, -500 - nth, 0, ""};
            host.failNthCall(nth, attempt.code);
            CapturedOutput output;
            attempt.result = operation();
            attempt.printed = output.text();
            const bool failed = host.failureStruck();
            host.failNthCall(0, 0);
            if (!failed || nth >= first_ + count_)
            {
                EXPECT_EQ(first_ + count_, nth) << "so many calls can fail";
                EXPECT_EQ(0, attempt.result);
                return attempt;
            }
            SCOPED_TRACE("call " + std::to_string(nth) + " fails");
            judge(attempt);
        }
    }

    /// The same for the set-up of a track that prints nothing: it ends with the code of the failed call,
    /// calls nothing afterwards, and no one but the dispatcher of the good set-up at the end holds a
    /// connection.
    void duringSetup(const std::function<int()>& setup) const
    {
        FakeHost& host = FakeHost::instance();
        during(setup,
               [&host](const Attempt& attempt)
               {
                   EXPECT_EQ(attempt.code, attempt.result);
                   EXPECT_EQ("", attempt.printed);
                   EXPECT_EQ(static_cast<std::size_t>(attempt.nth), host.calls().size())
                       << "nothing is called afterwards";
                   EXPECT_EQ(0, host.living("IConnection"));
               });
        EXPECT_EQ(1, host.living("IConnection"));
    }

private:
    int count_;
    int first_;
    std::function<void()> prepare_ = [] {};
};

#include "refhost/EndDeadline.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "refhost/CommandLine.h"

namespace refhost
{
namespace
{

[[noreturn]] void hang()
{
    for (;;)
    {
        ::pause();
    }
}

TEST(EndDeadline, EndsAHangingProcess)
{
    const auto endSlowly = []
    {
        const EndDeadline deadline(std::chrono::milliseconds(50));
        hang();
    };
    EXPECT_EXIT(endSlowly(), testing::ExitedWithCode(exitFailed), "something hangs");
}

TEST(EndDeadline, WorksWhenItsSignalWasBlocked)
{
    const auto endSlowly = []
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        const EndDeadline deadline(std::chrono::milliseconds(50));
        hang();
    };
    EXPECT_EXIT(endSlowly(), testing::ExitedWithCode(exitFailed), "something hangs");
}

TEST(EndDeadline, DoesNotAffectAProcessThatEndsInTime)
{
    const auto endInTime = []
    {
        {
            const EndDeadline deadline(std::chrono::milliseconds(50));
        }
        ::usleep(200'000);
        ::_exit(0);
    };
    EXPECT_EXIT(endInTime(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace refhost

#include "refhost/base/HostClock.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace refhost
{
namespace
{

TEST(HostClock, SystemClockIsReadableUntilTheEndOfTheProcess)
{
    const auto readLast = []
    {
        // Registered first, so that it runs last, after static objects created later were destroyed.
        std::atexit([] { std::_Exit(HostClock::system().now() > MonotonicTime() ? 7 : 8); });
        HostClock::system().now();
        std::exit(0);
    };
    EXPECT_EXIT(readLast(), testing::ExitedWithCode(7), "^$");
}

TEST(HostClock, MonotonicClockDoesNotGoBack)
{
    const MonotonicTime before = HostClock::system().now();
    EXPECT_LE(before, HostClock::system().now());
}

}  // namespace
}  // namespace refhost

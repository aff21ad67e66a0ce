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
        std::atexit([] { std::_Exit(HostClock::system().monotonicMs() > 0 ? 7 : 8); });
        HostClock::system().monotonicMs();
        std::exit(0);
    };
    EXPECT_EXIT(readLast(), testing::ExitedWithCode(7), "^$");
}

TEST(HostClock, MonotonicClockAgreesInMillisecondsAndNanoseconds)
{
    const HostClock& clock = HostClock::system();
    const std::int64_t before = clock.monotonicMs();
    const std::int64_t ns = clock.monotonicNs();
    EXPECT_LE(before, ns / 1'000'000);
    EXPECT_LE(ns / 1'000'000, clock.monotonicMs());
}

}  // namespace
}  // namespace refhost

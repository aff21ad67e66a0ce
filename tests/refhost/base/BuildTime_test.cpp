#include "refhost/base/BuildTime.h"

#include <gtest/gtest.h>

#include "refhost/base/HostClock.h"

namespace refhost
{

TEST(BuildTime, IsBetween2024AndNow)
{
    EXPECT_LE(BuildTime::date(), HostClock::system().wallNow());
    constexpr WallTime newYear2024 = wallTimeOfUnix(1'704'067'200);
    EXPECT_GT(BuildTime::date(), newYear2024);
}

}  // namespace refhost

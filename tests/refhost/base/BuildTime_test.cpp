#include "refhost/base/BuildTime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace refhost
{

TEST(BuildTime, IsATimeOfThisCenturyThatIsOver)
{
    const std::chrono::nanoseconds now = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_LE(BuildTime::ns(), now.count());
    constexpr std::int64_t newYear2024Ns = 1'704'067'200'000'000'000;
    EXPECT_GT(BuildTime::ns(), newYear2024Ns);
}

}  // namespace refhost

#include "refhost/base/LogLimiter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace refhost
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

class LogLimiterTest : public testing::Test
{
protected:
    bool admit(std::string_view kind, Log::Level level = Log::Level::info)
    {
        return limiter.admit(level, kind, now);
    }

    LogLimiter::Clock::time_point now{std::chrono::hours(1)};
    std::vector<std::string> written;
    std::vector<Log::Level> levels;
    LogLimiter limiter{[this](Log::Level level, std::string_view message)
                       {
                           levels.push_back(level);
                           written.emplace_back(message);
                       }};
};

TEST_F(LogLimiterTest, AdmitsOneMessageOfAKindInTenSeconds)
{
    EXPECT_TRUE(admit("refused"));
    EXPECT_FALSE(admit("refused"));
    EXPECT_TRUE(admit("unknown"));
    now += std::chrono::milliseconds(9999);
    EXPECT_FALSE(admit("refused"));
    now += std::chrono::milliseconds(1);
    EXPECT_TRUE(admit("refused"));
}

TEST_F(LogLimiterTest, ReportsSuppressedMessagesBeforeTheNextOfTheirKind)
{
    for (int i = 0; i < 8; ++i)
    {
        admit("refused");
    }
    now += LogLimiter::interval;
    EXPECT_TRUE(admit("refused"));
    EXPECT_THAT(written, ElementsAre("refused: 7 more within 10 s"));
}

TEST_F(LogLimiterTest, ReportsACountOnceAfterTheInterval)
{
    admit("refused");
    admit("refused");
    admit("refused", Log::Level::warning);
    limiter.report(now);
    EXPECT_THAT(written, IsEmpty());
    now += LogLimiter::interval;
    limiter.report(now);
    limiter.report(now + LogLimiter::interval);
    EXPECT_THAT(written, ElementsAre("refused: 2 more within 10 s"));
    EXPECT_THAT(levels, ElementsAre(Log::Level::warning));
    EXPECT_FALSE(admit("refused")) << "an event that goes on is reported once in an interval";
}

TEST_F(LogLimiterTest, KindsBeyondTheLimitShareOne)
{
    for (std::size_t i = 0; i < LogLimiter::maxKinds - 1; ++i)
    {
        EXPECT_TRUE(admit("kind " + std::to_string(i)));
    }
    EXPECT_TRUE(admit("one more"));
    EXPECT_FALSE(admit("another one"));
    now += LogLimiter::interval;
    limiter.report(now);
    EXPECT_THAT(written, ElementsAre("other messages: 1 more within 10 s"));
}

}  // namespace
}  // namespace refhost

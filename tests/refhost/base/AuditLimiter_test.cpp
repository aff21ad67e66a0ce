#include "refhost/base/AuditLimiter.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

using std::chrono::seconds;

SocketAddress::Key addressOf(int number)
{
    return SocketAddress::parse("10.0." + std::to_string(number / 256) + "." + std::to_string(number % 256))
        ->key();
}

class AuditLimiterTest : public testing::Test
{
protected:
    int admitted(std::string_view event, const SocketAddress::Key& address, int times)
    {
        int count = 0;
        for (int i = 0; i < times; ++i)
        {
            count += limiter_.admit(event, address, now_) ? 1 : 0;
        }
        return count;
    }

    AuditLimiter::Clock::time_point now_{};
    AuditLimiter limiter_{3, seconds(2), 10};
};

TEST_F(AuditLimiterTest, EachEventOfEachAddressHasItsOwnLines)
{
    EXPECT_EQ(admitted("a", addressOf(1), 5), 3);
    EXPECT_EQ(admitted("b", addressOf(1), 5), 3);
    EXPECT_EQ(admitted("a", addressOf(2), 5), 3);
}

TEST_F(AuditLimiterTest, AnIpv6NetworkIsOneAddress)
{
    EXPECT_EQ(admitted("a", SocketAddress::parse("2001:db8::1")->key(), 2), 2);
    EXPECT_EQ(admitted("a", SocketAddress::parse("2001:db8::2")->key(), 5), 1);
    EXPECT_EQ(admitted("a", SocketAddress::parse("2001:db8:0:1::1")->key(), 5), 3);
}

TEST_F(AuditLimiterTest, ALineComesBackInEachInterval)
{
    EXPECT_EQ(admitted("a", addressOf(1), 5), 3);
    now_ += seconds(1);
    EXPECT_EQ(admitted("a", addressOf(1), 5), 0);
    now_ += seconds(3);
    EXPECT_EQ(admitted("a", addressOf(1), 5), 2);
    now_ += seconds(1000);
    EXPECT_EQ(admitted("a", addressOf(1), 5), 3);
}

TEST_F(AuditLimiterTest, SuppressedLinesAreCountedForEachEventOnce)
{
    admitted("a", addressOf(1), 5);
    admitted("a", addressOf(2), 4);
    admitted("b", addressOf(2), 3);
    const auto taken = limiter_.take(now_);
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].event, "a");
    EXPECT_EQ(taken[0].lines, 3u);
    EXPECT_TRUE(limiter_.take(now_).empty());
}

TEST_F(AuditLimiterTest, AddressesAreBoundedAndFurtherOnesShareTheLinesOfOne)
{
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_EQ(admitted("a", addressOf(i), 1), 1);
    }
    int further = 0;
    for (int i = 10; i < 500; ++i)
    {
        further += admitted("a", addressOf(i), 1);
    }
    EXPECT_EQ(further, 3);
    EXPECT_EQ(limiter_.buckets(), 10u);
}

TEST_F(AuditLimiterTest, AddressesWithAllTheirLinesAreForgotten)
{
    admitted("a", addressOf(1), 1);
    admitted("a", addressOf(2), 3);
    now_ += seconds(2);
    limiter_.take(now_);
    EXPECT_EQ(limiter_.buckets(), 1u);
}

}  // namespace
}  // namespace refhost

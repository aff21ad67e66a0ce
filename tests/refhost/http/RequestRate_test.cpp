#include "refhost/http/RequestRate.h"

#include <gtest/gtest.h>

#include <chrono>

namespace refhost
{
namespace
{

constexpr MonotonicTime start{std::chrono::hours(1)};

SocketAddress::Key address(unsigned number)
{
    return SocketAddress::parse("10.0." + std::to_string(number / 256) + "." + std::to_string(number % 256))
        ->key();
}

TEST(RequestRate, AdmitsTwiceAsManyAtOnceAndThenTheRate)
{
    RequestRate rate(5);
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_TRUE(rate.admit(address(1), start)) << i;
    }
    EXPECT_FALSE(rate.admit(address(1), start));
    EXPECT_TRUE(rate.admit(address(2), start));
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_TRUE(rate.admit(address(1), start + std::chrono::seconds(1))) << i;
    }
    EXPECT_FALSE(rate.admit(address(1), start + std::chrono::seconds(1)));
}

TEST(RequestRate, HoldsABoundedNumberOfAddresses)
{
    RequestRate rate(1);
    for (unsigned i = 0; i < RequestRate::maxAddresses; ++i)
    {
        EXPECT_TRUE(rate.admit(address(i), start));
    }
    EXPECT_EQ(rate.addresses(), RequestRate::maxAddresses);
    // The others share one allowance.
    EXPECT_TRUE(rate.admit(address(5000), start));
    EXPECT_TRUE(rate.admit(address(5001), start));
    EXPECT_FALSE(rate.admit(address(5002), start));
    EXPECT_EQ(rate.addresses(), RequestRate::maxAddresses);
    EXPECT_TRUE(rate.admit(address(5002), start + std::chrono::minutes(1)));
    EXPECT_EQ(rate.addresses(), 1U);
}

TEST(RequestRate, CountsANetworkOfIpv6AsOneAddress)
{
    RequestRate rate(1);
    EXPECT_TRUE(rate.admit(SocketAddress::parse("2001:db8::1")->key(), start));
    EXPECT_TRUE(rate.admit(SocketAddress::parse("2001:db8::2")->key(), start));
    EXPECT_FALSE(rate.admit(SocketAddress::parse("2001:db8::3")->key(), start));
}

}  // namespace
}  // namespace refhost

#include "refhost/rtsp/session/AddressLimiter.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

constexpr SocketAddress::Key here{1};
constexpr SocketAddress::Key there{2};

TEST(AddressLimiter, CountsAnIpv6NetworkAsOneAddress)
{
    AddressLimiter quota(10, 1);
    const SocketAddress::Key neighbour{1, 0, 0, 0, 0, 0, 0, 0, 9};
    EXPECT_TRUE(quota.take(here));
    EXPECT_FALSE(quota.take(neighbour));
    quota.giveBack(neighbour);
    EXPECT_EQ(quota.count(), 0u);
}

TEST(AddressLimiter, RefusesMoreThanTheLimitInAll)
{
    AddressLimiter quota(2, 2);
    EXPECT_TRUE(quota.take(here));
    EXPECT_TRUE(quota.take(there));
    EXPECT_FALSE(quota.take(there));
    EXPECT_EQ(quota.count(), 2u);
    quota.giveBack(here);
    EXPECT_TRUE(quota.take(there));
}

TEST(AddressLimiter, RefusesMoreThanTheLimitOfOneAddressOnly)
{
    AddressLimiter quota(10, 1);
    EXPECT_TRUE(quota.take(here));
    EXPECT_FALSE(quota.take(here));
    EXPECT_TRUE(quota.take(there));
    quota.giveBack(here);
    EXPECT_TRUE(quota.take(here));
}

TEST(AddressLimiter, GivingBackWhatWasNotTakenChangesNothing)
{
    AddressLimiter quota(1, 1);
    quota.giveBack(here);
    EXPECT_EQ(quota.count(), 0u);
    EXPECT_TRUE(quota.take(here));
}

}  // namespace
}  // namespace refhost

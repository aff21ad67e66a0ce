#include "refhost/rtp/multicast/MulticastGroup.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

TEST(MulticastGroup, IsReadFromAddressAndEvenPort)
{
    const auto group = MulticastGroup::parse("239.1.2.3:5004");
    ASSERT_TRUE(group);
    EXPECT_EQ("239.1.2.3", group->addressText());
    EXPECT_EQ(5004, group->portOf(0));
    EXPECT_EQ(5006, group->portOf(1));
}

TEST(MulticastGroup, WhatIsNoGroupIsNotRead)
{
    for (const char* text :
         {"", "239.1.2.3", "239.1.2.3:", ":5004", "239.1.2.3:5005", "239.1.2.3:0", "239.1.2.3:80",
          "239.1.2.3:65534", "239.1.2.3:5004x", "239.1.2.3: 5004", "192.0.2.1:5004", "224.0.0.1:5004",
          "239.1.2:5004", "ff02::1:5004", "239.1.2.3:5004:1"})
    {
        EXPECT_FALSE(MulticastGroup::parse(text)) << text;
    }
}

TEST(MulticastGroup, OverlapsWhereAddressAndSomePortAreTheSame)
{
    const MulticastGroup group = *MulticastGroup::parse("239.1.2.3:5004");
    EXPECT_TRUE(group.overlaps(group));
    EXPECT_TRUE(group.overlaps(*MulticastGroup::parse("239.1.2.3:5006")));
    EXPECT_TRUE(group.overlaps(*MulticastGroup::parse("239.1.2.3:5002")));
    EXPECT_FALSE(group.overlaps(*MulticastGroup::parse("239.1.2.3:5008")));
    EXPECT_FALSE(group.overlaps(*MulticastGroup::parse("239.1.2.4:5004")));
}

TEST(MulticastRange, IsReadFromAddressAndLength)
{
    const auto range = MulticastRange::parse("239.255.42.9/24");
    ASSERT_TRUE(range);
    EXPECT_EQ(0xefff2a00U, range->first);
    EXPECT_EQ(256U, range->count);
    EXPECT_EQ(1U, MulticastRange::parse("239.255.42.9")->count);
    EXPECT_EQ(1U, MulticastRange::parse("239.255.42.9/32")->count);
    EXPECT_EQ(1U << 24U, MulticastRange::parse("239.0.0.0/8")->count);
}

TEST(MulticastRange, WhatIsNotMulticastWholeIsNotRead)
{
    for (const char* text :
         {"", "/24", "192.0.2.0/24", "224.0.0.0/3", "239.0.0.0/33", "239.0.0.0/", "239.0.0.0/-1", "239.0.0/8",
          "224.0.0.0/4", "224.0.0.0/23", "224.0.0.9", "239.0.0.0/8x", "ff02::/16"})
    {
        EXPECT_FALSE(MulticastRange::parse(text)) << text;
    }
}

}  // namespace
}  // namespace refhost

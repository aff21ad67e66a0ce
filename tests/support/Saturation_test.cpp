#include "support/Saturation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

TEST(Saturation, DropsFractions)
{
    EXPECT_EQ(0u, Saturation::toUnsigned32(0.0));
    EXPECT_EQ(0u, Saturation::toUnsigned32(0.999999));
    EXPECT_EQ(1u, Saturation::toUnsigned32(1.0));
    EXPECT_EQ(100u, Saturation::toUnsigned32(100.9));
    EXPECT_EQ(4294967294u, Saturation::toUnsigned32(std::nextafter(4294967295.0, 0.0)));
}

TEST(Saturation, NegativeValuesBecomeZero)
{
    EXPECT_EQ(0u, Saturation::toUnsigned32(-0.0));
    EXPECT_EQ(0u, Saturation::toUnsigned32(-0.5));
    EXPECT_EQ(0u, Saturation::toUnsigned32(-5.0));
    EXPECT_EQ(0u, Saturation::toUnsigned32(-1e300));
    EXPECT_EQ(0u, Saturation::toUnsigned32(-std::numeric_limits<double>::infinity()));
}

TEST(Saturation, ValuesAboveTheRangeBecomeItsEnd)
{
    EXPECT_EQ(4294967295u, Saturation::toUnsigned32(4294967295.0));
    EXPECT_EQ(4294967295u, Saturation::toUnsigned32(4294967295.5));
    EXPECT_EQ(4294967295u, Saturation::toUnsigned32(4294967296.0));
    EXPECT_EQ(4294967295u, Saturation::toUnsigned32(1e300));
    EXPECT_EQ(4294967295u, Saturation::toUnsigned32(std::numeric_limits<double>::infinity()));
}

TEST(Saturation, WhatIsNoNumberBecomesZero)
{
    EXPECT_EQ(0u, Saturation::toUnsigned32(std::numeric_limits<double>::quiet_NaN()));
}

#include "support/Saturation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

// In constant expressions the compiler rejects undefined conversions, which a machine might happen to do well.
static_assert(Saturation::toUnsigned32(std::numeric_limits<double>::quiet_NaN()) == 0, "no number");
static_assert(Saturation::toUnsigned32(std::numeric_limits<double>::infinity()) == 4294967295u, "above");
static_assert(Saturation::toUnsigned32(-std::numeric_limits<double>::infinity()) == 0, "below");
static_assert(Saturation::toUnsigned32(4294967296.0) == 4294967295u, "first above");
static_assert(Saturation::toUnsigned32(-1.0) == 0, "last below");
static_assert(Saturation::toSigned32(std::numeric_limits<double>::quiet_NaN()) == 0, "no number");
static_assert(Saturation::toSigned32(std::numeric_limits<double>::infinity()) == 2147483647, "above");
static_assert(Saturation::toSigned32(-std::numeric_limits<double>::infinity()) == -2147483647 - 1, "below");
static_assert(Saturation::toSigned32(2147483648.0) == 2147483647, "first above");
static_assert(Saturation::toSigned32(-2147483649.0) == -2147483647 - 1, "first below");

// The same at run time: the compiler must not know the value.
std::uint32_t converted(double value)
{
    volatile double hidden = value;
    return Saturation::toUnsigned32(hidden);
}

std::int32_t signedOf(double value)
{
    volatile double hidden = value;
    return Saturation::toSigned32(hidden);
}

}  // namespace

TEST(Saturation, DropsFractions)
{
    EXPECT_EQ(0u, converted(0.0));
    EXPECT_EQ(0u, converted(0.999999));
    EXPECT_EQ(1u, converted(1.0));
    EXPECT_EQ(100u, converted(100.9));
    EXPECT_EQ(4294967294u, converted(std::nextafter(4294967295.0, 0.0)));
}

TEST(Saturation, NegativeValuesBecomeZero)
{
    EXPECT_EQ(0u, converted(-0.0));
    EXPECT_EQ(0u, converted(-0.5));
    EXPECT_EQ(0u, converted(-5.0));
    EXPECT_EQ(0u, converted(-1e300));
    EXPECT_EQ(0u, converted(-infinity));
}

TEST(Saturation, ValuesAboveTheRangeBecomeItsEnd)
{
    EXPECT_EQ(4294967295u, converted(4294967295.0));
    EXPECT_EQ(4294967295u, converted(4294967295.5));
    EXPECT_EQ(4294967295u, converted(4294967296.0));
    EXPECT_EQ(4294967295u, converted(1e300));
    EXPECT_EQ(4294967295u, converted(infinity));
}

TEST(Saturation, NanBecomesZero)
{
    EXPECT_EQ(0u, converted(notANumber));
}

TEST(Saturation, SignedNumbersLoseTheirFractionTowardsZero)
{
    EXPECT_EQ(0, signedOf(0.0));
    EXPECT_EQ(0, signedOf(0.999999));
    EXPECT_EQ(0, signedOf(-0.999999));
    EXPECT_EQ(3600, signedOf(3600.9));
    EXPECT_EQ(-3600, signedOf(-3600.9));
    EXPECT_EQ(2147483646, signedOf(std::nextafter(2147483647.0, 0.0)));
    EXPECT_EQ(-2147483647, signedOf(std::nextafter(-2147483648.0, 0.0)));
}

TEST(Saturation, SignedNumbersOutsideOfTheRangeBecomeItsNearerEnd)
{
    const std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
    EXPECT_EQ(2147483647, signedOf(2147483647.0));
    EXPECT_EQ(2147483647, signedOf(2147483647.5));
    EXPECT_EQ(2147483647, signedOf(1e300));
    EXPECT_EQ(2147483647, signedOf(infinity));
    EXPECT_EQ(lowest, signedOf(-2147483648.0));
    EXPECT_EQ(lowest, signedOf(-2147483648.5));
    EXPECT_EQ(lowest, signedOf(-1e300));
    EXPECT_EQ(lowest, signedOf(-infinity));
    EXPECT_EQ(0, signedOf(notANumber));
}

#include "refhost/playback/PlaySpeed.h"

#include <gtest/gtest.h>

#include <limits>

namespace refhost
{
namespace
{

TEST(PlaySpeed, SupportedValuesAreKept)
{
    const PlaySpeed used = PlaySpeed::used(2, 4);
    EXPECT_EQ(used.scale, 2);
    EXPECT_EQ(used.speed, 4);
}

TEST(PlaySpeed, OutOfRangeValuesAreClamped)
{
    EXPECT_EQ(PlaySpeed::used(0.1, 0.01).scale, 0.25);
    EXPECT_EQ(PlaySpeed::used(0.1, 0.01).speed, 0.25);
    EXPECT_EQ(PlaySpeed::used(64, 1).scale, 32);
    EXPECT_EQ(PlaySpeed::used(1, std::numeric_limits<double>::infinity()).speed, 32);
}

TEST(PlaySpeed, InvalidSpeedCountsAsOne)
{
    for (const double none : {0.0, std::numeric_limits<double>::quiet_NaN()})
    {
        EXPECT_EQ(PlaySpeed::used(none, none), PlaySpeed());
    }
    EXPECT_EQ(PlaySpeed::used(1, -1), PlaySpeed());
}

TEST(PlaySpeed, ReversePlaySendsKeyFramesWithoutAudio)
{
    EXPECT_EQ(PlaySpeed::used(-2, 1).scale, -2);
    EXPECT_EQ(PlaySpeed::used(-2, 1).rate(), 2);
    EXPECT_EQ(PlaySpeed::used(-64, 1).scale, -32);
    EXPECT_EQ(PlaySpeed::used(-0.1, 1).scale, -0.25);
    EXPECT_EQ(PlaySpeed::used(-16, 16).speed, 2);
    EXPECT_TRUE(PlaySpeed::used(-1, 1).backwards());
    EXPECT_TRUE(PlaySpeed::used(-1, 1).keyFramesOnly());
    EXPECT_FALSE(PlaySpeed::used(-1, 1).withAudio());
    EXPECT_FALSE(PlaySpeed::used(1, 1).backwards());
}

TEST(PlaySpeed, DeliveryNeverExceedsTheMaximum)
{
    EXPECT_EQ(PlaySpeed::used(16, 16).scale, 16);
    EXPECT_EQ(PlaySpeed::used(16, 16).speed, 2);
}

TEST(PlaySpeed, OnlyKeyFramesAboveFour)
{
    EXPECT_FALSE(PlaySpeed::used(4, 1).keyFramesOnly());
    EXPECT_TRUE(PlaySpeed::used(4.1, 1).keyFramesOnly());
}

TEST(PlaySpeed, AudioFromOneToTwo)
{
    EXPECT_FALSE(PlaySpeed::used(0.5, 1).withAudio());
    EXPECT_TRUE(PlaySpeed::used(1, 8).withAudio());
    EXPECT_TRUE(PlaySpeed::used(2, 1).withAudio());
    EXPECT_FALSE(PlaySpeed::used(2.5, 1).withAudio());
}

}  // namespace
}  // namespace refhost

#include "bench/load/SilenceWatch.h"

#include <gtest/gtest.h>

namespace rtspload
{
namespace
{

TEST(SilenceWatch, TheLongestGapBetweenPacketsCounts)
{
    SilenceWatch watch;
    watch.restart(1000);
    watch.onPacket(1040);
    watch.onPacket(1110);
    watch.onPacket(1150);
    EXPECT_EQ(watch.longest(1150), 70);
}

TEST(SilenceWatch, ASilenceThatLastsCounts)
{
    SilenceWatch watch;
    watch.restart(1000);
    watch.onPacket(1040);
    EXPECT_EQ(watch.longest(1500), 460);
}

TEST(SilenceWatch, AViewerWithoutAnyPacketIsSilentFromTheStart)
{
    SilenceWatch watch;
    watch.restart(1000);
    EXPECT_EQ(watch.longest(1800), 800);
}

TEST(SilenceWatch, WhatWasBeforeTheRestartIsForgotten)
{
    SilenceWatch watch;
    watch.restart(0);
    watch.onPacket(900);
    watch.restart(1000);
    watch.onPacket(1040);
    EXPECT_EQ(watch.longest(1050), 40);
}

}  // namespace
}  // namespace rtspload

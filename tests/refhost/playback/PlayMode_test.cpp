#include "refhost/playback/PlayMode.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

TEST(PlayMode, DefaultIsPacedWithAllFramesAndWithoutExtension)
{
    const PlayMode mode;
    EXPECT_TRUE(mode.paced());
    EXPECT_FALSE(mode.replay());
    EXPECT_FALSE(mode.keyFramesOnly());
    EXPECT_EQ(mode.keyDistance(), Duration::zero());
}

TEST(PlayMode, DecodesTheBitsOfTheRangeKind)
{
    PlayMode mode;
    mode.kind = playRangeReplay | playRangeUnpaced | playRangeKeyFrames | 0xab << playRangeSequenceShift |
                150 << playRangeDistanceShift;
    EXPECT_TRUE(mode.replay());
    EXPECT_FALSE(mode.paced());
    EXPECT_TRUE(mode.keyFramesOnly());
    EXPECT_EQ(mode.sequence(), 0xab);
    EXPECT_EQ(mode.keyDistance(), std::chrono::milliseconds(1500));
}

TEST(PlayMode, DistanceAppliesOnlyToKeyFramePlay)
{
    PlayMode mode;
    mode.kind = 150 << playRangeDistanceShift;
    mode.speed = PlaySpeed::used(8, 1);
    EXPECT_TRUE(mode.keyFramesOnly()) << "by its scale";
    EXPECT_EQ(mode.keyDistance(), Duration::zero());
}

}  // namespace
}  // namespace refhost

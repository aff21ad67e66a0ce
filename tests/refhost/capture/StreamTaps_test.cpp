#include "refhost/capture/StreamTaps.h"

#include <gtest/gtest.h>

#include "tests/refhost/capture/CollectingSink.h"

namespace refhost
{
namespace
{

class StreamTapsTest : public testing::Test
{
protected:
    StreamTaps taps;
    const std::shared_ptr<CollectingSink> first = std::make_shared<CollectingSink>();
    const std::shared_ptr<CollectingSink> second = std::make_shared<CollectingSink>();
};

TEST_F(StreamTapsTest, TapIsNewForItsFirstSinkOnly)
{
    EXPECT_TRUE(taps.add("trackID=0", 1364, first));
    EXPECT_FALSE(taps.add("trackID=0", 1364, second));
    EXPECT_EQ(taps.inUse().size(), 1U);
}

TEST_F(StreamTapsTest, EachTrackAndPayloadSizeHasATap)
{
    EXPECT_TRUE(taps.add("trackID=0", 1364, first));
    EXPECT_TRUE(taps.add("trackID=0", 1440, first));
    EXPECT_TRUE(taps.add("trackID=1", 1364, first));
    EXPECT_EQ(taps.inUse().size(), 3U);
}

TEST_F(StreamTapsTest, TapIsForgottenWithItsLastSink)
{
    taps.add("trackID=0", 1364, first);
    taps.add("trackID=0", 1364, second);
    EXPECT_FALSE(taps.remove(first.get()));
    EXPECT_EQ(taps.inUse().size(), 1U);
    EXPECT_TRUE(taps.remove(second.get()));
    EXPECT_TRUE(taps.inUse().empty());
    EXPECT_TRUE(taps.add("trackID=0", 1364, first));
}

TEST_F(StreamTapsTest, SinkOfSeveralTapsLeavesAll)
{
    taps.add("trackID=0", 1364, first);
    taps.add("trackID=1", 1364, first);
    taps.add("trackID=1", 1364, second);
    EXPECT_TRUE(taps.remove(first.get()));
    EXPECT_EQ(taps.inUse().size(), 1U);
    EXPECT_FALSE(taps.remove(first.get())) << "it is attached no more";
}

}  // namespace
}  // namespace refhost

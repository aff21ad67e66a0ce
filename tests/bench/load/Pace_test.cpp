#include "bench/load/Pace.h"

#include <gtest/gtest.h>

namespace rtspload
{
namespace
{

constexpr std::int64_t ms = 1'000'000;

TEST(Pace, FramesAreAsLateAsTheyComeBehindTheEarliestOne)
{
    Pace pace;
    const std::uint32_t start = 0xffffff00U;  // the timestamps run over
    const std::int64_t arrivals[] = {1000 * ms, 1030 * ms, 1085 * ms};
    for (std::uint32_t i = 0; i < 3; ++i)
    {
        pace.onPacket(start + i * 3600, arrivals[i]);
        pace.onPacket(start + i * 3600, arrivals[i] + 5 * ms);
    }
    Latencies late;
    pace.addTo(late);
    // The second frame was 10 ms earlier than the first one's time says.
    EXPECT_EQ(late.percentile(0), 0);
    EXPECT_EQ(late.percentile(50), 10);
    EXPECT_EQ(late.percentile(100), 15);
}

TEST(Pace, ATrackWithoutPacketsSaysNothing)
{
    Latencies late;
    Pace().addTo(late);
    EXPECT_TRUE(late.empty());
}

}  // namespace
}  // namespace rtspload

#include "refhost/base/ServerFigures.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace refhost
{
namespace
{

using std::chrono::milliseconds;

TEST(DurationHistogram, ABoundBelongsToItsBucket)
{
    DurationHistogram histogram;
    histogram.add(milliseconds(1));
    histogram.add(milliseconds(1) + Duration(1));
    histogram.add(milliseconds(10000));
    histogram.add(milliseconds(10001));
    histogram.add(milliseconds(-5));
    const DurationHistogram::Counts counts = histogram.counts();
    EXPECT_EQ(counts.buckets.front(), 2U);
    EXPECT_EQ(counts.buckets.at(1), 1U);
    EXPECT_EQ(counts.buckets.at(DurationHistogram::bounds.size() - 1), 1U);
    EXPECT_EQ(counts.buckets.back(), 1U);
    EXPECT_EQ(counts.sum, milliseconds(20003) + Duration(1));
}

TEST(ServerFigures, NothingIsLostBetweenThreads)
{
    ServerFigures figures;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&figures]
            {
                for (int j = 0; j < 1000; ++j)
                {
                    ServerFigures::add(figures.liveSkipped, 2);
                    figures.liveJoins.add(milliseconds(3));
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(figures.liveSkipped, 8000U);
    EXPECT_EQ(figures.liveJoins.counts().buckets.at(1), 4000U);
    EXPECT_EQ(figures.liveJoins.counts().sum, milliseconds(12000));
}

}  // namespace
}  // namespace refhost

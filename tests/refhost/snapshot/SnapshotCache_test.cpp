#include "refhost/snapshot/SnapshotCache.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

SnapshotCache::Jpeg jpegOf(std::size_t size)
{
    return std::make_shared<const std::string>(size, 'j');
}

TEST(SnapshotCache, FindsWhatWasAdded)
{
    SnapshotCache cache;
    EXPECT_EQ(cache.find("a"), nullptr);
    const auto jpeg = jpegOf(10);
    cache.add("a", jpeg);
    EXPECT_EQ(cache.find("a"), jpeg);
}

TEST(SnapshotCache, LongestUnusedGoWhenItIsFull)
{
    SnapshotCache cache(100);
    cache.add("a", jpegOf(40));
    cache.add("b", jpegOf(40));
    EXPECT_NE(cache.find("a"), nullptr);
    cache.add("c", jpegOf(40));
    EXPECT_NE(cache.find("a"), nullptr);
    EXPECT_EQ(cache.find("b"), nullptr);
    EXPECT_EQ(cache.bytes(), 80U);
}

TEST(SnapshotCache, LargerThanAllIsNotKept)
{
    SnapshotCache cache(100);
    cache.add("a", jpegOf(40));
    cache.add("b", jpegOf(101));
    EXPECT_EQ(cache.count(), 1U);
}

TEST(SnapshotCache, NumberOfEntriesIsBounded)
{
    SnapshotCache cache;
    for (int i = 0; i < 1000; ++i)
    {
        cache.add(std::to_string(i), jpegOf(1));
    }
    EXPECT_EQ(cache.count(), SnapshotCache::maxEntries);
}

}  // namespace
}  // namespace refhost

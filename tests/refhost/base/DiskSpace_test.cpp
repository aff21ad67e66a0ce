#include "refhost/base/DiskSpace.h"

#include <gtest/gtest.h>

#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

constexpr std::int64_t gibibyte = std::int64_t{1} << 30;

TEST(DiskSpace, DiskOfAFolderHasACapacity)
{
    const TemporaryFolder folder;
    const auto space = DiskSpace::of(folder.path());
    ASSERT_TRUE(space);
    EXPECT_GT(space->capacity, 0);
    EXPECT_GE(space->available, 0);
    EXPECT_LE(space->available, space->capacity);
}

TEST(DiskSpace, MissingPathHasNone)
{
    const TemporaryFolder folder;
    EXPECT_FALSE(DiskSpace::of(folder / "missing"));
}

TEST(FreeSpace, ShareGrowsWithTheDisk)
{
    const auto share = FreeSpace::parse("10%");
    ASSERT_TRUE(share);
    EXPECT_EQ(share->bytesOf(1000), 100);
    EXPECT_EQ(share->bytesOf(100 * gibibyte), 10 * gibibyte);
}

TEST(FreeSpace, BytesAreTheSameOnEveryDisk)
{
    const auto bytes = FreeSpace::parse("2GiB");
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->bytesOf(1000), 2 * gibibyte);
    EXPECT_EQ(bytes->bytesOf(100 * gibibyte), 2 * gibibyte);
}

TEST(FreeSpace, AutomaticIsTheLesserOfShareAndBytes)
{
    const auto automatic = FreeSpace::parse("auto");
    ASSERT_TRUE(automatic);
    EXPECT_EQ(automatic->bytesOf(1000), 50);
    EXPECT_EQ(automatic->bytesOf(100 * gibibyte), gibibyte);
}

TEST(FreeSpace, NothingMayBeRequired)
{
    for (const char* none : {"0", "0%", "0B"})
    {
        const auto space = FreeSpace::parse(none);
        ASSERT_TRUE(space) << none;
        EXPECT_EQ(space->bytesOf(gibibyte), 0) << none;
    }
}

TEST(FreeSpace, OtherTextsAreRefused)
{
    for (const char* text : {"", "%", "5", "100%", "-1%", "5.5%", "5 %", "automatic", "2gb"})
    {
        EXPECT_FALSE(FreeSpace::parse(text)) << text;
    }
}

}  // namespace
}  // namespace refhost

#include "refhost/recording/IndexSchema.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "refhost/recording/RecordingIndex.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

class IndexSchemaTest : public testing::Test
{
protected:
    TemporaryFolder folder_;
};

TEST_F(IndexSchemaTest, IndexOfTheFirstVersionIsUpgraded)
{
    const std::string directory = folder_ / "first";
    std::filesystem::create_directory(directory);
    {
        std::string error;
        const auto database =
            SqliteDatabase::open(directory + "/index.db", SqliteDatabase::Access::write, error);
        ASSERT_TRUE(database &&
                    database->execute(
                        "CREATE TABLE segment(id INTEGER PRIMARY KEY, camera INTEGER NOT NULL, stream "
                        "INTEGER NOT NULL,"
                        " begin_ns INTEGER NOT NULL, duration_ns INTEGER NOT NULL, bytes INTEGER NOT NULL,"
                        " path TEXT NOT NULL UNIQUE, closed INTEGER NOT NULL);"
                        "CREATE INDEX segment_of_stream ON segment(camera, stream, begin_ns);"
                        "CREATE INDEX segment_by_length ON segment(camera, stream, duration_ns);"
                        "INSERT INTO segment VALUES(1, 1, 0, 0, 10000000000, 5, '1/0/a.mkv', 1);"
                        "PRAGMA user_version = 1;"))
            << error;
    }
    std::string error;
    EXPECT_EQ(RecordingIndex::openToRead(directory, error), nullptr);
    EXPECT_NE(error.find("earlier version"), std::string::npos) << error;
    const auto index = RecordingIndex::open(directory, error);
    ASSERT_NE(index, nullptr) << error;
    ASSERT_EQ(index->all().size(), 1U);
    EXPECT_EQ(index->all()[0].epoch, 0);
    EXPECT_EQ(index->find(1, 0, WallTime(), wallTimeOfUnix(1)).size(), 1U);
    EXPECT_EQ(index->totalBytes(), 5);
    EXPECT_EQ(index->bytesOf(1), 5);
    EXPECT_EQ(index->count(), 1);
}

TEST_F(IndexSchemaTest, IndexOfTheSecondVersionIsUpgraded)
{
    const std::string directory = folder_ / "second";
    std::string error;
    {
        const auto index = RecordingIndex::open(directory, error);
        ASSERT_TRUE(index) << error;
        RecordedSegment segment;
        segment.cameraId = 7;
        segment.bytes = 11;
        segment.path = directory + "/7/0/a.mkv";
        ASSERT_TRUE(index->add(segment));
    }
    {
        const auto database =
            SqliteDatabase::open(directory + "/index.db", SqliteDatabase::Access::write, error);
        ASSERT_TRUE(
            database &&
            database->execute(
                "DROP TRIGGER segment_added; DROP TRIGGER segment_removed; DROP TRIGGER segment_changed;"
                "DROP TABLE camera_sum; DROP INDEX segment_of_camera; PRAGMA user_version = 2;"))
            << error;
    }
    EXPECT_EQ(RecordingIndex::openToRead(directory, error), nullptr);
    EXPECT_NE(error.find("earlier version"), std::string::npos) << error;
    const auto index = RecordingIndex::open(directory, error);
    ASSERT_NE(index, nullptr) << error;
    EXPECT_EQ(index->bytesOf(7), 11);
    EXPECT_EQ(index->totalBytes(), 11);
}

TEST_F(IndexSchemaTest, IndexOfALaterVersionIsRefused)
{
    const std::string directory = folder_ / "later";
    std::string error;
    ASSERT_TRUE(RecordingIndex::open(directory, error)) << error;
    {
        const auto database =
            SqliteDatabase::open(directory + "/index.db", SqliteDatabase::Access::write, error);
        ASSERT_TRUE(database && database->execute("PRAGMA user_version = 4")) << error;
    }
    EXPECT_FALSE(RecordingIndex::open(directory, error));
    EXPECT_NE(error.find("later version"), std::string::npos) << error;
    EXPECT_FALSE(RecordingIndex::openToRead(directory, error));
}

}  // namespace
}  // namespace refhost

#include "refhost/recording/RecordingListing.h"

#include <gmock/gmock.h>

#include <sstream>

#include "refhost/base/StreamName.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

class RecordingListingTest : public testing::Test
{
protected:
    RecordingListingTest()
    {
        std::string error;
        index_ = RecordingIndex::open(folder_.path(), error);
    }

    // Milliseconds after 2026-01-01.
    void add(int camera, int stream, std::int64_t begin, std::int64_t duration, bool closed = true)
    {
        RecordedSegment segment;
        segment.cameraId = camera;
        segment.streamId = stream;
        segment.begin = wallTimeOfUnix(1767225600) + std::chrono::milliseconds(begin);
        segment.duration = std::chrono::milliseconds(duration);
        segment.path = folder_ / std::to_string(++count_);
        segment.closed = closed;
        ASSERT_TRUE(index_->add(segment));
    }

    std::string list(bool recording = true) const
    {
        std::ostringstream out;
        const auto nameOf = [](int camera, int number)
        { return StreamName::of(camera, number, camera == 1 ? "yard" : ""); };
        RecordingListing("rtsp://host:1/orv/playback/", recording, nameOf).write(*index_, out);
        return out.str();
    }

    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
    int count_ = 0;
};

TEST_F(RecordingListingTest, EmptyIndexIsReported)
{
    EXPECT_EQ(list(), "nothing is recorded in " + folder_.path() + "\n");
}

TEST_F(RecordingListingTest, IntervalsGapsAndUrlsAreListedForEachStream)
{
    add(1, 0, 250, 10000);
    add(1, 0, 10250, 10000);
    add(1, 0, 60000, 5040, false);
    add(2, 1, 0, 3600000);
    EXPECT_EQ(list(),
              "camera 1/0 \"yard\": 25.040 seconds, 1 gap\n"
              "  from 2026-01-01T00:00:00.250Z (1767225600.250) to 2026-01-01T00:00:20.250Z "
              "(1767225620.250), 20.000 seconds\n"
              "      rtsp://host:1/orv/playback/1_1767225601_1767225620\n"
              "  gap of 39.750 seconds\n"
              "  from 2026-01-01T00:01:00.000Z (1767225660.000) to 2026-01-01T00:01:05.040Z "
              "(1767225665.040) and growing, 5.040 seconds\n"
              "      rtsp://host:1/orv/playback/1_1767225660_1767225665\n"
              "camera 2/1: 3600.000 seconds, 0 gaps\n"
              "  from 2026-01-01T00:00:00.000Z (1767225600.000) to 2026-01-01T01:00:00.000Z "
              "(1767229200.000), 3600.000 seconds\n"
              "      rtsp://host:1/orv/playback/2_1767225600_1767229200\n");
}

TEST_F(RecordingListingTest, MediaRecordedAfterTheClockWasSetBackAreListedSeparately)
{
    add(1, 0, 0, 25040);
    add(1, 0, 10000, 25040);
    EXPECT_EQ(list(),
              "camera 1/0 \"yard\": 50.080 seconds, 0 gaps\n"
              "  from 2026-01-01T00:00:00.000Z (1767225600.000) to 2026-01-01T00:00:25.040Z "
              "(1767225625.040), 25.040 seconds\n"
              "      rtsp://host:1/orv/playback/1_1767225600_1767225625\n"
              "  the clock was set back\n"
              "  from 2026-01-01T00:00:10.000Z (1767225610.000) to 2026-01-01T00:00:35.040Z "
              "(1767225635.040), 25.040 seconds\n"
              "      rtsp://host:1/orv/playback/1_1767225610_1767225635\n");
}

TEST_F(RecordingListingTest, NothingGrowsOfWhatACrashLeft)
{
    add(1, 0, 0, 5040, false);
    EXPECT_THAT(list(true), testing::HasSubstr(" and growing"));
    EXPECT_THAT(list(false), testing::AllOf(testing::Not(testing::HasSubstr("growing")),
                                            testing::HasSubstr(", unfinished")));
}

TEST_F(RecordingListingTest, UrlOfLessThanASecondEnclosesIt)
{
    add(1, 0, 800, 400);
    EXPECT_THAT(list(), testing::HasSubstr("/1_1767225600_1767225602\n"));
}

}  // namespace
}  // namespace refhost

#include "refhost/recording/RecordingRetention.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

class RecordingRetentionTest : public testing::Test
{
protected:
    RecordingRetentionTest()
    {
        std::string error;
        index_ = RecordingIndex::open(folder_.path(), error);
    }

    // A segment of ten seconds and 100 bytes. Times in seconds.
    void add(int camera, std::int64_t begin, bool closed = true)
    {
        RecordedSegment segment;
        segment.cameraId = camera;
        segment.begin = wallTimeOfUnix(begin);
        segment.duration = 10 * second;
        segment.bytes = 100;
        segment.path = folder_ / (std::to_string(camera) + "-" + std::to_string(begin));
        segment.closed = closed;
        std::ofstream(segment.path) << "x";
        ASSERT_TRUE(index_->add(segment));
    }

    int apply(const RecordingRetention::Limits& limits, std::int64_t now = 1000)
    {
        const RecordingRetention::Outcome outcome =
            RecordingRetention(limits).apply(*index_, {wallTimeOfUnix(now), MonotonicTime(), 0});
        problem_ = outcome.problem;
        return outcome.removed;
    }

    std::vector<std::int64_t> begins() const
    {
        std::vector<std::int64_t> found;
        for (const RecordedSegment& segment : index_->all())
        {
            EXPECT_TRUE(std::filesystem::exists(segment.path));
            found.push_back(unixSeconds(segment.begin));
        }
        return found;
    }

    std::size_t files() const
    {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
        {
            count += entry.path().filename().string().rfind("index.db", 0) == 0 ? 0 : 1;
        }
        return count;
    }

    static constexpr Duration second = std::chrono::seconds(1);
    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
    std::string problem_;
};

TEST_F(RecordingRetentionTest, WithoutLimitsNothingIsRemoved)
{
    add(1, 0);
    EXPECT_EQ(apply({}), 0);
    EXPECT_EQ(files(), 1U);
}

TEST_F(RecordingRetentionTest, OldestOfAllCamerasGoFirstUntilTheRestFits)
{
    add(1, 30);
    add(2, 20);
    add(1, 10);
    add(2, 40);
    EXPECT_EQ(apply({250, {}}), 2);
    EXPECT_THAT(begins(), ElementsAre(30, 40));
    EXPECT_EQ(files(), 2U);
    EXPECT_EQ(apply({250, {}}), 0);
}

TEST_F(RecordingRetentionTest, CameraBeyondItsLimitLosesItsOwnOldest)
{
    add(1, 30);
    add(2, 20);
    add(1, 10);
    add(2, 40);
    add(1, 50);
    RecordingRetention::Limits limits;
    limits.maxBytesOf = {{1, 150}, {3, 0}};
    EXPECT_EQ(apply(limits), 2);
    EXPECT_THAT(begins(), ElementsAre(20, 40, 50));
    EXPECT_EQ(apply(limits), 0);
}

TEST_F(RecordingRetentionTest, LimitOfACameraSparesWhatIsPlayedAsLongAsOthersCanGo)
{
    add(1, 10);
    add(1, 20);
    add(2, 5);
    std::ifstream player(folder_ / "1-10");
    RecordingRetention::Limits limits;
    limits.maxBytesOf = {{1, 100}};
    EXPECT_EQ(apply(limits), 1);
    EXPECT_THAT(begins(), ElementsAre(5, 10));
    limits.maxBytesOf = {{1, 50}};
    EXPECT_EQ(apply(limits), 1) << "nothing else is left";
    EXPECT_THAT(begins(), ElementsAre(5));
}

TEST_F(RecordingRetentionTest, OldestMakeRoomOnTheDisk)
{
    for (const int begin : {10, 20, 30, 40})
    {
        add(1, begin);
    }
    RecordingRetention::Limits limits;
    limits.minFree = *FreeSpace::parse("1KiB");
    const auto sweep = [&](std::int64_t available)
    {
        RecordingRetention::Now now;
        now.disk = {100000, available, 0, 0};
        return RecordingRetention(limits).apply(*index_, now);
    };
    EXPECT_EQ(sweep(1024).removed, 0);
    const RecordingRetention::Outcome outcome = sweep(1024 - 101);
    EXPECT_EQ(outcome.removed, 2);
    EXPECT_EQ(outcome.removedForRoom, 2);
    EXPECT_THAT(begins(), ElementsAre(30, 40));
    EXPECT_EQ(sweep(0).removed, 2) << "no more can be done";
    EXPECT_EQ(sweep(0).removed, 0);
}

TEST_F(RecordingRetentionTest, WhatALimitOfACameraRemovesCountsAsRoom)
{
    add(1, 10);
    add(2, 5);
    RecordingRetention::Limits limits;
    limits.maxBytesOf = {{1, 50}};
    limits.minFree = *FreeSpace::parse("1KiB");
    RecordingRetention::Now now;
    now.disk = {100000, 1024 - 100, 0, 0};
    EXPECT_EQ(RecordingRetention(limits).apply(*index_, now).removedForRoom, 0);
    EXPECT_THAT(begins(), ElementsAre(5));
}

TEST_F(RecordingRetentionTest, ExactlyTheLimitIsKept)
{
    add(1, 10);
    add(1, 20);
    EXPECT_EQ(apply({200, {}}), 0);
    EXPECT_EQ(apply({199, {}}), 1);
}

TEST_F(RecordingRetentionTest, AgeCountsFromTheEndOfASegment)
{
    add(1, 100);
    add(1, 110);
    add(1, 120);
    EXPECT_EQ(apply({0, 50 * second}, 170), 1);
    EXPECT_THAT(begins(), ElementsAre(110, 120));
}

TEST_F(RecordingRetentionTest, SegmentsThatAreWrittenCountAndStay)
{
    add(1, 10, false);
    add(1, 20);
    EXPECT_EQ(apply({50, second}), 1);
    EXPECT_THAT(begins(), ElementsAre(10));
}

TEST_F(RecordingRetentionTest, SegmentThatIsPlayedStaysAsLongAsOthersCanGo)
{
    add(1, 10);
    add(1, 20);
    add(1, 30);
    std::ifstream player(folder_ / "1-10");
    EXPECT_EQ(apply({200, {}}), 1);
    EXPECT_THAT(begins(), ElementsAre(10, 30));
    EXPECT_EQ(apply({50, {}}), 2) << "nothing else is left";
    add(1, 40);
    add(1, 990);
    std::ifstream another(folder_ / "1-40");
    EXPECT_EQ(apply({0, 100 * second}, 1000), 1) << "too old";
}

TEST_F(RecordingRetentionTest, MissingFileDoesNotKeepItsEntry)
{
    add(1, 10);
    std::filesystem::remove(folder_ / "1-10");
    EXPECT_EQ(apply({50, {}}), 1);
    EXPECT_TRUE(index_->all().empty());
}

TEST_F(RecordingRetentionTest, FileThatCannotBeRemovedKeepsItsEntry)
{
    add(1, 10);
    std::filesystem::remove(folder_ / "1-10");
    std::filesystem::create_directories(folder_ / "1-10/full");
    EXPECT_EQ(apply({50, {}}), 0);
    EXPECT_EQ(index_->all().size(), 1U);
    EXPECT_THAT(problem_, HasSubstr("1-10"));
}

TEST_F(RecordingRetentionTest, FileThatCannotBeRemovedDoesNotKeepTheOthers)
{
    add(1, 10);
    std::filesystem::remove(folder_ / "1-10");
    std::filesystem::create_directories(folder_ / "1-10/full");
    for (const int begin : {10, 20, 30, 40})
    {
        add(2, begin);
    }
    EXPECT_EQ(apply({300, {}}), 2);
    EXPECT_THAT(begins(), ElementsAre(10, 30, 40));
    EXPECT_THAT(problem_, HasSubstr("1-10"));
    EXPECT_EQ(apply({300, {}}), 0);
}

TEST_F(RecordingRetentionTest, DirectoryWhoseFilesAllStayIsNotTriedForEver)
{
    constexpr int many = 3 * RecordingRetention::maxFailures;
    for (int i = 0; i < many; ++i)
    {
        add(1, i);
        std::filesystem::remove(folder_ / ("1-" + std::to_string(i)));
        std::filesystem::create_directories(folder_ / ("1-" + std::to_string(i) + "/full"));
    }
    add(1, many);
    EXPECT_EQ(apply({50, {}}), 0);
    EXPECT_FALSE(problem_.empty());
}

// Contiguous segments, and a retention whose clocks a test sets.
class RetentionClockTest : public RecordingRetentionTest
{
protected:
    static constexpr std::int64_t hour = 3600;
    static constexpr std::int64_t build = 1'000'000 * hour;

    void addMany(std::int64_t begin, int count)
    {
        for (int i = 0; i < count; ++i)
        {
            add(1, begin + std::int64_t{i} * 10);
        }
    }

    RecordingRetention::Outcome sweep(std::int64_t wall, std::int64_t monotonic,
                                      std::uint32_t stepsForward = 0)
    {
        return retention_.apply(*index_,
                                {wallTimeOfUnix(wall), MonotonicTime(monotonic * second), stepsForward});
    }

    RecordingRetention retention_{{0, std::chrono::hours(24), wallTimeOfUnix(build), wallTimeOfUnix(build)}};
};

TEST_F(RetentionClockTest, NothingIsRemovedByAgeWhileTheClockIsBeforeTheBuild)
{
    addMany(0, 10);
    const auto outcome = sweep(build - hour, 0);
    EXPECT_EQ(outcome.removed, 0);
    EXPECT_THAT(outcome.clockDoubt, HasSubstr("before this program was built"));
}

TEST_F(RetentionClockTest, NothingIsRemovedByAgeWhileTheClockIsBeforeTheNewestRecording)
{
    addMany(build, 10);
    addMany(build + 100 * hour, 1);
    const auto outcome = sweep(build + 99 * hour, 0);
    EXPECT_EQ(outcome.removed, 0);
    EXPECT_THAT(outcome.clockDoubt, HasSubstr("before the newest recording"));
    EXPECT_EQ(sweep(build + 100 * hour, 0).removed, 10);
}

TEST_F(RetentionClockTest, RecordingsFromBeforeTheClockWasSetAreAsOldAsTheFirstOneAfterwards)
{
    addMany(0, 100);
    EXPECT_EQ(sweep(build + hour, 0).removed, 0) << "nobody knows when that was";
    addMany(build + hour, 10);
    for (std::int64_t passed = 0; passed < 24 * hour; passed += 60)
    {
        ASSERT_EQ(sweep(build + hour + passed, passed, 1).removed, 0) << passed;
    }
    addMany(build + 25 * hour, 1);
    EXPECT_EQ(sweep(build + 25 * hour + 11, 25 * hour, 1).removed, 101);
}

TEST_F(RetentionClockTest, AfterAStepForwardASmallShareIsRemovedAtATime)
{
    addMany(build + hour, 1000);
    EXPECT_EQ(sweep(build + 4 * hour, 0).removed, 0);
    int removed = 0;
    bool slowly = false;
    for (std::int64_t passed = 5; passed <= hour; passed += 5)
    {
        const auto outcome = sweep(build + 100'000 * hour + passed, passed, 1);
        EXPECT_LE(outcome.removed, 50);
        removed += outcome.removed;
        slowly = slowly || outcome.slowly;
    }
    EXPECT_TRUE(slowly);
    EXPECT_GT(removed, 0);
    EXPECT_LE(removed, 90) << "a day's recordings last for half a day";
}

TEST_F(RetentionClockTest, ServerThatWasOffForLongRemovesOldSegmentsSlowly)
{
    addMany(build + hour, 20);
    int removed = 0;
    for (std::int64_t passed = 0; passed <= 20 * hour; passed += 60)
    {
        const int now = sweep(build + 1000 * hour + passed, passed).removed;
        EXPECT_LE(now, 1);
        removed += now;
    }
    EXPECT_EQ(removed, 20);
}

TEST_F(RetentionClockTest, UsualSweepRemovesAllOldSegments)
{
    addMany(build, 100);
    addMany(build + 30 * hour, 1);
    EXPECT_EQ(sweep(build + 30 * hour + 20, 0).removed, 100);
}

}  // namespace
}  // namespace refhost

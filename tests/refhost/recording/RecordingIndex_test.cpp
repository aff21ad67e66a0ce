#include "refhost/recording/RecordingIndex.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/CapturedErrors.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

constexpr Duration second = std::chrono::seconds(1);
constexpr WallTime year2026 = wallTimeOfUnix(1767225600);

WallTime at(double seconds)
{
    return year2026 + durationOf(std::chrono::duration<double>(seconds));
}

class RecordingIndexTest : public testing::Test
{
protected:
    RecordingIndexTest() : index_(open()) {}

    std::shared_ptr<RecordingIndex> open()
    {
        std::string error;
        std::shared_ptr<RecordingIndex> index = RecordingIndex::open(folder_ / "a/b", error);
        EXPECT_TRUE(index) << error;
        return index;
    }

    // Times in seconds after year2026.
    RecordedSegment segment(int camera, int stream, double begin, double duration, bool closed = true) const
    {
        RecordedSegment made;
        made.cameraId = camera;
        made.streamId = stream;
        made.begin = at(begin);
        made.duration = durationOf(std::chrono::duration<double>(duration));
        made.bytes = 1000;
        made.path = fmt::format("{}/{}/{}/{}.mkv", index_->directory(), camera, stream, begin);
        made.closed = closed;
        return made;
    }

    std::int64_t add(int camera, int stream, double begin, double duration, bool closed = true)
    {
        const std::optional<std::int64_t> id = index_->add(segment(camera, stream, begin, duration, closed));
        EXPECT_TRUE(id) << index_->lastError();
        return id.value_or(0);
    }

    std::vector<std::int64_t> find(int camera, double begin, double end) const
    {
        std::vector<std::int64_t> ids;
        const std::optional<int> stream = index_->streamOf(camera, at(begin), at(end));
        for (const RecordedSegment& found : index_->find(camera, stream.value_or(0), at(begin), at(end)))
        {
            ids.push_back(found.id);
        }
        return ids;
    }

    // Begin and end in seconds after year2026.
    std::vector<std::pair<double, double>> recordings(int camera, int stream) const
    {
        std::vector<std::pair<double, double>> intervals;
        for (const RecordedInterval& interval : index_->recordings(camera, stream))
        {
            intervals.emplace_back(secondsOf(interval.begin - year2026), secondsOf(interval.end - year2026));
        }
        return intervals;
    }

    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
};

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST_F(RecordingIndexTest, SegmentIsFoundAsItWasEntered)
{
    const RecordedSegment entered = segment(3, 1, 10.5, 9.75);
    const std::optional<std::int64_t> id = index_->add(entered);
    ASSERT_TRUE(id);
    const std::vector<RecordedSegment> found = index_->find(3, 1, entered.begin, entered.begin + Duration(1));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].id, *id);
    EXPECT_EQ(found[0].cameraId, 3);
    EXPECT_EQ(found[0].streamId, 1);
    EXPECT_EQ(found[0].begin, entered.begin);
    EXPECT_EQ(found[0].duration, entered.duration);
    EXPECT_EQ(found[0].bytes, 1000);
    EXPECT_EQ(found[0].path, entered.path);
    EXPECT_TRUE(found[0].closed);
}

TEST_F(RecordingIndexTest, ForgedPathThatLeavesTheFolderIsNeverGivenOut)
{
    add(1, 0, 0, 10);
    std::string error;
    const auto database =
        SqliteDatabase::open(folder_ / "a/b/index.db", SqliteDatabase::Access::write, error);
    ASSERT_TRUE(database) << error;
    for (const char* path : {"/etc/passwd", "../c", "1/../../c", "..", "", ".", "1/0/../../../c.mkv"})
    {
        ASSERT_TRUE(database->execute(fmt::format("UPDATE segment SET path = '{}'", path).c_str()));
        EXPECT_THAT(index_->all(), IsEmpty()) << path;
        EXPECT_THAT(find(1, 0, 10), IsEmpty()) << path;
        EXPECT_FALSE(index_->oldestClosed()) << path;
        EXPECT_THAT(recordings(1, 0), IsEmpty()) << path;
    }
}

TEST_F(RecordingIndexTest, DatabaseIsForTheUserAndTheGroupAlone)
{
    const mode_t before = ::umask(0);
    index_.reset();
    for (const char* part : {"", "-wal", "-shm"})
    {
        std::filesystem::remove(folder_ / "a/b/index.db" + part);
    }
    index_ = open();
    add(1, 0, 0, 10);
    const auto expectRestricted = [&]
    {
        for (const char* part : {"", "-wal", "-shm"})
        {
            struct stat status
            {
            };
            ASSERT_EQ(::stat((folder_ / "a/b/index.db" + part).c_str(), &status), 0) << part;
            EXPECT_EQ(status.st_mode & 07777U, 0640U) << part;
        }
    };
    expectRestricted();
    // As an earlier version left it.
    for (const char* part : {"", "-wal", "-shm"})
    {
        ASSERT_EQ(::chmod((folder_ / "a/b/index.db" + part).c_str(), 0644), 0);
    }
    const auto again = open();
    expectRestricted();
    ::umask(before);
}

TEST_F(RecordingIndexTest, IntervalTouchesSegmentsByItsBeginAndNotByItsEnd)
{
    const std::int64_t earlier = add(1, 0, 0, 10);
    const std::int64_t later = add(1, 0, 10, 10);
    EXPECT_THAT(find(1, 0, 10), ElementsAre(earlier));
    EXPECT_THAT(find(1, 9.9, 10.1), ElementsAre(earlier, later));
    EXPECT_THAT(find(1, 10, 11), ElementsAre(later));
    EXPECT_THAT(find(1, -5, 0), IsEmpty());
    EXPECT_THAT(find(1, 20, 30), IsEmpty());
    EXPECT_THAT(find(2, 0, 10), IsEmpty());
}

TEST_F(RecordingIndexTest, SegmentsAreSortedByBeginWhateverTheOrderOfEntry)
{
    const std::int64_t last = add(1, 0, 20, 10);
    const std::int64_t first = add(1, 0, 0, 10);
    const std::int64_t middle = add(1, 0, 10, 10);
    EXPECT_THAT(find(1, 0, 30), ElementsAre(first, middle, last));
}

TEST_F(RecordingIndexTest, LowestStreamWithRecordedMediaInTheIntervalIsTaken)
{
    const std::int64_t high = add(1, 2, 0, 10);
    const std::int64_t low = add(1, 1, 20, 10);
    add(1, 2, 20, 10);
    EXPECT_THAT(find(1, 0, 10), ElementsAre(high));
    EXPECT_THAT(find(1, 0, 30), ElementsAre(low));
}

TEST_F(RecordingIndexTest, LongSegmentIsFoundBehindShorterLaterOnes)
{
    const std::int64_t shorter = add(1, 0, 100, 10);
    EXPECT_THAT(find(1, 105, 106), ElementsAre(shorter));
    const std::int64_t longer = add(1, 0, 0, 3600);
    // In an epoch of its own, because they overlap.
    EXPECT_THAT(find(1, 105, 106), ElementsAre(shorter, longer));
    EXPECT_THAT(find(1, 3000, 3001), ElementsAre(longer));
}

TEST_F(RecordingIndexTest, MediaRecordedAfterTheClockWasSetBackGetTheirOwnEpoch)
{
    for (const double begin : {0, 10, 20, 13, 23})
    {
        ASSERT_TRUE(index_->enter(segment(1, 0, begin, 10)));
    }
    std::vector<std::pair<int, double>> places;
    for (const RecordedSegment& found : index_->find(1, 0, year2026, year2026 + 100 * second))
    {
        places.emplace_back(found.epoch, secondsOf(found.begin - year2026));
    }
    using Place = std::pair<int, double>;
    EXPECT_THAT(places, ElementsAre(Place(0, 0), Place(0, 10), Place(0, 20), Place(1, 13), Place(1, 23)));
    EXPECT_THAT(recordings(1, 0), ElementsAre(std::make_pair(0.0, 30.0), std::make_pair(13.0, 33.0)));
}

TEST_F(RecordingIndexTest, AClockThatIsSetForwardStartsNoEpoch)
{
    for (const double begin : {0, 1000, 1010})
    {
        ASSERT_TRUE(index_->enter(segment(1, 0, begin, 10)));
        ASSERT_TRUE(index_->enter(segment(2, 0, begin, 10)));
    }
    for (const RecordedSegment& found : index_->all())
    {
        EXPECT_EQ(found.epoch, 0);
    }
}

TEST_F(RecordingIndexTest, SegmentsAreFoundBehindAPlaceAcrossEpochs)
{
    for (const double begin : {0, 10, 5, 15})
    {
        ASSERT_TRUE(index_->enter(segment(1, 0, begin, 10)));
    }
    SegmentPlace after;
    std::vector<double> begins;
    for (int i = 0; i < 10; ++i)
    {
        const auto found = index_->find(1, 0, year2026, year2026 + 100 * second, 1, after);
        if (found.empty())
        {
            break;
        }
        after = {found[0].epoch, found[0].begin};
        begins.push_back(secondsOf(found[0].begin - year2026));
    }
    EXPECT_THAT(begins, ElementsAre(0, 10, 5, 15));
}

TEST_F(RecordingIndexTest, AdoptedFilesGetTheFirstFreeEpoch)
{
    for (const double begin : {0, 3, 10, 13})
    {
        add(1, 0, begin, 10);
    }
    EXPECT_THAT(recordings(1, 0), ElementsAre(std::make_pair(0.0, 20.0), std::make_pair(3.0, 23.0)));
}

TEST_F(RecordingIndexTest, StreamOfAnIntervalIsFoundWithoutItsSegments)
{
    add(1, 2, 0, 10);
    add(1, 1, 20, 10);
    EXPECT_EQ(index_->streamOf(1, year2026, year2026 + 10 * second), 2);
    EXPECT_EQ(index_->streamOf(1, year2026, year2026 + 30 * second), 1);
    EXPECT_EQ(index_->streamOf(1, year2026 + 12 * second, year2026 + 15 * second), std::nullopt);
    EXPECT_EQ(index_->streamOf(2, year2026, year2026 + 30 * second), std::nullopt);
}

TEST_F(RecordingIndexTest, NoMoreSegmentsAreFoundThanRequested)
{
    add(1, 0, 20, 10);
    const std::int64_t first = add(1, 0, 0, 10);
    const std::int64_t next = add(1, 0, 10, 10);
    const auto found = index_->find(1, 0, year2026, year2026 + 3600 * second, 2);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].id, first);
    EXPECT_EQ(found[1].id, next);
}

TEST_F(RecordingIndexTest, OpenSegmentIsFoundALittleBeyondWhatIsKnownOfIt)
{
    const std::int64_t id = add(1, 0, 0, 3, false);
    EXPECT_THAT(find(1, 7, 8), ElementsAre(id));
    EXPECT_THAT(find(1, 60, 61), IsEmpty());
}

TEST_F(RecordingIndexTest, OpenSegmentIsUnclosedUntilItIsClosed)
{
    const std::int64_t id = add(1, 0, 0, 4, false);
    ASSERT_EQ(index_->unclosed().size(), 1U);
    EXPECT_EQ(index_->unclosed()[0].duration, 4 * second);

    EXPECT_TRUE(index_->close(id, 5 * second, 5000));
    EXPECT_THAT(index_->unclosed(), IsEmpty());
    ASSERT_EQ(index_->all().size(), 1U);
    EXPECT_EQ(index_->all()[0].duration, 5 * second);
    EXPECT_EQ(index_->totalBytes(), 5000);
}

TEST_F(RecordingIndexTest, RecordedMediaJoinsSegmentsThatFollowAndLeavesGapsOut)
{
    add(1, 0, 0, 10);
    add(1, 0, 10.04, 10);
    add(1, 0, 20.5, 10);
    EXPECT_THAT(recordings(1, 0), ElementsAre(Pair(0, 20.04), Pair(20.5, 30.5)));
    EXPECT_THAT(recordings(1, 1), IsEmpty());
}

TEST_F(RecordingIndexTest, RecordedMediaThatOverlapsAfterAClockWasSetBackIsAnIntervalOfItsOwn)
{
    add(1, 0, 0, 10);
    add(1, 0, 2, 3);
    add(1, 0, 9, 10);
    EXPECT_THAT(recordings(1, 0), ElementsAre(Pair(0, 19), std::make_pair(2.0, 5.0)));
}

TEST_F(RecordingIndexTest, RecordedMediaGrowsWhereItsLastSegmentIsOpen)
{
    add(1, 0, 0, 10);
    add(1, 0, 40, 10, false);
    const std::vector<RecordedInterval> intervals = index_->recordings(1, 0);
    ASSERT_EQ(intervals.size(), 2U);
    EXPECT_FALSE(intervals[0].growing);
    EXPECT_TRUE(intervals[1].growing);
}

TEST_F(RecordingIndexTest, StreamsAreListedOnceInOrder)
{
    add(2, 0, 0, 10);
    add(1, 1, 0, 10);
    add(1, 0, 0, 10);
    add(1, 0, 10, 10);
    std::vector<std::pair<int, int>> streams;
    for (const RecordedStream& stream : index_->streams())
    {
        streams.emplace_back(stream.cameraId, stream.streamId);
    }
    EXPECT_THAT(streams, ElementsAre(Pair(1, 0), Pair(1, 1), Pair(2, 0)));
}

TEST_F(RecordingIndexTest, OldestClosedSegmentPassesOverOpenOnes)
{
    EXPECT_FALSE(index_->oldestClosed());
    add(1, 0, 0, 10, false);
    EXPECT_FALSE(index_->oldestClosed());
    add(1, 0, 30, 10);
    const std::int64_t older = add(2, 0, 20, 10);
    ASSERT_TRUE(index_->oldestClosed());
    EXPECT_EQ(index_->oldestClosed()->id, older);
    EXPECT_TRUE(index_->remove(older));
    EXPECT_NE(index_->oldestClosed()->id, older);
}

TEST_F(RecordingIndexTest, SumsFollowEveryChange)
{
    RecordedSegment segment;
    const auto put = [&](int camera, const std::string& name, std::int64_t bytes)
    {
        segment.cameraId = camera;
        segment.path = index_->directory() + "/" + name;
        segment.bytes = bytes;
        return index_->enter(segment);
    };
    ASSERT_TRUE(put(1, "a", 100));
    ASSERT_TRUE(put(1, "b", 10));
    ASSERT_TRUE(put(2, "c", 1));
    ASSERT_TRUE(put(1, "a", 150)) << "it grew";
    EXPECT_EQ(index_->bytesOf(1), 160);
    EXPECT_EQ(index_->bytesOf(2), 1);
    EXPECT_EQ(index_->bytesOf(3), 0);
    EXPECT_EQ(index_->totalBytes(), 161);
    EXPECT_EQ(index_->count(), 3);
    const std::vector<RecordedSegment> all = index_->all();
    ASSERT_TRUE(index_->close(all[0].id, Duration(1), 200));
    EXPECT_EQ(index_->totalBytes(), 161 - all[0].bytes + 200);
    ASSERT_TRUE(index_->remove(all[0].id));
    EXPECT_EQ(index_->totalBytes(), 161 - all[0].bytes);
    segment.path = all[1].path;
    ASSERT_TRUE(index_->apply({{segment, true}}));
    EXPECT_EQ(index_->count(), 1);
    EXPECT_EQ(index_->totalBytes(), all[2].bytes);
}

TEST_F(RecordingIndexTest, OldestOfACameraPassesOverOthers)
{
    RecordedSegment segment;
    segment.closed = true;
    for (const auto& [camera, begin] : {std::pair(1, 30), std::pair(2, 10), std::pair(1, 20)})
    {
        segment.cameraId = camera;
        segment.begin = wallTimeOfUnix(begin);
        segment.path = index_->directory() + "/" + std::to_string(begin);
        ASSERT_TRUE(index_->add(segment));
    }
    EXPECT_EQ(index_->oldestClosed()->begin, wallTimeOfUnix(10));
    EXPECT_EQ(index_->oldestClosed({}, WallTime::min(), 1)->begin, wallTimeOfUnix(20));
    EXPECT_FALSE(index_->oldestClosed({}, WallTime::min(), 3));
    EXPECT_EQ(index_->firstBefore(wallTimeOfUnix(100), {}, 1)->begin, wallTimeOfUnix(30)) << "entered first";
}

TEST_F(RecordingIndexTest, EverythingIsThereAfterOpeningAgainAndInAMovedDirectory)
{
    const std::int64_t id = add(1, 0, 0, 10);
    index_.reset();
    std::filesystem::rename(folder_ / "a", folder_ / "moved");
    std::string error;
    const auto moved = RecordingIndex::open(folder_ / "moved/b", error);
    ASSERT_TRUE(moved) << error;
    ASSERT_EQ(moved->all().size(), 1U);
    EXPECT_EQ(moved->all()[0].id, id);
    EXPECT_EQ(moved->all()[0].path.rfind(folder_ / "moved/b/1/0/", 0), 0U);
}

TEST_F(RecordingIndexTest, ReaderSeesWhatTheWriterEntersAndCannotWrite)
{
    std::string error;
    const auto reader = RecordingIndex::openToRead(folder_ / "a/b", error);
    ASSERT_TRUE(reader) << error;
    add(1, 0, 0, 10);
    EXPECT_EQ(reader->all().size(), 1U);
    EXPECT_FALSE(reader->add(segment(1, 0, 10, 10)));
    EXPECT_EQ(reader->lastError(), "this index was opened to be read");
    EXPECT_FALSE(reader->remove(1));
    EXPECT_EQ(index_->all().size(), 1U);
}

TEST_F(RecordingIndexTest, ReadingDoesNotMakeAnIndex)
{
    std::string error;
    EXPECT_FALSE(RecordingIndex::openToRead(folder_ / "none", error));
    EXPECT_NE(error.find("none/index.db"), std::string::npos) << error;
    EXPECT_FALSE(std::filesystem::exists(folder_ / "none"));
}

TEST_F(RecordingIndexTest, DirectoryThatCannotBeMadeIsReported)
{
    std::ofstream(folder_ / "file") << "in the way";
    std::string error;
    EXPECT_FALSE(RecordingIndex::open(folder_ / "file/sub", error));
    EXPECT_EQ(error, folder_ / "file" + ": Not a directory");
}

TEST_F(RecordingIndexTest, ClosedIndexIsOneFile)
{
    add(1, 0, 0, 10);
    index_.reset();
    EXPECT_FALSE(std::filesystem::exists(folder_ / "a/b/index.db-wal"));
}

TEST_F(RecordingIndexTest, FileThatIsNoIndexIsReportedAndKept)
{
    std::filesystem::create_directory(folder_ / "odd");
    std::ofstream(folder_ / "odd/index.db") << std::string(4096, 'x');
    std::string error;
    EXPECT_FALSE(RecordingIndex::openToRead(folder_ / "odd", error));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "odd/index.db.damaged"))
        << "who only looks changes nothing";
    CapturedErrors log;
    const auto index = RecordingIndex::open(folder_ / "odd", error);
    ASSERT_TRUE(index) << error;
    EXPECT_TRUE(index->all().empty());
    EXPECT_EQ(std::filesystem::file_size(folder_ / "odd/index.db.damaged"), 4096U);
    EXPECT_EQ(log.linesWith("odd/index.db").size(), 1U);
}

TEST_F(RecordingIndexTest, CorruptIndexIsDetectedWhenOpened)
{
    for (int i = 0; i < 2000; ++i)
    {
        add(1, 0, i, 1);
    }
    index_.reset();
    {
        std::fstream file(folder_ / "a/b/index.db", std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(8 * 4096 + 1);
        file << std::string(3000, '\x5A');
    }
    CapturedErrors log;
    index_ = open();
    ASSERT_TRUE(index_);
    EXPECT_TRUE(index_->all().empty());
    EXPECT_TRUE(std::filesystem::exists(folder_ / "a/b/index.db.damaged"));
    EXPECT_EQ(log.linesWith("corrupt").size(), 1U);
}

TEST_F(RecordingIndexTest, EarlierCorruptIndexStaysBesideALaterOne)
{
    for (const char* content : {"first", "second", "third"})
    {
        index_.reset();
        for (const char* part : {"-wal", "-shm"})
        {
            std::filesystem::remove(folder_ / "a/b/index.db" + part);
        }
        std::ofstream(folder_ / "a/b/index.db") << content << std::string(4096, 'x');
        index_ = open();
    }
    for (const auto& [name, content] : {std::pair{"index.db.damaged", "first"},
                                        {"index.db.damaged-2", "second"},
                                        {"index.db.damaged-3", "third"}})
    {
        std::ifstream in(folder_ / "a/b/" + name);
        std::string line;
        std::getline(in, line);
        EXPECT_EQ(line.rfind(content, 0), 0U) << name;
    }
}

TEST_F(RecordingIndexTest, PathOutsideTheDirectoryOrEnteredTwiceIsRefused)
{
    RecordedSegment outside = segment(1, 0, 0, 10);
    outside.path = folder_ / "elsewhere.mkv";
    EXPECT_FALSE(index_->add(outside));
    add(1, 0, 0, 10);
    EXPECT_FALSE(index_->add(segment(1, 0, 0, 10)));
    EXPECT_NE(index_->lastError().find("UNIQUE"), std::string::npos) << index_->lastError();
    EXPECT_EQ(index_->all().size(), 1U);
}

TEST_F(RecordingIndexTest, ThreadsReadWhileOneWrites)
{
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
    {
        readers.emplace_back(
            [&]
            {
                while (!done)
                {
                    const std::size_t before = find(1, 0, 1000).size();
                    EXPECT_GE(find(1, 0, 1000).size(), before);
                }
            });
    }
    for (int i = 0; i < 100; ++i)
    {
        const std::int64_t id = add(1, 0, i, 0, false);
        EXPECT_TRUE(index_->close(id, second, 1));
    }
    done = true;
    for (std::thread& reader : readers)
    {
        reader.join();
    }
    EXPECT_EQ(find(1, 0, 1000).size(), 100U);
}

}  // namespace
}  // namespace refhost

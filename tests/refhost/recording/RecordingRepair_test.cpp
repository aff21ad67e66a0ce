#include "refhost/recording/RecordingRepair.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "refhost/recording/SegmentLedger.h"
#include "refhost/recording/SegmentPath.h"
#include "refhost/recording/SegmentWriter.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace
{

class RecordingRepairTest : public testing::Test, protected MadeUnits
{
protected:
    RecordingRepairTest()
    {
        std::string error;
        index_ = RecordingIndex::open(folder_.path(), error);
    }

    // Makes a file of so many seconds; an unfinished one is as after a crash.
    std::string makeFile(double begin, double length, bool finished)
    {
        std::string path = folder_ / SegmentPath{1, 0, at(begin)}.toString();
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::string error;
        const auto writer = SegmentWriter::create(path, {capturedAt(begin), at(begin)}, {video}, error);
        EXPECT_TRUE(writer) << error;
        for (int i = 0; i < static_cast<int>(length * 25); ++i)
        {
            EXPECT_TRUE(
                writer->write(0, *std::make_shared<EncodedUnit>(*frame(begin + i / 25.0, i % 25 == 0))));
        }
        EXPECT_TRUE(finished ? writer->close() : writer->flush());
        return path;
    }

    std::int64_t enter(const std::string& path, double begin, bool closed)
    {
        RecordedSegment segment;
        segment.cameraId = 1;
        segment.begin = at(begin);
        segment.duration = second;
        segment.path = path;
        segment.closed = closed;
        return index_->add(segment).value_or(-1);
    }

    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
};

TEST_F(RecordingRepairTest, NothingIsDoneWhereAllIsWell)
{
    enter(makeFile(0, 2, true), 0, true);
    EXPECT_FALSE(RecordingRepair::run(*index_).hasAny());
    EXPECT_EQ(index_->all()[0].duration, second);
}

TEST_F(RecordingRepairTest, SegmentThatACrashLeftIsMeasuredAndClosed)
{
    const std::string path = makeFile(0, 3, false);
    enter(path, 0, false);
    EXPECT_EQ(RecordingRepair::run(*index_).closed, 1);
    ASSERT_EQ(index_->all().size(), 1U);
    const RecordedSegment segment = index_->all()[0];
    EXPECT_TRUE(segment.closed);
    EXPECT_EQ(segment.begin, at(0));
    EXPECT_EQ(segment.duration, 3 * second);
    EXPECT_EQ(static_cast<std::uintmax_t>(segment.bytes), std::filesystem::file_size(path));
}

TEST_F(RecordingRepairTest, UnfinishedFileWithoutAFrameIsSetAsideAndItsEntryGoes)
{
    const std::string path = makeFile(0, 0, false);
    enter(path, 0, false);
    EXPECT_EQ(RecordingRepair::run(*index_).setAside, 1);
    EXPECT_TRUE(index_->all().empty());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(std::filesystem::exists(path + ".damaged"));
    EXPECT_FALSE(RecordingRepair::run(*index_).hasAny());
}

TEST_F(RecordingRepairTest, BytesOfAFileThatCannotBePlayedAreKept)
{
    const std::string path = makeFile(0, 2, false);
    for (const std::string& name : {path + ".damaged", path})
    {
        std::ofstream(name, std::ios::binary) << "no Matroska: " << name;
    }
    enter(path, 0, false);
    EXPECT_EQ(RecordingRepair::run(*index_).setAside, 1);
    for (const auto& [name, holds] :
         {std::pair{path + ".damaged", path + ".damaged"}, {path + ".damaged-2", path}})
    {
        std::ifstream in(name, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "no Matroska: " + holds);
    }
}

TEST_F(RecordingRepairTest, EntryThatLeadsOutOfTheFolderIsNotFollowed)
{
    const std::string outside = std::filesystem::path(folder_.path()).filename().string() + "-outside";
    const std::string file = folder_ / ("../" + outside);
    std::ofstream(file) << "somebody's";
    enter(makeFile(0, 2, false), 0, false);
    std::string error;
    const auto database = SqliteDatabase::open(folder_ / "index.db", SqliteDatabase::Access::write, error);
    ASSERT_TRUE(database) << error;
    ASSERT_TRUE(database->execute(("UPDATE segment SET path = '../" + outside + "'").c_str()));
    RecordingRepair::run(*index_);
    EXPECT_TRUE(std::filesystem::exists(file));
    std::filesystem::remove(file);
}

TEST_F(RecordingRepairTest, EntryWithoutAFileIsDropped)
{
    enter(folder_ / "1/0/gone.mkv", 0, true);
    enter(folder_ / "1/0/gone too.mkv", 5, false);
    EXPECT_EQ(RecordingRepair::run(*index_).dropped, 2);
    EXPECT_TRUE(index_->all().empty());
}

TEST_F(RecordingRepairTest, FilesThatTheIndexDoesNotKnowAreAdopted)
{
    makeFile(0, 2, true);
    makeFile(2, 3, false);
    EXPECT_EQ(RecordingRepair::run(*index_).adopted, 2);
    const std::vector<RecordedSegment> segments = index_->all();
    ASSERT_EQ(segments.size(), 2U);
    EXPECT_TRUE(segments[0].closed);
    EXPECT_EQ(segments[0].cameraId, 1);
    // A name has microseconds.
    EXPECT_EQ(segments[0].begin, std::chrono::floor<std::chrono::microseconds>(at(0)));
    EXPECT_EQ(segments[0].duration, 2 * second);
    EXPECT_EQ(segments[1].duration, 3 * second);
    EXPECT_FALSE(RecordingRepair::run(*index_).hasAny());
}

TEST_F(RecordingRepairTest, FinishedSegmentThatTheLedgerWillEnterIsNotAdopted)
{
    SegmentLedger ledger(folder_.path(), {}, nullptr);
    RecordedSegment segment;
    segment.cameraId = 1;
    segment.begin = at(0);
    segment.duration = 2 * second;
    segment.path = makeFile(0, 2, true);
    segment.closed = true;
    ledger.put(segment);
    makeFile(2, 2, true);
    EXPECT_EQ(RecordingRepair::run(*index_, &ledger).adopted, 1);
    ledger.setIndex(index_);
    EXPECT_TRUE(ledger.flush());
    EXPECT_EQ(index_->all().size(), 2U);
}

TEST_F(RecordingRepairTest, OtherFilesAreLeftAlone)
{
    std::filesystem::create_directories(folder_ / "1/0/20260101T000000.000000Z.mkv");
    for (const char* name : {"holiday.mkv", "1/note.txt", "1/0/20260101T000061.000000Z.mkv", "1/0/empty.mkv",
                             "1/0/20260101T000001.000000Z.mkv"})
    {
        std::ofstream(folder_ / name) << "somebody's";
    }
    EXPECT_FALSE(RecordingRepair::run(*index_).hasAny());
    EXPECT_TRUE(std::filesystem::exists(folder_ / "1/0/20260101T000001.000000Z.mkv"));
    EXPECT_TRUE(index_->all().empty());
}

TEST_F(RecordingRepairTest, FileThatCannotBeReadNowIsLeftForTheNextStart)
{
    // Reading a directory fails, as reading from a failing disk does.
    const std::string path = folder_ / SegmentPath{1, 0, at(0)}.toString();
    std::filesystem::create_directories(path);
    enter(path, 0, false);
    const RecordingRepair::Result result = RecordingRepair::run(*index_);
    EXPECT_EQ(result.setAside, 0);
    EXPECT_EQ(result.failed, 1);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(index_->unclosed().size(), 1U);
}

TEST_F(RecordingRepairTest, FinishedFileThatHasLostItsEndIsMeasuredAgain)
{
    const std::string path = makeFile(0, 4, true);
    const std::int64_t id = enter(path, 0, false);
    index_->close(id, 4 * second, static_cast<std::int64_t>(std::filesystem::file_size(path)));
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    EXPECT_EQ(RecordingRepair::run(*index_).closed, 1);
    EXPECT_LT(index_->all()[0].duration, 3 * second);
    EXPECT_FALSE(RecordingRepair::run(*index_).hasAny());
}

TEST_F(RecordingRepairTest, SingleFrameIsRecordedMedia)
{
    makeFile(0, 0.04, false);
    EXPECT_EQ(RecordingRepair::run(*index_).adopted, 1);
    EXPECT_EQ(index_->find(1, 0, std::chrono::floor<std::chrono::microseconds>(at(0)), at(1)).size(), 1U);
}

TEST_F(RecordingRepairTest, FilesAreFoundBelowADirectoryWithASlashAtItsEnd)
{
    makeFile(0, 2, true);
    std::string error;
    const auto index = RecordingIndex::open(folder_.path() + "/", error);
    EXPECT_EQ(RecordingRepair::run(*index).adopted, 1);
    EXPECT_FALSE(RecordingRepair::run(*index).hasAny());
}

TEST_F(RecordingRepairTest, CorruptTimestampDoesNotCountAsLength)
{
    const std::string path = makeFile(0, 4, true);
    // The time of the third second's cluster, as the writer puts it: identifier E7, two bytes, 2000.
    std::string bytes;
    {
        std::ifstream in(path, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    const std::size_t at = bytes.find("\xE7\x82\x07\xD0");
    ASSERT_NE(at, std::string::npos);
    bytes[at + 2] = '\xF7';
    std::ofstream(path, std::ios::binary) << bytes;
    EXPECT_EQ(RecordingRepair::run(*index_).adopted, 1);
    EXPECT_EQ(index_->all()[0].duration, 4 * second);
}

TEST_F(RecordingRepairTest, EveryLengthOfACutOffFileIsRepaired)
{
    const std::string path = makeFile(0, 2, false);
    const auto whole = std::filesystem::file_size(path);
    for (auto size = whole; size > 0; size -= std::min<std::uintmax_t>(size, 997))
    {
        std::filesystem::resize_file(path, size);
        const std::int64_t id = enter(path, 0, false);
        const RecordingRepair::Result result = RecordingRepair::run(*index_);
        ASSERT_EQ(result.closed + result.setAside, 1) << size;
        EXPECT_LE(result.closed == 1 ? index_->all()[0].duration : Duration::zero(), 2 * second);
        index_->remove(id);
        if (result.setAside == 1)
        {
            EXPECT_LT(size, 3000U);
            break;
        }
    }
}

}  // namespace
}  // namespace refhost

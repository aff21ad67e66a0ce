#include <fcntl.h>
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "refhost/recording/FileUse.h"
#include "refhost/recording/Recorder.h"
#include "refhost/recording/RecordingRoom.h"
#include "tests/CapturedErrors.h"
#include "tests/PrivateMounts.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/recording/RecordedStreamFake.h"
#include "tests/refhost/recording/RecorderEnd.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// Segments are finished faster here than any camera does: one that waited to be synced would take up its
/// room after it was removed.
RecordingDisk::Options diskThatHoldsNoFiles()
{
    RecordingDisk::Options options = promptDisk();
    options.sync.maxWaiting = 0;
    return options;
}

/// A recorder, or several, on a small disk of the test's own.
class FullDiskTest : public testing::Test
{
protected:
    static constexpr Duration second = MadeUnits::second;

    void SetUp() override
    {
        if (!mounts_.possible())
        {
            GTEST_SKIP() << mounts_.why();
        }
        ASSERT_TRUE(mounts_.mount(folder_.path(), "size=8m"));
        std::string error;
        index_ = RecordingIndex::open(folder_.path(), error);
        ASSERT_TRUE(index_) << error;
        ledger_ = std::make_shared<SegmentLedger>(folder_.path(), SegmentLedger::Options(), nullptr);
        ledger_->setIndex(index_);
        room_ = std::make_shared<RecordingRoom>(*ledger_);
        ledger_->setMakeRoom([room = room_](bool again) { return room->make(again); });
        options_.segmentLength = second;
        options_.retry = 3 * second;
        options_.clock = &clock_;
        options_.gather = Duration::zero();
    }

    std::shared_ptr<Recorder> record(int camera, const std::shared_ptr<RecordedStreamFake>& source)
    {
        Recorder::Hooks hooks;
        hooks.makeRoom = [room = room_](bool again) { return room->make(again); };
        return Recorder::start({camera, 0, source, fmt::format("camera {}/0", camera)}, ledger_, disk_,
                               options_, hooks);
    }

    void stop(Recorder& recorder)
    {
        endRecording(recorder);
        EXPECT_TRUE(ledger_->flush()) << index_->lastError();
    }

    // Begin and end in seconds after the epoch of the made units.
    std::vector<std::pair<double, double>> recorded(int camera) const
    {
        std::vector<std::pair<double, double>> found;
        for (const RecordedInterval& interval : index_->recordings(camera, 0))
        {
            found.emplace_back(secondsOf(interval.begin - MadeUnits::epoch),
                               secondsOf(interval.end - MadeUnits::epoch));
        }
        return found;
    }

    std::vector<std::string> files() const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path()))
        {
            if (entry.path().extension() == ".mkv")
            {
                found.push_back(entry.path().string());
            }
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    // Takes all that is left, as another program may.
    void fillTheRest(const std::string& name)
    {
        std::ofstream other(folder_ / name, std::ios::binary);
        const std::string block(4096, 'x');
        while (other.write(block.data(), static_cast<std::streamsize>(block.size())).flush())
        {
        }
    }

    // Before the folder goes, which lies below it.
    TemporaryFolder folder_;
    PrivateMounts mounts_;
    std::shared_ptr<RecordingIndex> index_;
    std::shared_ptr<SegmentLedger> ledger_;
    std::shared_ptr<RecordingRoom> room_;
    test::ManualClock clock_;
    Recorder::Options options_;
    RecordingDisk disk_{diskThatHoldsNoFiles()};
};

TEST_F(FullDiskTest, OldestGoFirstAndRecordingGoesOnWithoutAGap)
{
    const auto source = std::make_shared<RecordedStreamFake>();
    CapturedErrors log;
    const auto recorder = record(1, source);
    // About 250 kB a second: three times what the disk holds.
    for (int i = 0; i < 96; ++i)
    {
        source->giveMedia(i, i + 1, 10000);
        source->drain();
    }
    stop(*recorder);
    ASSERT_THAT(recorded(1), SizeIs(1)) << "no gap";
    EXPECT_GT(recorded(1)[0].first, 60) << "the oldest are gone";
    EXPECT_LT(recorded(1)[0].first, 85) << "and no more than were needed";
    EXPECT_EQ(recorded(1)[0].second, 96);
    EXPECT_EQ(index_->all().size(), files().size());
    EXPECT_THAT(log.linesWith("recording stopped"), IsEmpty());
    EXPECT_THAT(log.linesWith("of the oldest recordings made room"), SizeIs(1));
}

TEST_F(FullDiskTest, StreamsOnOneDiskShareItByAge)
{
    const auto busy = std::make_shared<RecordedStreamFake>();
    const auto quiet = std::make_shared<RecordedStreamFake>();
    const auto ofBusy = record(1, busy);
    const auto ofQuiet = record(2, quiet);
    for (int i = 0; i < 90; ++i)
    {
        busy->giveMedia(i, i + 1, 10000);
        quiet->giveMedia(i, i + 1, 1000);
        busy->drain();
        quiet->drain();
    }
    stop(*ofBusy);
    stop(*ofQuiet);
    ASSERT_THAT(recorded(1), SizeIs(1));
    ASSERT_THAT(recorded(2), SizeIs(1));
    EXPECT_EQ(recorded(1)[0].second, 90);
    EXPECT_EQ(recorded(2)[0].second, 90);
    EXPECT_NEAR(recorded(1)[0].first, recorded(2)[0].first, 1.1);
}

TEST_F(FullDiskTest, DiskFilledByOthersIsReportedOnceAndUsedAgainOnceItHasRoom)
{
    const auto source = std::make_shared<RecordedStreamFake>();
    fillTheRest("others");
    CapturedErrors log;
    const auto recorder = record(1, source);
    source->giveMedia(0, 40);
    source->drain();
    EXPECT_THAT(files(), IsEmpty());
    std::filesystem::remove(folder_ / "others");
    source->giveMedia(40, 60);
    stop(*recorder);
    const auto stopped = log.linesWith("recording stopped");
    ASSERT_THAT(stopped, SizeIs(1));
    EXPECT_THAT(stopped[0], HasSubstr("No space left on device"));
    EXPECT_THAT(log.linesWith("recording goes on"), SizeIs(1));
    ASSERT_THAT(recorded(1), SizeIs(1));
    EXPECT_LT(recorded(1)[0].first, 44);
    EXPECT_EQ(recorded(1)[0].second, 60);
}

TEST_F(FullDiskTest, IndexThatFoundNoRoomMissesNothing)
{
    const auto source = std::make_shared<RecordedStreamFake>();
    const auto recorder = record(1, source);
    source->giveMedia(0, 10, 10000);
    source->drain();
    fillTheRest("others");
    source->giveMedia(10, 20, 10000);
    source->drain();
    stop(*recorder);
    ASSERT_THAT(recorded(1), SizeIs(1));
    EXPECT_EQ(recorded(1)[0].second, 20);
    EXPECT_EQ(index_->all().size(), files().size());
    EXPECT_TRUE(index_->unclosed().empty());
}

TEST_F(FullDiskTest, SegmentThatIsPlayedGoesLast)
{
    const auto source = std::make_shared<RecordedStreamFake>();
    const auto recorder = record(1, source);
    source->giveMedia(0, 10, 10000);
    source->drain();
    const std::string played = files().front();
    const int file = ::open(played.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(file, 0);
    EXPECT_TRUE(FileUse::isOpenElsewhere(played));
    for (int i = 10; i < 60; ++i)
    {
        source->giveMedia(i, i + 1, 10000);
        source->drain();
    }
    EXPECT_EQ(files().front(), played);
    ::close(file);
    EXPECT_FALSE(FileUse::isOpenElsewhere(played));
    for (int i = 60; i < 90; ++i)
    {
        source->giveMedia(i, i + 1, 10000);
        source->drain();
    }
    stop(*recorder);
    EXPECT_FALSE(std::filesystem::exists(played));
    EXPECT_EQ(recorded(1).back().second, 90);
}

TEST_F(FullDiskTest, PlayedSegmentsGoWhereNothingElseIsLeft)
{
    const auto source = std::make_shared<RecordedStreamFake>();
    const auto recorder = record(1, source);
    source->giveMedia(0, 5, 10000);
    source->drain();
    stop(*recorder);
    std::vector<int> players;
    for (const std::string& path : files())
    {
        players.push_back(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    }
    ASSERT_THAT(players, SizeIs(5));
    EXPECT_TRUE(room_->make(true));
    EXPECT_LT(files().size(), 5U);
    for (const int player : players)
    {
        ::close(player);
    }
}

TEST_F(FullDiskTest, WhatIsBeingWrittenAndOtherFilesStay)
{
    const auto source = std::make_shared<RecordedStreamFake>();
    options_.segmentLength = 3600 * second;
    const auto recorder = record(1, source);
    source->giveMedia(0, 5, 10000);
    source->drain();
    std::ofstream(folder_ / "1/0/notes.txt") << "somebody's";
    ASSERT_THAT(files(), SizeIs(1));
    EXPECT_FALSE(room_->make(true));
    EXPECT_THAT(files(), SizeIs(1));
    EXPECT_TRUE(std::filesystem::exists(folder_ / "1/0/notes.txt"));
    stop(*recorder);
}

TEST_F(FullDiskTest, RoomIsMadeAlsoWhereTheIndexCannotBeRead)
{
    const auto source = std::make_shared<RecordedStreamFake>();
    ledger_->setIndex(nullptr);
    const auto recorder = record(1, source);
    for (int i = 0; i < 60; ++i)
    {
        source->giveMedia(i, i + 1, 10000);
        source->drain();
    }
    endRecording(*recorder);
    EXPECT_GT(files().size(), 15U);
    EXPECT_LT(files().size(), 35U);
    ledger_->setIndex(index_);
    // Entering them may itself make room.
    for (int i = 0; i < 10 && ledger_->kept() > 0; ++i)
    {
        EXPECT_TRUE(ledger_->flush());
    }
    EXPECT_EQ(index_->all().size(), files().size());
}

TEST_F(FullDiskTest, FileNumbersThatRunOutAreAFullDiskToo)
{
    mounts_.unmount(folder_.path());
    ASSERT_TRUE(mounts_.mount(folder_.path(), "size=8m,nr_inodes=24"));
    const auto source = std::make_shared<RecordedStreamFake>();
    ledger_->setIndex(nullptr);
    const auto recorder = record(1, source);
    for (int i = 0; i < 60; ++i)
    {
        source->giveMedia(i, i + 1);
        source->drain();
    }
    endRecording(*recorder);
    EXPECT_GE(files().size(), 17U) << "all but the root's and those of two folders, and room for four";
    EXPECT_EQ(files().back(), folder_ / "1/0/20260101T000059.123456Z.mkv");
}

}  // namespace
}  // namespace refhost

#include "refhost/recording/RecordingService.h"

#include <fmt/core.h>
#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <thread>

#include "hostapi/description/MediaInfoTool.h"
#include "refhost/base/ChangeSignal.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/HostStatus.h"
#include "refhost/media/Device.h"
#include "tests/CapturedErrors.h"
#include "tests/PrivateMounts.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/recording/DiskCalls.h"
#include "tests/refhost/recording/RecordedStreamFake.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::SizeIs;

class FakeStreams : public StreamDirectory
{
public:
    std::shared_ptr<StreamSource> find(int, int streamId) override
    {
        return streams.at(streamId);
    }

    std::map<int, std::shared_ptr<RecordedStreamFake>> streams{{0, std::make_shared<RecordedStreamFake>()},
                                                               {1, std::make_shared<RecordedStreamFake>()}};
};

class RecordingServiceTest : public testing::Test
{
protected:
    RecordingServiceTest()
    {
        DiskCalls::instance().reset();
        config_ = ServerConfig::embedded();
        config_.recording.directory = folder_ / "kept";
        config_.recording.segment = 1;
    }

    void start()
    {
        service_ = std::make_unique<RecordingService>(config_, streams_, pauses_);
        service_->start();
    }

    void startRecording()
    {
        start();
        ASSERT_TRUE(recorded().waitUntilAttached());
        waitFor([] { return Device::recordings() && Device::recordings()->isComplete(); });
    }

    // Ten seconds at most.
    static void waitFor(const std::function<bool()>& condition)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition() && std::chrono::steady_clock::now() < end)
        {
            std::this_thread::yield();
        }
        EXPECT_TRUE(condition());
    }

    RecordedStreamFake& recorded() const
    {
        return *streams_->streams.at(0);
    }

    static constexpr std::chrono::milliseconds soon{10};
    static constexpr std::chrono::hours notInThisTest{1};
    TemporaryFolder folder_;
    ServerConfig config_;
    RecordingService::Pauses pauses_{soon, soon, notInThisTest, std::chrono::seconds(20)};
    std::shared_ptr<FakeStreams> streams_ = std::make_shared<FakeStreams>();
    std::unique_ptr<RecordingService> service_;
};

WallTime twoHoursAgo()
{
    return HostClock::system().wallNow() - std::chrono::hours(2);
}

TEST_F(RecordingServiceTest, StreamsAreRecordedAsConfiguredAndTheIndexIsPublished)
{
    startRecording();
    EXPECT_FALSE(streams_->streams.at(1)->isAttached());
    const std::shared_ptr<RecordingIndex> index = Device::recordings();
    ASSERT_TRUE(index);
    recorded().giveMedia(0, 2);
    service_->stop();
    EXPECT_EQ(index->all().size(), 2U);
    EXPECT_EQ(Device::recordings(), nullptr);
    EXPECT_FALSE(recorded().isAttached());
}

TEST_F(RecordingServiceTest, RecordingsAreExpectedUntilTheIndexWasOpenedOrCannotBe)
{
    for (const bool opens : {true, false})
    {
        config_.recording.directory = folder_ / (opens ? "good" : "bad");
        if (!opens)
        {
            std::ofstream(config_.recording.directory) << "in the way";
        }
        RecordInfo record;
        record.setRecordEndTime(10);
        MediaInfo info;
        service_ = std::make_unique<RecordingService>(config_, streams_, pauses_);
        EXPECT_TRUE(Device::recordingsExpected());
        EXPECT_EQ(MediaInfoTool().createPlaybackMediaInfo(record, info), hostStreamNotReady);
        std::atomic<int> announced{0};
        const int subscription = ChangeSignal::instance().subscribe([&] { ++announced; });
        service_->start();
        waitFor([] { return !Device::recordingsExpected(); });
        EXPECT_EQ(Device::recordings() != nullptr, opens);
        waitFor([&] { return announced > 0; });
        ChangeSignal::instance().unsubscribe(subscription);
        service_.reset();
        EXPECT_FALSE(Device::recordingsExpected());
    }
}

TEST_F(RecordingServiceTest, WithoutAnythingToRecordNoDirectoryIsMade)
{
    config_.cameras[0].streams[0].record = RecordMode::never;
    start();
    EXPECT_FALSE(Device::recordingsExpected());
    service_->stop();
    EXPECT_FALSE(std::filesystem::exists(folder_ / "kept"));
}

TEST_F(RecordingServiceTest, EarlierRecordingsArePublishedAlsoWhereNothingIsRecordedNow)
{
    startRecording();
    service_->stop();
    config_.cameras[0].streams[0].record = RecordMode::never;
    start();
    waitFor([] { return Device::recordings() != nullptr; });
}

TEST_F(RecordingServiceTest, OldestRecordingsGoAsSegmentsClose)
{
    config_.recording.maxSize = 1048576;
    startRecording();
    const std::shared_ptr<RecordingIndex> index = Device::recordings();
    for (int i = 0; i < 8; ++i)
    {
        recorded().giveMedia(i, i + 1, 10000);
        recorded().drain();
    }
    // Old ones go when a segment closes; what the index does not know by then goes when the next one does.
    const auto isSmall = [&]
    {
        const std::vector<RecordedSegment> segments = index->all();
        return !segments.empty() && segments.front().begin > MadeUnits::at(0) &&
               index->totalBytes() <= 1048576;
    };
    bool small = false;
    for (int i = 8; i < 200 && !small; ++i)
    {
        recorded().giveMedia(i, i + 1, 10000);
        recorded().drain();
        for (int look = 0; look < 50 && !small; ++look)
        {
            small = isSmall();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    EXPECT_TRUE(small);
    service_->stop();
}

TEST_F(RecordingServiceTest, RecordingsGrowTooOldAlsoWhereNothingIsRecordedAnyMore)
{
    pauses_.anyway = soon;
    config_.recording.maxAge = 3600;
    config_.cameras[0].streams[0].record = RecordMode::never;
    std::filesystem::create_directory(config_.recording.directory);
    std::ofstream(config_.recording.directory + "/index.db").close();
    start();
    waitFor([] { return Device::recordings() != nullptr; });
    // What is too old at the first sweep already is removed slowly.
    waitFor([&] { return service_->retentions() > 1; });  // the first sweep is over
    const std::shared_ptr<RecordingIndex> index = Device::recordings();
    const std::string path = config_.recording.directory + "/old";
    std::ofstream(path) << "recorded media";
    RecordedSegment segment;
    segment.path = path;
    segment.begin = twoHoursAgo();
    segment.duration = Duration(1);
    segment.closed = true;
    ASSERT_TRUE(index->add(segment));
    waitFor([&] { return !std::filesystem::exists(path); });
    service_->stop();
}

TEST_F(RecordingServiceTest, RecordingThatCannotBeRemovedIsReportedOnce)
{
    pauses_.anyway = soon;
    config_.recording.maxAge = 3600;
    CapturedErrors log;
    startRecording();
    waitFor([&] { return service_->retentions() > 1; });  // the first sweep is over
    for (const char* name : {"stays", "goes"})
    {
        RecordedSegment segment;
        segment.path = config_.recording.directory + "/" + name;
        segment.begin = twoHoursAgo();
        segment.duration = Duration(1);
        segment.closed = true;
        std::filesystem::create_directory(segment.path);
        std::ofstream(segment.path + "/full").close();
        ASSERT_TRUE(Device::recordings()->add(segment));
    }
    const int before = service_->retentions();
    waitFor([&] { return service_->retentions() > before + 3; });
    service_->stop();
    EXPECT_THAT(log.linesWith("cannot be removed"), SizeIs(1));
}

TEST_F(RecordingServiceTest, CorruptIndexIsRebuiltFromTheFiles)
{
    startRecording();
    recorded().giveMedia(0, 2);
    service_->stop();
    std::ofstream(config_.recording.directory + "/index.db") << std::string(4096, 'x');
    CapturedErrors log;
    startRecording();
    EXPECT_THAT(Device::recordings()->all(), SizeIs(2));
    service_->stop();
    EXPECT_THAT(log.linesWith("index.db.damaged"), SizeIs(1));
    EXPECT_THAT(log.linesWith("2 unknown adopted"), SizeIs(1));
}

TEST_F(RecordingServiceTest, SecondServerLeavesTheFolderAloneUntilTheFirstIsGone)
{
    startRecording();
    recorded().giveMedia(0, 2);
    recorded().drain();
    const std::shared_ptr<RecordingIndex> index = Device::recordings();
    waitFor([&] { return index->unclosed().size() == 1; });
    CapturedErrors log;
    const auto otherStreams = std::make_shared<FakeStreams>();
    RecordingService second(config_, otherStreams, pauses_);
    second.start();
    waitFor([&] { return second.attempts() > 3; });
    EXPECT_FALSE(otherStreams->streams.at(0)->isAttached());
    EXPECT_EQ(index->unclosed().size(), 1U);
    service_->stop();
    EXPECT_TRUE(otherStreams->streams.at(0)->waitUntilAttached());
    second.stop();
    EXPECT_THAT(log.linesWith("another server (process "), SizeIs(1));
}

TEST_F(RecordingServiceTest, LostIndexIsRebuiltAlsoWhereNothingIsRecordedNow)
{
    startRecording();
    recorded().giveMedia(0, 3);
    service_->stop();
    for (const char* part : {"", "-wal", "-shm"})
    {
        std::filesystem::remove(config_.recording.directory + "/index.db" + part);
    }
    config_.cameras[0].streams[0].record = RecordMode::never;
    start();
    EXPECT_TRUE(Device::recordingsExpected() || Device::recordings()) << "who asks at once waits";
    waitFor([] { return Device::recordings() && Device::recordings()->isComplete(); });
    EXPECT_THAT(Device::recordings()->all(), SizeIs(3));
    service_->stop();
}

TEST_F(RecordingServiceTest, LockedIndexAtTheStartHoldsUpNoRecording)
{
    startRecording();
    service_->stop();
    std::string error;
    const auto other =
        SqliteDatabase::open(config_.recording.directory + "/index.db", SqliteDatabase::Access::write, error);
    ASSERT_TRUE(other && other->execute("PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE")) << error;
    CapturedErrors log;
    start();
    ASSERT_TRUE(recorded().waitUntilAttached());
    recorded().giveMedia(0, 5);
    recorded().drain();
    waitFor([&] { return service_->attempts() > 2; });
    EXPECT_TRUE(Device::recordingsExpected()) << "who asks waits";
    ASSERT_TRUE(other->execute("ROLLBACK; PRAGMA locking_mode=NORMAL; SELECT 1 FROM segment;"));
    waitFor([] { return Device::recordings() && Device::recordings()->isComplete(); });
    const std::shared_ptr<RecordingIndex> index = Device::recordings();
    service_->stop();
    EXPECT_THAT(index->recordings(1, 0), SizeIs(1));
    EXPECT_THAT(index->all(), SizeIs(5));
    EXPECT_THAT(log.linesWith("only recorded: "), SizeIs(1));
}

class MountedRecordingServiceTest : public RecordingServiceTest
{
protected:
    void SetUp() override
    {
        if (!mounts_.possible())
        {
            GTEST_SKIP() << mounts_.why();
        }
        disk_ = folder_ / "disk";
        std::filesystem::create_directory(disk_);
        config_.recording.directory = disk_ + "/kept";
        ASSERT_TRUE(mounts_.mount(disk_, "size=4m"));
    }

    PrivateMounts mounts_;
    std::string disk_;
};

TEST_F(MountedRecordingServiceTest, NothingIsRecordedBelowTheMountPointOfADiskThatWasTakenAway)
{
    CapturedErrors log;
    startRecording();
    recorded().giveMedia(0, 3);
    recorded().drain();
    ASSERT_TRUE(mounts_.unmount(disk_));
    recorded().giveMedia(3, 8);
    waitFor([&] { return !recorded().isAttached(); });
    const int before = service_->attempts();
    waitFor([&] { return service_->attempts() > before + 3; });
    EXPECT_TRUE(std::filesystem::is_empty(disk_)) << "the root's disk is left alone";
    EXPECT_EQ(Device::recordings(), nullptr);

    ASSERT_TRUE(mounts_.mount(disk_, "size=4m"));
    ASSERT_TRUE(recorded().waitUntilAttached());
    recorded().giveMedia(20, 23);
    recorded().drain();
    service_->stop();
    EXPECT_TRUE(std::filesystem::exists(disk_ + "/kept/index.db"));
    EXPECT_THAT(log.linesWith("its disk is not mounted any more"), SizeIs(1));
    EXPECT_THAT(log.linesWith("which can be written now"), SizeIs(1));
}

TEST_F(MountedRecordingServiceTest, ServerThatStartsOnAFullDiskRemovesTheOldestAndRecords)
{
    mounts_.unmount(disk_);
    ASSERT_TRUE(mounts_.mount(disk_, "size=4m,nr_inodes=20"));
    const std::string folder = config_.recording.directory + "/1/0";
    std::filesystem::create_directories(folder);
    const std::string block(std::size_t{256} * 1024, 'x');
    int files = 0;
    for (bool room = true; room; ++files)
    {
        std::ofstream old(folder + fmt::format("/20200101T0000{:02}.000000Z.mkv", files), std::ios::binary);
        room = !old.write(block.data(), static_cast<std::streamsize>(block.size())).flush().fail();
    }
    startRecording();
    recorded().giveMedia(0, 3, 10000);
    recorded().drain();
    service_->stop();
    std::string error;
    const auto index = RecordingIndex::openToRead(config_.recording.directory, error);
    ASSERT_TRUE(index) << error;
    EXPECT_THAT(index->all(), SizeIs(3));
    EXPECT_FALSE(std::filesystem::exists(folder + "/20200101T000000.000000Z.mkv"));
    EXPECT_TRUE(std::filesystem::exists(folder + fmt::format("/20200101T0000{:02}.000000Z.mkv", files - 2)))
        << "no more than needed";
}

TEST_F(RecordingServiceTest, FolderThatWasReplacedIsRecordedToAgain)
{
    startRecording();
    recorded().giveMedia(0, 3);
    recorded().drain();
    std::filesystem::rename(config_.recording.directory, folder_ / "moved");
    recorded().giveMedia(3, 8);
    waitFor([&] { return std::filesystem::exists(config_.recording.directory + "/index.db"); });
    ASSERT_TRUE(recorded().waitUntilAttached(2));
    recorded().giveMedia(20, 23);
    recorded().drain();
    service_->stop();
    std::string error;
    const auto moved = RecordingIndex::openToRead(folder_ / "moved", error);
    ASSERT_TRUE(moved) << error;
    EXPECT_TRUE(moved->unclosed().empty()) << "what was recorded before is whole";
    EXPECT_GE(moved->all().size(), 3U);
    const auto made = RecordingIndex::openToRead(config_.recording.directory, error);
    ASSERT_TRUE(made) << error;
    EXPECT_FALSE(made->all().empty());
}

TEST_F(RecordingServiceTest, EndDoesNotWaitForADiskThatHangs)
{
    pauses_.end = std::chrono::milliseconds(50);
    CapturedErrors log;
    DiskCalls::instance().hang("write", "/1/0/");
    startRecording();
    recorded().giveMedia(0, 2);
    ASSERT_TRUE(DiskCalls::instance().waitForHanging(1));
    service_->stop();
    EXPECT_THAT(log.linesWith("does not answer"), SizeIs(1));
    EXPECT_FALSE(recorded().isAttached());
    DiskCalls::instance().release();
    service_.reset();
}

TEST_F(RecordingServiceTest, RecordingWaitsForADiskThatHungAndGoesOnWhenItAnswers)
{
    config_.cameras[0].streams[1].record = RecordMode::always;
    pauses_.end = std::chrono::milliseconds(50);
    CapturedErrors log;
    startRecording();
    RecordedStreamFake& other = *streams_->streams.at(1);
    DiskCalls::instance().hang("write", "/1/0/");
    recorded().giveMedia(0, 2);
    ASSERT_TRUE(DiskCalls::instance().waitForHanging(1));
    std::filesystem::rename(config_.recording.directory, folder_ / "moved");
    other.giveMedia(0, 3);
    waitFor([&] { return !other.isAttached(); });
    const int before = service_->attempts();
    waitFor([&] { return service_->attempts() > before + 3; });
    EXPECT_FALSE(other.isAttached()) << "nothing piles up meanwhile";
    DiskCalls::instance().release();
    ASSERT_TRUE(recorded().waitUntilAttached(2));
    ASSERT_TRUE(other.waitUntilAttached(2));
    recorded().giveMedia(20, 23);
    recorded().drain();
    waitFor([] { return Device::recordings() && !Device::recordings()->all().empty(); });
    service_->stop();
    EXPECT_THAT(log.linesWith("does not answer"), SizeIs(1));
    EXPECT_THAT(log.linesWith("answers again"), SizeIs(1));
}

TEST_F(RecordingServiceTest, DirectoryThatCannotBeMadeIsReportedOnceAndRetried)
{
    std::ofstream(folder_ / "kept") << "in the way";
    CapturedErrors log;
    start();
    waitFor([&] { return service_->attempts() > 3; });
    EXPECT_EQ(Device::recordings(), nullptr);
    std::filesystem::remove(folder_ / "kept");
    ASSERT_TRUE(recorded().waitUntilAttached());
    service_->stop();
    EXPECT_THAT(log.linesWith("nothing is recorded: "), SizeIs(1));
    const std::vector<std::string> works = log.linesWith("one stream is recorded in ");
    ASSERT_THAT(works, SizeIs(1));
    EXPECT_THAT(works[0], HasSubstr("which can be written now"));
}

/// A stream that is recorded around events, with a server that runs.
class EventRecordingTest : public RecordingServiceTest
{
protected:
    using Switch = RecordingControl::Switch;

    EventRecordingTest()
    {
        config_.cameras[0].streams[0].record = RecordMode::events;
        config_.cameras[0].streams[0].preRoll = 2;
        config_.cameras[0].streams[0].postRoll = 1;
    }

    bool isRecording() const
    {
        const auto state = service_->control().state(1, 0);
        return state && state->recording;
    }
};

// The made media are later than the machine's clock: an event ends with the next key frame.
TEST_F(EventRecordingTest, WhatLiesBetweenEventsIsAGap)
{
    startRecording();
    recorded().giveMedia(0, 10);
    EXPECT_EQ(recorded().viewers, 1);
    EXPECT_FALSE(isRecording());

    const auto states = service_->control().noteEvent(1, {});
    ASSERT_EQ(states.size(), 1U);
    EXPECT_EQ(states[0].first, 0);
    EXPECT_TRUE(states[0].second.recording);
    EXPECT_TRUE(isRecording());
    recorded().giveMedia(10, 20);
    EXPECT_FALSE(isRecording());
    service_->control().noteEvent(1, {});
    recorded().giveMedia(20, 30);
    EXPECT_EQ(service_->control().events(), (std::map<int, std::uint64_t>{{1, 2}}));
    EXPECT_TRUE(service_->control().noteEvent(7, {}).empty());

    const std::shared_ptr<RecordingIndex> index = Device::recordings();
    service_->stop();
    const std::vector<RecordedInterval> ranges = index->recordings(1, 0);
    ASSERT_THAT(ranges, SizeIs(2));
    for (const RecordedInterval& range : ranges)
    {
        EXPECT_FALSE(range.growing);
        EXPECT_GE(range.end - range.begin, std::chrono::seconds(2));
        EXPECT_LE(range.end - range.begin, std::chrono::seconds(3));
    }
    EXPECT_EQ(ranges[1].begin - ranges[0].begin, std::chrono::seconds(10));
}

TEST_F(EventRecordingTest, ASwitchRecordsEverythingOrNothingUntilItIsSetBack)
{
    startRecording();
    service_->control().setSwitch(1, Switch::on);
    waitFor([&] { return isRecording(); });
    EXPECT_FALSE(service_->control().state(1, 0)->onEvents);

    service_->control().setSwitch(1, Switch::off);
    waitFor([&] { return !service_->control().state(1, 0); });
    waitFor([&] { return recorded().viewers == 0; });
    EXPECT_TRUE(service_->control().noteEvent(1, {}).empty());

    // It stays where the configuration is read again.
    config_.recording.segment = 2;
    service_->setConfig(config_);
    service_->control().setSwitch(1, Switch::automatic);
    EXPECT_TRUE(recorded().waitUntilAttached(2));
    waitFor([&] { return service_->control().state(1, 0).has_value(); });
    EXPECT_TRUE(service_->control().state(1, 0)->onEvents);
    EXPECT_FALSE(isRecording());
    service_->stop();
    EXPECT_FALSE(service_->control().state(1, 0));
}

TEST_F(EventRecordingTest, AChangedConfigurationTakesEffectWithoutAnEndOfTheRecorder)
{
    startRecording();
    config_.cameras[0].streams[0].record = RecordMode::always;
    service_->setConfig(config_);
    waitFor([&] { return isRecording(); });
    config_.cameras[0].streams[0].record = RecordMode::never;
    service_->setConfig(config_);
    waitFor([&] { return !service_->control().state(1, 0); });
    service_->stop();
}

TEST_F(EventRecordingTest, ACameraThatIsRemovedLosesItsSwitch)
{
    startRecording();
    service_->control().setSwitch(1, Switch::off);
    config_.cameras[0].id = 2;
    service_->setConfig(config_);
    waitFor([&] { return service_->control().switchOf(1) == Switch::automatic; });
    service_->stop();
}

TEST(RecordingControl, StreamsThatAreNeverRecordedAreNotSwitchedOn)
{
    using Switch = RecordingControl::Switch;
    EXPECT_EQ(RecordingControl::modeOf(Switch::on, RecordMode::never), RecordMode::never);
    EXPECT_EQ(RecordingControl::modeOf(Switch::on, RecordMode::events), RecordMode::always);
    EXPECT_EQ(RecordingControl::modeOf(Switch::off, RecordMode::always), RecordMode::never);
    EXPECT_EQ(RecordingControl::modeOf(Switch::automatic, RecordMode::events), RecordMode::events);
}

}  // namespace
}  // namespace refhost

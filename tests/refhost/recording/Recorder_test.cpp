#include "refhost/recording/Recorder.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>

#include "refhost/recording/SegmentMeasure.h"
#include "tests/CapturedErrors.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/recording/DiskCalls.h"
#include "tests/refhost/recording/RecordedStreamFake.h"
#include "tests/refhost/recording/RecorderEnd.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::SizeIs;

class RecorderTest : public testing::Test
{
protected:
    static constexpr Duration second = MadeUnits::second;

    RecorderTest()
    {
        std::string error;
        index_ = RecordingIndex::open(folder_.path(), error);
        ledger_->setIndex(index_);
        options_.segmentLength = 4 * second;
        options_.retry = 3 * second;
        options_.clock = &clock_;
        options_.gather = Duration::zero();
        DiskCalls::instance().reset();
    }
    ~RecorderTest() override
    {
        DiskCalls::instance().reset();
        stop();
    }

    void start()
    {
        hooks_.segmentClosed = [this] { ++closed_; };
        recorder_ = Recorder::start({7, 2, source_, "camera 7/2"}, ledger_, disk_, options_, hooks_);
    }
    void stop()
    {
        if (recorder_)
        {
            endRecording(*recorder_);
            recorder_.reset();
        }
        EXPECT_TRUE(ledger_->flush());
    }

    // What was recorded, in seconds after the epoch of the made units.
    std::vector<std::pair<double, double>> recordings() const
    {
        std::vector<std::pair<double, double>> found;
        for (const RecordedInterval& interval : index_->recordings(7, 2))
        {
            found.emplace_back(secondsOf(interval.begin - MadeUnits::epoch),
                               secondsOf(interval.end - MadeUnits::epoch));
        }
        return found;
    }

    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
    test::ManualClock clock_;
    std::shared_ptr<SegmentLedger> ledger_ =
        std::make_shared<SegmentLedger>(folder_.path(), SegmentLedger::Options(), std::function<void()>());
    Recorder::Hooks hooks_;
    std::shared_ptr<RecordedStreamFake> source_ = std::make_shared<RecordedStreamFake>();
    Recorder::Options options_;
    std::atomic<int> closed_{0};
    RecordingDisk disk_{promptDisk()};
    std::shared_ptr<Recorder> recorder_;
};

using RecordedMedia = std::vector<std::pair<double, double>>;

TEST_F(RecorderTest, SourceRunsAsLongAsItIsRecorded)
{
    start();
    EXPECT_EQ(source_->viewers, 1);
    EXPECT_TRUE(source_->isAttached());
    stop();
    EXPECT_EQ(source_->viewers, 0);
    EXPECT_FALSE(source_->isAttached());
}

TEST_F(RecorderTest, SegmentsFollowEachOtherFromTheFirstFrameToTheLast)
{
    start();
    source_->giveMedia(0, 10);
    stop();
    const std::vector<RecordedSegment> segments = index_->all();
    ASSERT_EQ(segments.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i)
    {
        EXPECT_TRUE(segments[i].closed);
        EXPECT_EQ(segments[i].cameraId, 7);
        EXPECT_EQ(segments[i].streamId, 2);
        EXPECT_EQ(segments[i].begin, MadeUnits::at(4.0 * static_cast<double>(i)));
        EXPECT_EQ(segments[i].duration, (i == 2 ? 2 : 4) * second);
        EXPECT_EQ(static_cast<std::uintmax_t>(segments[i].bytes),
                  std::filesystem::file_size(segments[i].path));
        SegmentMeasure measure;
        ASSERT_EQ(SegmentMeasure::take(segments[i].path, measure), SegmentMeasure::Result::media);
        EXPECT_EQ(measure.duration, segments[i].duration);
    }
    EXPECT_EQ(segments[0].path, folder_ / "7/2/20260101T000000.123456Z.mkv");
    EXPECT_EQ(closed_, 3);
}

TEST_F(RecorderTest, SegmentCanBePlayedAndFoundWhileItIsWritten)
{
    start();
    source_->giveMedia(0, 2.8);
    source_->drain();
    EXPECT_TRUE(ledger_->flush());
    const std::vector<RecordedSegment> open = index_->unclosed();
    ASSERT_EQ(open.size(), 1U);
    EXPECT_GE(open[0].duration, 3 * second / 2);
    EXPECT_GT(open[0].bytes, 25 * 1000);
    SegmentMeasure measure;
    ASSERT_EQ(SegmentMeasure::take(open[0].path, measure), SegmentMeasure::Result::media);
    EXPECT_GE(measure.duration, 5 * second / 2);
    EXPECT_LE(measure.duration, 14 * second / 5);
}

TEST_F(RecorderTest, SingleFramesOfASourceThatKeepsStoppingAreKnownToTheIndex)
{
    start();
    for (int i = 0; i < 3; ++i)
    {
        EncodedUnit frame = *source_->made.frame(i * 10.0, true);
        frame.duration = Duration::zero();
        source_->give(std::make_shared<EncodedUnit>(frame));
        source_->interrupt();
    }
    stop();
    EXPECT_THAT(index_->all(), SizeIs(3));
    for (const RecordedSegment& segment : index_->all())
    {
        EXPECT_TRUE(segment.closed);
        EXPECT_GT(segment.duration, Duration::zero());
    }
}

TEST_F(RecorderTest, StopOfTheSourceIsAGapAndTheNewStartHasItsTrueTime)
{
    start();
    source_->giveMedia(0, 2.4);
    source_->interrupt();
    source_->giveMedia(61, 63);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 2.4}, {61, 63}}));
}

TEST_F(RecorderTest, UnwritableDirectoryIsReportedOnceAndUsedOnceItIsWritable)
{
    std::ofstream(folder_ / "7") << "in the way";
    CapturedErrors log;
    start();
    source_->giveMedia(0, 20);
    source_->drain();
    EXPECT_EQ(recordings(), RecordedMedia());
    std::filesystem::remove(folder_ / "7");
    source_->giveMedia(20, 30);
    stop();
    const std::vector<std::string> lines = log.linesWith("camera 7/2");
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_THAT(lines[0], HasSubstr("recording stopped: "));
    EXPECT_THAT(lines[0], HasSubstr("/7"));
    EXPECT_THAT(lines[1],
                HasSubstr("recording goes on; missing: 2026-01-01T00:00:00Z to 2026-01-01T00:00:2"));
    ASSERT_THAT(recordings(), SizeIs(1));
    EXPECT_LE(recordings()[0].first, 24);
    EXPECT_EQ(recordings()[0].second, 30);
}

TEST_F(RecorderTest, DirectoryThatIsTakenAwayStopsTheRecordingUntilItIsBack)
{
    CapturedErrors log;
    start();
    source_->giveMedia(0, 5);
    source_->drain();
    std::filesystem::remove_all(folder_ / "7");
    std::ofstream(folder_ / "7") << "in the way";
    source_->giveMedia(5, 20);
    source_->drain();
    std::filesystem::remove(folder_ / "7");
    source_->giveMedia(20, 30);
    stop();
    EXPECT_THAT(log.linesWith("recording stopped"), SizeIs(1));
    EXPECT_THAT(log.linesWith("missing: 2026-01-01T00:00:0"), SizeIs(1));
    EXPECT_EQ(recordings().back().second, 30);
}

TEST_F(RecorderTest, MediaAreBroughtToTheDiskWhileTheyComeAndWhenASegmentEnds)
{
    options_.segmentLength = 8 * second;
    start();
    source_->giveMedia(0, 3);
    EXPECT_TRUE(DiskCalls::instance().waitForSync(folder_ / "7/2/20260101T000000.123456Z.mkv", 2.9));
    source_->giveMedia(3, 9.5);
    EXPECT_TRUE(DiskCalls::instance().waitForSync(folder_ / "7/2/20260101T000000.123456Z.mkv", 8));
    EXPECT_TRUE(DiskCalls::instance().waitForSync(folder_ / "7/2/20260101T000008.123456Z.mkv", 1.4));
    stop();
    EXPECT_TRUE(DiskCalls::instance().waitForSync(folder_ / "7/2/20260101T000008.123456Z.mkv", 1.5));
}

TEST_F(RecorderTest, DiskThatFailsWhenItIsSyncedStopsTheRecording)
{
    // Not tried again while it fails, however soon the failure is noticed.
    options_.retry = 8 * second;
    CapturedErrors log;
    DiskCalls::instance().failSyncs(true);
    start();
    source_->giveMedia(0, 0.4);
    ASSERT_TRUE(DiskCalls::instance().waitForSync(folder_ / "7/2/20260101T000000.123456Z.mkv", 0));
    source_->giveMedia(0.4, 8);
    source_->drain();
    DiskCalls::instance().failSyncs(false);
    source_->giveMedia(8, 20);
    stop();
    EXPECT_THAT(log.linesWith("recording stopped: "), SizeIs(1));
    EXPECT_THAT(log.linesWith("Input/output error"), SizeIs(1));
    EXPECT_THAT(log.linesWith("recording goes on"), SizeIs(1));
    EXPECT_EQ(recordings().back().second, 20);
}

TEST_F(RecorderTest, DiskThatHangsWhenItIsSyncedHoldsUpNoRecording)
{
    DiskCalls::instance().hang("sync", "7/2");
    start();
    source_->giveMedia(0, 0.4);
    ASSERT_TRUE(DiskCalls::instance().waitForHanging(1));
    source_->giveMedia(0.4, 10);
    endRecording(*recorder_);
    EXPECT_TRUE(ledger_->flush());
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 10}}));
}

TEST_F(RecorderTest, UnitsAreGatheredAndWrittenTogether)
{
    options_.gather = std::chrono::hours(1);
    options_.maxGathered = 50000;
    start();
    source_->giveMedia(0, 1);
    EXPECT_EQ(source_->unitsAlive(), 25) << "nothing is written before its time";
    EXPECT_FALSE(std::filesystem::exists(folder_ / "7"));
    source_->giveMedia(1, 2.4);
    EXPECT_TRUE(DiskCalls::instance().waitForSync(folder_ / "7/2/20260101T000000.123456Z.mkv", 1))
        << "unless it is a lot";
    source_->giveMedia(2.4, 3);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 3}})) << "or the recording ends";
}

int threadsOfThisProcess()
{
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<int>(std::distance(begin(threads), end(threads)));
}

TEST_F(RecorderTest, RecordersOfADiskShareItsThreads)
{
    start();
    source_->giveMedia(0, 1);
    source_->drain();
    const int before = threadsOfThisProcess();
    std::vector<std::shared_ptr<RecordedStreamFake>> sources;
    std::vector<std::shared_ptr<Recorder>> recorders;
    for (int camera = 100; camera < 150; ++camera)
    {
        sources.push_back(std::make_shared<RecordedStreamFake>());
        recorders.push_back(
            Recorder::start({camera, 0, sources.back(), "another"}, ledger_, disk_, options_, {}));
        sources.back()->giveMedia(0, 1);
    }
    for (const auto& source : sources)
    {
        source->drain();
    }
    EXPECT_LE(threadsOfThisProcess(), before + 1);
    for (const auto& recorder : recorders)
    {
        recorder->stop();
    }
    for (const auto& recorder : recorders)
    {
        endRecording(*recorder);
    }
    EXPECT_TRUE(ledger_->flush());
    EXPECT_EQ(index_->all().size(), 50U + 1U);
}

TEST_F(RecorderTest, DiskThatHangsHoldsUpItsOwnRecordersAlone)
{
    start();
    const auto hung = std::make_shared<RecordedStreamFake>();
    const auto hungToo = std::make_shared<RecordedStreamFake>();
    RecordingDisk hanging(promptDisk());
    DiskCalls::instance().hang("write", "/9/");
    const auto first = Recorder::start({9, 0, hung, "camera 9/0"}, ledger_, hanging, options_, {});
    const auto other = Recorder::start({9, 1, hungToo, "camera 9/1"}, ledger_, hanging, options_, {});
    hung->giveMedia(0, 2);
    hungToo->giveMedia(0, 2);
    ASSERT_TRUE(DiskCalls::instance().waitForHanging(2)) << "every writer of that disk";
    source_->giveMedia(0, 10);
    endRecording(*recorder_);
    EXPECT_TRUE(ledger_->flush());
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 10}}));

    first->stop();
    other->stop();
    EXPECT_FALSE(first->awaitEnd(std::chrono::steady_clock::now() + std::chrono::milliseconds(20)));
    DiskCalls::instance().release();
    endRecording(*first);
    endRecording(*other);
    EXPECT_TRUE(ledger_->flush());
    EXPECT_EQ(index_->recordings(9, 1).size(), 1U) << "nothing is lost by it";
}

TEST_F(RecorderTest, DiskThatHangsFillsTheMemoryNoMoreWithManyStreams)
{
    RecordingDisk::Options small = promptDisk();
    small.maxQueued = 100000;
    RecordingDisk hanging(small);
    DiskCalls::instance().hang("write", "/9/");
    std::vector<std::shared_ptr<RecordedStreamFake>> sources;
    std::vector<std::shared_ptr<Recorder>> recorders;
    int alive = 0;
    for (int stream = 0; stream < 10; ++stream)
    {
        sources.push_back(std::make_shared<RecordedStreamFake>());
        recorders.push_back(
            Recorder::start({9, stream, sources.back(), "camera 9"}, ledger_, hanging, options_, {}));
        sources.back()->giveMedia(0, 2);
        alive += sources.back()->unitsAlive();
    }
    EXPECT_GE(alive, 50);
    EXPECT_LE(alive, 100) << "of 1000 bytes each";
    DiskCalls::instance().release();
    for (const auto& source : sources)
    {
        source->drain();
        source->giveMedia(2, 4);
        source->drain();
    }
    for (const auto& recorder : recorders)
    {
        endRecording(*recorder);
    }
    EXPECT_TRUE(ledger_->flush());
    EXPECT_EQ(index_->recordings(9, 9).size(), 1U) << "there is room again";
}

TEST_F(RecorderTest, VideoOfACameraWhoseAudioIsMalformedIsRecorded)
{
    MediaFormat malformed = *MadeUnits::audioFormat(Codec::aac);
    malformed.codecData = {0x12, 0x78};  // a number of channels that there is not
    source_->made.audio = std::make_shared<const MediaFormat>(malformed);
    source_->audio = true;
    CapturedErrors log;
    start();
    source_->giveMedia(0, 10);
    stop();
    EXPECT_THAT(log.linesWith("recording stopped"), SizeIs(0));
    EXPECT_THAT(log.linesWith("the audio's description is malformed"), SizeIs(1));
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 10}}));
}

TEST_F(RecorderTest, MalformedFramesAreLeftOutAndTheRestIsRecorded)
{
    CapturedErrors log;
    start();
    for (int i = 0; i < 10; ++i)
    {
        source_->giveMedia(i, i + 1);
        EncodedUnit empty = *source_->made.frame(i + 0.99, false);
        empty.bytes.clear();
        source_->give(std::make_shared<EncodedUnit>(empty));
    }
    stop();
    EXPECT_THAT(log.linesWith("recording stopped"), SizeIs(0));
    EXPECT_THAT(log.linesWith("is malformed"), SizeIs(1));
    EXPECT_THAT(recordings(), SizeIs(1));
    EXPECT_EQ(index_->all().size(), 3U);
}

class FullDisk
{
public:
    explicit FullDisk(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk()
    {
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before_), 0);
    }

private:
    rlimit before_{};
};

TEST_F(RecorderTest, FullDiskIsReportedOnceAndWrittenMediaStay)
{
    options_.segmentLength = 3600 * second;
    CapturedErrors log;
    start();
    source_->giveMedia(0, 3);
    source_->drain();
    {
        const FullDisk full(70000);
        source_->giveMedia(3, 20);
        source_->drain();
        // Room again: the index catches up with what it missed.
    }
    source_->giveMedia(20, 26);
    stop();
    EXPECT_THAT(log.linesWith("recording stopped"), SizeIs(1));
    EXPECT_THAT(log.linesWith("recording goes on"), SizeIs(1));
    const RecordedMedia recorded = recordings();
    ASSERT_GE(recorded.size(), 2U);
    EXPECT_EQ(recorded.front().first, 0);
    // All that was flushed before, twice a second.
    EXPECT_GE(recorded.front().second, 2.5);
    EXPECT_EQ(recorded.back().second, 26);
    EXPECT_TRUE(index_->unclosed().empty());
}

TEST_F(RecorderTest, DiskThatHangsNeitherHoldsUpTheSourceNorFillsTheMemory)
{
    options_.maxQueued = 100000;
    options_.segmentLength = second;
    std::promise<void> hanging;
    std::promise<void> release;
    std::future<void> released = release.get_future();
    CapturedErrors log;
    hooks_.segmentClosed = [&, first = true]() mutable
    {
        if (std::exchange(first, false))
        {
            hanging.set_value();
            released.wait();
        }
    };
    recorder_ = Recorder::start({7, 2, source_, "camera 7/2"}, ledger_, disk_, options_, hooks_);
    source_->giveMedia(0, 1.04);
    hanging.get_future().wait();
    source_->giveMedia(1.04, 61);
    EXPECT_LE(source_->unitsAlive(), 102);
    release.set_value();
    source_->drain();
    source_->giveMedia(61, 63);
    stop();
    EXPECT_THAT(log.linesWith("the disk is too slow"), SizeIs(1));
    EXPECT_THAT(log.linesWith("the disk was too slow; missing: 2026-01-01T00:00:0"), SizeIs(1));
    EXPECT_THAT(log.linesWith(" to 2026-01-01T00:01:01Z"), SizeIs(1));
    const RecordedMedia recorded = recordings();
    ASSERT_EQ(recorded.size(), 2U);
    EXPECT_EQ(recorded[0].first, 0);
    EXPECT_EQ(recorded[1], std::make_pair(61.0, 63.0));
}

TEST_F(RecorderTest, DamagedFramesAreRecordedAndLoggedWithTheirNumberAndTimes)
{
    CapturedErrors log;
    start();
    source_->giveMedia(0, 1);
    for (int i = 25; i < 75; ++i)
    {
        EncodedUnit damaged = *source_->made.frame(i / 25.0, i % 25 == 0);
        damaged.damaged = i >= 30 && i < 70;
        source_->give(std::make_shared<EncodedUnit>(damaged));
        source_->drain();
    }
    source_->giveMedia(3, 4);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 4}}));
    const std::vector<std::string> lines = log.linesWith("camera 7/2: packets were lost");
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_THAT(lines[0], HasSubstr("a frame is damaged in the recording, 2026-01-01T00:00:01Z"));
    EXPECT_THAT(lines[1], HasSubstr("39 frames are damaged in the recording, 2026-01-01T00:00:01Z to "
                                    "2026-01-01T00:00:02Z"));
}

TEST_F(RecorderTest, UndamagedFramesAreNotLogged)
{
    CapturedErrors log;
    start();
    source_->giveMedia(0, 4);
    stop();
    EXPECT_THAT(log.linesWith("damaged"), SizeIs(0));
}

class EventRecorderTest : public RecorderTest
{
protected:
    EventRecorderTest()
    {
        options_.rolls = EventGate::Rolls{2 * second, 2 * second};
        options_.clock = &media_;
        // The clock follows the media.
        media_.advance(MadeUnits::at(0).time_since_epoch() - media_.now().time_since_epoch());
    }

    void giveUntil(double end)
    {
        source_->giveMedia(given_, end);
        media_.advance(MadeUnits::capturedAt(end) - media_.now());
        given_ = end;
    }

    test::ManualClock media_;
    double given_ = 0;
};

TEST_F(EventRecorderTest, EventsAreRangesFromTheTimeBeforeToTheTimeAfter)
{
    start();
    giveUntil(10);
    EXPECT_FALSE(recorder_->state().recording);
    const Recorder::State state = recorder_->noteEvent({});
    EXPECT_TRUE(state.recording);
    EXPECT_EQ(state.until, MadeUnits::at(12));
    giveUntil(30.4);
    EXPECT_FALSE(recorder_->state().recording);
    recorder_->noteEvent(5 * second);
    giveUntil(60);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{8, 12}, {28, 36}}));
}

TEST_F(EventRecorderTest, EventsThatAreCloseTogetherAreOneRange)
{
    start();
    giveUntil(10);
    recorder_->noteEvent({});
    giveUntil(12.4);
    recorder_->noteEvent({});
    giveUntil(30);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{8, 15}}));
}

TEST_F(EventRecorderTest, AnEventBeforeAnyMediaRequestsAKeyFrame)
{
    start();
    recorder_->noteEvent({});
    EXPECT_EQ(source_->keyFrameRequests, 1);
    giveUntil(10);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 2}}));
}

TEST_F(EventRecorderTest, ASourceThatEndsAtTheEventLeavesWhatCameBefore)
{
    start();
    giveUntil(10);
    source_->interrupt();
    recorder_->noteEvent({});
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{8, 10}}));
}

TEST_F(EventRecorderTest, MediaThatWaitForAnEventAreLetGoAtTheEnd)
{
    start();
    giveUntil(10);
    EXPECT_GT(disk_.preRoll().used(), 0U);
    EXPECT_EQ(disk_.queued().used(), 0U);
    stop();
    EXPECT_EQ(disk_.preRoll().used(), 0U);
    EXPECT_EQ(source_->unitsAlive(), 0);
    EXPECT_EQ(recordings(), RecordedMedia());
}

TEST_F(EventRecorderTest, ALargePreRollDoesNotExceedWhatMayWaitForTheDisk)
{
    options_.maxQueued = 100000;
    start();
    source_->giveMedia(0, 10, 100000);
    media_.advance(10 * second);
    recorder_->noteEvent({});
    given_ = 10;
    giveUntil(20);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{8, 12}}));
}

}  // namespace
}  // namespace refhost

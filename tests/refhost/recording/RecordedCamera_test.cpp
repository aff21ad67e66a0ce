#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iterator>

#include "refhost/playback/SegmentFile.h"
#include "refhost/recording/Recorder.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/capture/StreamFixture.h"
#include "tests/refhost/recording/RecorderEnd.h"

namespace refhost
{
namespace
{

// Passes on what a stream gives and keeps the capture times, so that files can be compared with them.
class CaptureTimes : public EncodedUnitSink
{
public:
    void onEncodedUnit(const EncodedUnitPtr& unit) override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const WallTime date = HostClock::system().wall().mapping().at(unit->captureTime);
        (isVideo(unit->format->codec) ? frames : audioBlocks).push_back(date);
    }
    void onDiscontinuity() override {}

    std::vector<WallTime> frames;
    std::vector<WallTime> audioBlocks;

private:
    std::mutex mutex_;
};

class RecordedCameraTest : public StreamFixture
{
protected:
    static constexpr Duration millisecond = std::chrono::milliseconds(1);

    RecordedCameraTest()
    {
        std::string error;
        index_ = RecordingIndex::open(folder_.path(), error);
        ledger_->setIndex(index_);
        recording_.segmentLength = 800 * millisecond;
    }

    void record()
    {
        source->attachMedia(times_);
        Recorder::Hooks hooks;
        hooks.segmentClosed = [this]
        {
            const std::lock_guard<std::mutex> guard(closedMutex_);
            ++closed_;
            closedChanged_.notify_all();
        };
        recorder_ = Recorder::start({1, 0, source, "camera 1/0"}, ledger_, disk_, recording_, hooks);
    }

    bool waitForSegments(int count)
    {
        std::unique_lock<std::mutex> guard(closedMutex_);
        return closedChanged_.wait_for(guard, std::chrono::seconds(20), [&] { return closed_ >= count; });
    }

    void stopRecording()
    {
        endRecording(*recorder_);
        EXPECT_TRUE(ledger_->flush());
        source->detachMedia(times_.get());
    }

    // Date of every unit in the files, in their order.
    std::vector<WallTime> recorded(bool video) const
    {
        std::vector<WallTime> found;
        for (const RecordedSegment& segment : index_->all())
        {
            std::string error;
            const auto file = SegmentFile::open(segment.path, error);
            EXPECT_TRUE(file) << error;
            CodedUnit unit;
            bool first = true;
            while (file && file->read(unit) == SegmentFile::Result::unit)
            {
                if (unit.video == video)
                {
                    found.push_back(segment.begin + unit.offset);
                    EXPECT_TRUE(!video || !first || unit.key);
                    first = false;
                }
            }
        }
        return found;
    }

    // The files have exactly those units, and each at its time to the millisecond.
    static void expectSame(const std::vector<WallTime>& files, std::vector<WallTime> captured)
    {
        ASSERT_FALSE(files.empty());
        const auto near = [&](WallTime time) { return std::chrono::abs(time - files.front()) < millisecond; };
        captured.erase(captured.begin(), std::find_if(captured.begin(), captured.end(), near));
        ASSERT_LE(files.size(), captured.size());
        for (std::size_t i = 0; i < files.size(); ++i)
        {
            ASSERT_LT(std::chrono::abs(files[i] - captured[i]), millisecond) << i;
        }
    }

    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
    std::shared_ptr<SegmentLedger> ledger_ =
        std::make_shared<SegmentLedger>(folder_.path(), SegmentLedger::Options(), std::function<void()>());
    Recorder::Options recording_;
    std::shared_ptr<CaptureTimes> times_ = std::make_shared<CaptureTimes>();
    RecordingDisk disk_{RecordingDisk::Options()};
    std::shared_ptr<Recorder> recorder_;
    std::mutex closedMutex_;
    std::condition_variable closedChanged_;
    int closed_ = 0;
};

TEST_F(RecordedCameraTest, EveryVideoAndAudioIsRecordedOnceAndAtItsTime)
{
    for (const auto& [video, audio] : {std::pair{Codec::h264, Codec::pcmu},
                                       {Codec::h264, Codec::aac},
                                       {Codec::h265, Codec::pcma},
                                       {Codec::h264, Codec::opus}})
    {
        SCOPED_TRACE(nameOf(audio));
        stream.videoCodec = video;
        stream.audioCodec = audio;
        open();
        closed_ = 0;
        record();
        ASSERT_TRUE(waitForSegments(4));
        stopRecording();
        expectSame(recorded(true), times_->frames);
        expectSame(recorded(false), times_->audioBlocks);
        EXPECT_EQ(index_->recordings(1, 0).size(), 1U);
        EXPECT_EQ(std::count(times_->frames.begin(), times_->frames.end(), index_->all().front().begin), 1);

        for (const RecordedSegment& segment : index_->all())
        {
            std::filesystem::remove(segment.path);
            index_->remove(segment.id);
        }
        times_->frames.clear();
        times_->audioBlocks.clear();
        ChangeSignal::instance().unsubscribe(subscription);
        source.reset();
        recorder_.reset();
        streams.reset();
    }
}

TEST_F(RecordedCameraTest, FrameRateOfTheFilesIsTheCamerasAcrossSegments)
{
    open();
    record();
    ASSERT_TRUE(waitForSegments(4));
    stopRecording();
    const std::vector<WallTime> frames = recorded(true);
    EXPECT_GE(frames.size(), 80U);
    for (std::size_t i = 1; i < frames.size(); ++i)
    {
        EXPECT_NEAR(secondsOf(frames[i] - frames[i - 1]), 0.04, 0.0011) << i;
    }
    const std::vector<RecordedSegment> segments = index_->all();
    for (std::size_t i = 1; i < segments.size(); ++i)
    {
        EXPECT_EQ(segments[i].begin, segments[i - 1].end());
    }
}

TEST_F(RecordedCameraTest, RestartOfASourceStartsASegmentWithItsTrueTime)
{
    stream.source.kind = SourceConfig::Kind::launch;
    stream.source.location =
        "videotestsrc is-live=true num-buffers=30 ! video/x-raw,width=320,height=180,framerate=25/1 ! "
        "identity name=video";
    stream.audioCodec = std::nullopt;
    recording_.segmentLength = std::chrono::hours(1);
    // Longer than the last frame is displayed.
    options.restartPauses = {std::chrono::milliseconds(100)};
    open();
    record();
    ASSERT_TRUE(waitForSegments(2));
    stopRecording();
    EXPECT_GE(source->starts(), 2);
    const std::vector<RecordedSegment> segments = index_->all();
    ASSERT_GE(segments.size(), 2U);
    // A source that starts slowly leaves frames out; the segment ends where its last one does.
    const std::vector<WallTime>& frames = times_->frames;
    const auto next = std::lower_bound(frames.begin(), frames.end(), segments[1].begin);
    ASSERT_NE(next, frames.begin());
    EXPECT_EQ(segments[0].end(), *std::prev(next) + 40 * millisecond);
    EXPECT_GT(segments[1].begin, segments[0].end());
    EXPECT_NEAR(secondsOf(HostClock::system().wallNow() - segments[1].begin), 0, 10);
    expectSame(recorded(true), times_->frames);
}

TEST_F(RecordedCameraTest, ViewersSeeNothingOfADiskThatHangs)
{
    open();
    const auto viewer = std::make_shared<CollectingSink>();
    source->attach("trackID=0", 1364, viewer);
    recording_.maxQueued = 20000;
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    Recorder::Hooks hooks;
    hooks.segmentClosed = [released] { released.wait(); };
    recorder_ = Recorder::start({1, 0, source, "camera 1/0"}, ledger_, disk_, recording_, hooks);
    ASSERT_TRUE(viewer->waitForUnits(60));
    const std::vector<AccessUnitPtr> units = viewer->units();
    for (std::size_t i = 1; i < units.size(); ++i)
    {
        EXPECT_NEAR(secondsOf(units[i]->captureTime - units[i - 1]->captureTime), 0.04, 1e-6);
    }
    EXPECT_EQ(viewer->discontinuities(), 0);
    release.set_value();
    endRecording(*recorder_);
}

}  // namespace
}  // namespace refhost

#include <gmock/gmock.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "refhost/recording/Recorder.h"
#include "refhost/recording/SegmentMeasure.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/recording/RecordedStreamFake.h"
#include "tests/refhost/recording/RecorderEnd.h"

namespace refhost
{
namespace
{

using testing::ElementsAre;
using testing::Pair;

// Seconds after the epoch of the made units.
using RecordedMedia = std::vector<std::pair<double, double>>;

class RecorderClockTest : public testing::Test
{
protected:
    static constexpr std::int64_t hourMs = 3'600'000;

    RecorderClockTest()
    {
        std::string error;
        index_ = RecordingIndex::open(folder_.path(), error);
        ledger_->setIndex(index_);
        record();
    }
    ~RecorderClockTest() override
    {
        stop();
    }

    void record()
    {
        Recorder::Options options;
        options.gather = Duration::zero();
        options.clock = &clock_;
        recorder_ = Recorder::start({7, 2, source_, "camera 7/2"}, ledger_, disk_, options, {});
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

    // 25 frames a second, each second starts with a key frame.
    void give(double begin, double end)
    {
        source_->giveMedia(begin, end);
        source_->drain();
        clock_.advance(std::chrono::milliseconds(static_cast<std::int64_t>((end - begin) * 1000)));
    }

    RecordedMedia recordings() const
    {
        RecordedMedia found;
        for (const RecordedInterval& interval : index_->recordings(7, 2))
        {
            found.emplace_back(secondsOf(interval.begin - MadeUnits::epoch),
                               secondsOf(interval.end - MadeUnits::epoch));
        }
        return found;
    }

    // What is in the files, in the order in which they were made: begin by their names, and length.
    RecordedMedia files() const
    {
        RecordedMedia found;
        std::vector<RecordedSegment> segments = index_->all();
        std::sort(segments.begin(), segments.end(),
                  [](const RecordedSegment& left, const RecordedSegment& right)
                  { return left.id < right.id; });
        for (const RecordedSegment& segment : segments)
        {
            SegmentMeasure measure;
            EXPECT_EQ(SegmentMeasure::take(segment.path, measure), SegmentMeasure::Result::media);
            EXPECT_EQ(measure.duration, segment.duration);
            found.emplace_back(secondsOf(segment.begin - MadeUnits::epoch), secondsOf(measure.duration));
        }
        return found;
    }

    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
    std::shared_ptr<SegmentLedger> ledger_ =
        std::make_shared<SegmentLedger>(folder_.path(), SegmentLedger::Options(), std::function<void()>());
    test::ManualClock clock_;
    std::shared_ptr<RecordedStreamFake> source_ = std::make_shared<RecordedStreamFake>();
    RecordingDisk disk_{promptDisk()};
    std::shared_ptr<Recorder> recorder_;
};

TEST_F(RecorderClockTest, AClockThatIsSetForwardStartsARangeWithItsTimeAndLosesNothing)
{
    give(0, 2);
    clock_.setWall(std::chrono::milliseconds(hourMs));
    give(2, 5);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 2}, {3602, 3605}}));
}

TEST_F(RecorderClockTest, RangeStartsWithTheNextKeyFrameRequestedFromTheSource)
{
    give(0, 2.4);
    EXPECT_EQ(source_->keyFrameRequests, 0);
    clock_.setWall(std::chrono::milliseconds(hourMs));
    give(2.4, 5);
    EXPECT_EQ(source_->keyFrameRequests, 1);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{0, 3}, {3603, 3605}}));
}

TEST_F(RecorderClockTest, AClockThatWasDecadesBehindAndIsSetLeavesBothTimes)
{
    constexpr std::int64_t decadesMs = 50LL * 365 * 24 * hourMs;
    clock_.setWall(std::chrono::milliseconds(-decadesMs));
    endRecording(*recorder_);
    record();
    clock_.advance(std::chrono::milliseconds(200));
    give(0, 2);
    clock_.setWall(std::chrono::milliseconds(decadesMs));
    give(2, 4);
    stop();
    EXPECT_EQ(recordings(), (RecordedMedia{{-decadesMs / 1e3, 2 - decadesMs / 1e3}, {2, 4}}));
}

TEST_F(RecorderClockTest, AClockThatIsSetBackWritesBesideWhatIsThere)
{
    give(0, 3);
    clock_.setWall(std::chrono::milliseconds(-2 * hourMs));
    give(3, 6);
    clock_.setWall(std::chrono::milliseconds(2 * hourMs));
    give(6, 8);
    stop();
    EXPECT_THAT(files(), ElementsAre(Pair(0, 3), Pair(3 - 7200, 3), Pair(6, 2)));
}

TEST_F(RecorderClockTest, AClockThatComesToTheSameMicrosecondAgainOverwritesNothing)
{
    give(0, 3);
    clock_.setWall(std::chrono::milliseconds(-3000));
    give(3, 6);
    clock_.setWall(std::chrono::milliseconds(-3000));
    give(6, 9);
    stop();
    EXPECT_THAT(files(), ElementsAre(Pair(0, 3), Pair(1e-6, 3), Pair(2e-6, 3)));
}

TEST_F(RecorderClockTest, ASmallCorrectionStartsNoRange)
{
    give(0, 2);
    clock_.setWall(std::chrono::milliseconds(100));
    give(2, 25);
    clock_.setWall(std::chrono::milliseconds(-100));
    give(25, 48);
    stop();
    ASSERT_EQ(recordings().size(), 1U);
    EXPECT_NEAR(recordings()[0].second, 48, 0.05);
    EXPECT_EQ(source_->keyFrameRequests, 0);
    double end = 0;
    for (const auto& [begin, length] : files())
    {
        EXPECT_NEAR(begin, end, 0.01);
        end = begin + length;
    }
}

}  // namespace
}  // namespace refhost

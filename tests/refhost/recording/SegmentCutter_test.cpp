#include "refhost/recording/SegmentCutter.h"

#include <gmock/gmock.h>

#include <cmath>

#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace
{

// A segment that a cutter made; times in seconds.
struct Segment
{
    double begin = 0;
    double duration = -1;
    SegmentSink::Tracks tracks;
    std::vector<double> frames;
    std::vector<double> audioBlocks;
};

class SegmentCutterTest : public testing::Test, protected MadeUnits, private SegmentSink
{
protected:
    void startSegment(MonotonicTime begin, const Tracks& tracks) override
    {
        EXPECT_FALSE(open_);
        open_ = true;
        segments_.emplace_back();
        segments_.back().begin = seconds(begin - capturedAt(0));
        segments_.back().tracks = tracks;
    }
    void writeUnit(std::size_t track, const EncodedUnitPtr& unit) override
    {
        ASSERT_TRUE(open_);
        ASSERT_LT(track, segments_.back().tracks.size());
        EXPECT_EQ(*segments_.back().tracks[track], *unit->format);
        (isVideo(unit->format->codec) ? segments_.back().frames : segments_.back().audioBlocks)
            .push_back(seconds(unit->captureTime - capturedAt(0)));
    }
    void endSegment(Duration duration) override
    {
        EXPECT_TRUE(open_);
        open_ = false;
        segments_.back().duration = seconds(duration);
    }

    static double seconds(Duration span)
    {
        return secondsOf(std::chrono::round<std::chrono::milliseconds>(span));
    }

    // Video and audio of an interval as of a live source: a key frame each second, the audio delayed by so
    // much.
    void run(double begin, double end, double audioLate = 0.1)
    {
        const int first = static_cast<int>(std::lround(begin * 25));
        const int last = static_cast<int>(std::lround(end * 25));
        const int late = static_cast<int>(std::lround(audioLate * 50));
        for (int i = first; i < last; ++i)
        {
            if (expected_.video)
            {
                cutter_.take(frame(i / 25.0, i % 25 == 0));
            }
            for (int block : {2 * i - late, 2 * i + 1 - late})
            {
                if (expected_.audio && block >= 2 * first)
                {
                    cutter_.take(this->block(block / 50.0));
                }
            }
        }
    }

    SegmentCutter::Expected expected_;
    SegmentCutter cutter_{4 * second, [this] { return expected_; }, *this};
    bool open_ = false;
    std::vector<Segment> segments_;
};

TEST_F(SegmentCutterTest, SegmentsStartWithKeyFramesAndFollowWithoutAGap)
{
    run(0, 13);
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 4U);
    EXPECT_EQ(segments_[0].begin, 0);
    EXPECT_EQ(segments_[0].duration, 4);
    EXPECT_EQ(segments_[1].begin, 4);
    EXPECT_EQ(segments_[2].begin, 8);
    EXPECT_EQ(segments_[3].begin, 12);
    EXPECT_EQ(segments_[3].duration, 1);
    for (std::size_t i = 0; i < 3; ++i)
    {
        EXPECT_EQ(segments_[i].frames.size(), 100U) << i;
        EXPECT_EQ(segments_[i].frames.front(), segments_[i].begin) << i;
    }
    EXPECT_EQ(segments_[3].frames.size(), 25U);
}

TEST_F(SegmentCutterTest, FramesThatLeadAKeyFrameStayWithItWhereTheyFollowASegment)
{
    for (const bool withAudio : {false, true})
    {
        segments_.clear();
        expected_.audio = withAudio;
        const auto giveAudio = [&](int begin, int end)
        {
            for (int i = begin; withAudio && i < end; ++i)
            {
                cutter_.take(block(i / 50.0));
            }
        };
        cutter_.take(frame(0, true));
        // Lead the very first key frame.
        cutter_.take(frame(-0.08, false));
        cutter_.take(frame(-0.04, false));
        giveAudio(0, 2);
        for (int i = 1; i < 98; ++i)
        {
            cutter_.take(frame(i / 25.0, false));
            giveAudio(2 * i, 2 * i + 2);
        }
        cutter_.take(frame(4, true));
        giveAudio(196, 202);
        cutter_.take(frame(3.92, false));
        cutter_.take(frame(3.96, false));
        giveAudio(202, 230);
        cutter_.take(frame(4.04, false));
        cutter_.interrupt();
        ASSERT_EQ(segments_.size(), 2U);
        EXPECT_EQ(segments_[0].begin, 0);
        EXPECT_EQ(segments_[0].duration, 3.92);
        EXPECT_EQ(segments_[0].frames.size(), 98U);
        EXPECT_EQ(segments_[1].begin, 3.92);
        EXPECT_EQ(segments_[1].frames, (std::vector<double>{4, 3.92, 3.96, 4.04}));
        EXPECT_EQ(segments_[0].audioBlocks.size() + segments_[1].audioBlocks.size(), withAudio ? 230U : 0U);
    }
}

TEST_F(SegmentCutterTest, LateAudioGoesWhereItsTimeIs)
{
    run(0, 9, 0.3);
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 3U);
    EXPECT_EQ(segments_[0].audioBlocks.size(), 200U);
    EXPECT_EQ(segments_[0].audioBlocks.back(), 3.98);
    EXPECT_EQ(segments_[1].audioBlocks.size(), 200U);
    EXPECT_EQ(segments_[1].audioBlocks.front(), 4);
}

TEST_F(SegmentCutterTest, AudioThatIsAheadGoesWhereItsTimeIs)
{
    run(0, 9, -0.3);
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 3U);
    EXPECT_EQ(segments_[0].audioBlocks.front(), 0.3);
    EXPECT_EQ(segments_[0].audioBlocks.back(), 3.98);
    EXPECT_EQ(segments_[1].audioBlocks.size(), 200U);
    EXPECT_EQ(segments_[1].audioBlocks.front(), 4);
    EXPECT_EQ(segments_[2].audioBlocks.front(), 8);
}

TEST_F(SegmentCutterTest, AudioGoesOnWhereFramesStayAway)
{
    run(0, 1);
    for (int i = 0; i < 150; ++i)
    {
        cutter_.take(block(1 + i / 50.0));
    }
    EXPECT_GE(segments_.back().audioBlocks.size(), 45U + 98U);
    cutter_.interrupt();
    EXPECT_EQ(segments_.back().audioBlocks.size(), 45U + 150U);
}

TEST_F(SegmentCutterTest, RecordingStartsWithTheFirstKeyFrameAndNothingFromBefore)
{
    run(0.2, 2);
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 1U);
    EXPECT_EQ(segments_[0].begin, 1);
    EXPECT_EQ(segments_[0].duration, 1);
    EXPECT_EQ(segments_[0].tracks.size(), 2U);
    EXPECT_EQ(segments_[0].audioBlocks.front(), 1);
}

TEST_F(SegmentCutterTest, SegmentWithoutExpectedAudioStartsAtOnce)
{
    expected_.audio = false;
    cutter_.take(frame(0, true));
    ASSERT_EQ(segments_.size(), 1U);
    EXPECT_EQ(segments_[0].tracks.size(), 1U);
}

TEST_F(SegmentCutterTest, AudioThatDoesNotComeHoldsFramesUpForASecondAtMost)
{
    for (int i = 0; i < 25; ++i)
    {
        cutter_.take(frame(i / 25.0, i == 0));
    }
    EXPECT_TRUE(segments_.empty());
    cutter_.take(frame(1, true));
    ASSERT_EQ(segments_.size(), 1U);
    EXPECT_EQ(segments_[0].frames.size(), 26U);
}

TEST_F(SegmentCutterTest, AudioThatComesLaterIsTakenInFromTheNextKeyFrameOn)
{
    for (int i = 0; i < 60; ++i)
    {
        cutter_.take(frame(i / 25.0, i % 25 == 0));
    }
    cutter_.take(block(2.4));
    cutter_.take(frame(3, true));
    cutter_.take(block(3));
    ASSERT_EQ(segments_.size(), 2U);
    EXPECT_EQ(segments_[0].tracks.size(), 1U);
    EXPECT_EQ(segments_[0].duration, 3);
    EXPECT_EQ(segments_[1].tracks.size(), 2U);
    EXPECT_EQ(segments_[1].begin, 3);
}

TEST_F(SegmentCutterTest, ChangedFormatStartsASegment)
{
    run(0, 1.5);
    video = videoFormat(640);
    run(2, 3);
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 2U);
    EXPECT_EQ(segments_[1].begin, 2);
    EXPECT_EQ(segments_[1].tracks[0]->width, 640);
}

TEST_F(SegmentCutterTest, EqualFormatOfANewStartOfTheSourceIsNoChange)
{
    run(0, 1.5);
    video = videoFormat();
    run(1.52, 3);
    EXPECT_EQ(segments_.size(), 1U);
}

TEST_F(SegmentCutterTest, InterruptionLeavesAGapUntilTheNextKeyFrame)
{
    run(0, 2.2);
    cutter_.interrupt();
    run(3.4, 5);
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 2U);
    EXPECT_EQ(segments_[0].duration, 2.2);
    EXPECT_EQ(segments_[1].begin, 4);
}

TEST_F(SegmentCutterTest, InterruptionWritesWhatWasHeldBack)
{
    run(0, 4.2, 0.5);
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 2U);
    EXPECT_EQ(segments_[0].duration, 4);
    EXPECT_EQ(segments_[1].begin, 4);
    EXPECT_EQ(segments_[1].duration, 0.2);
    EXPECT_EQ(segments_[1].frames.size(), 5U);
}

TEST_F(SegmentCutterTest, JumpOfTheCaptureTimesIsAGap)
{
    for (const double jump : {10.0, -5.0})
    {
        segments_.clear();
        run(20, 21.6);
        run(21.6 + jump, 24 + jump);
        cutter_.interrupt();
        ASSERT_EQ(segments_.size(), 2U);
        EXPECT_EQ(segments_[0].duration, 1.6);
        EXPECT_EQ(segments_[1].begin, 22 + jump);
    }
}

TEST_F(SegmentCutterTest, ReorderedFramesAreNoJump)
{
    expected_.audio = false;
    cutter_.take(frame(0, true));
    cutter_.take(frame(0.12, false));
    cutter_.take(frame(0.04, false));
    cutter_.take(frame(0.08, false));
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 1U);
    EXPECT_EQ(segments_[0].frames.size(), 4U);
    EXPECT_EQ(segments_[0].duration, 0.16);
}

TEST_F(SegmentCutterTest, AudioAloneMakesSegmentsWhereThereIsNoVideo)
{
    expected_.video = false;
    run(0, 9, 0);
    cutter_.interrupt();
    ASSERT_EQ(segments_.size(), 3U);
    EXPECT_EQ(segments_[0].tracks.size(), 1U);
    EXPECT_LE(segments_[1].begin, 4);
    EXPECT_GT(segments_[1].begin, 3.7);
    std::size_t audioBlocks = 0;
    for (const Segment& segment : segments_)
    {
        audioBlocks += segment.audioBlocks.size();
    }
    EXPECT_EQ(audioBlocks, 450U);
}

TEST_F(SegmentCutterTest, AudioBeforeTheFirstFrameIsNotTakenForAStreamWithoutVideo)
{
    cutter_.take(block(0));
    cutter_.take(block(3));
    EXPECT_TRUE(segments_.empty());
}

TEST_F(SegmentCutterTest, TimesThatStandStillDoNotFillTheMemory)
{
    for (int i = 0; i < 2000; ++i)
    {
        cutter_.take(frame(0, i == 0));
    }
    ASSERT_EQ(segments_.size(), 1U);
    EXPECT_EQ(segments_[0].frames.size(), 2000U);
}

TEST_F(SegmentCutterTest, LargeFramesAreNotHeldBackWithoutBound)
{
    constexpr std::size_t frameBytes = 4U << 20U;
    constexpr int frames = SegmentCutter::maxHeldBytes / frameBytes;
    for (int i = 0; i < frames; ++i)
    {
        EXPECT_TRUE(segments_.empty());
        cutter_.take(frame(i / 1000.0, i == 0, frameBytes));
    }
    ASSERT_EQ(segments_.size(), 1U) << "it does not wait for the audio any longer";
    EXPECT_EQ(segments_[0].frames.size(), static_cast<std::size_t>(frames));
}

}  // namespace
}  // namespace refhost

#include "refhost/capture/MediaTap.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "refhost/media/Codec.h"
#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/capture/StreamFixture.h"

namespace refhost
{
namespace
{

class CollectingMedia : public EncodedUnitSink
{
public:
    void onEncodedUnit(const EncodedUnitPtr& unit) override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        (isVideo(unit->format->codec) ? frames_ : audioUnits_).push_back(unit);
        changed_.notify_all();
    }
    void onDiscontinuity() override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++discontinuities_;
        changed_.notify_all();
    }

    bool waitFor(std::size_t frames, std::size_t audioUnits)
    {
        return wait([&] { return frames_.size() >= frames && audioUnits_.size() >= audioUnits; });
    }
    bool waitForDiscontinuity()
    {
        return wait([&] { return discontinuities_ > 0; });
    }
    std::vector<EncodedUnitPtr> frames() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return frames_;
    }
    std::vector<EncodedUnitPtr> audioUnits() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return audioUnits_;
    }

private:
    template <typename Condition>
    bool wait(Condition condition)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(10), condition);
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<EncodedUnitPtr> frames_;
    std::vector<EncodedUnitPtr> audioUnits_;
    int discontinuities_ = 0;
};

class MediaTapTest : public StreamFixture
{
protected:
    std::shared_ptr<CollectingMedia> tap()
    {
        auto sink = std::make_shared<CollectingMedia>();
        source->attachMedia(sink);
        source->acquire();
        return sink;
    }
};

TEST_F(MediaTapTest, TapDeliversCompleteFramesWithTheirCodecData)
{
    open();
    const auto sink = tap();
    ASSERT_TRUE(sink->waitFor(21, 1));
    const std::vector<EncodedUnitPtr> frames = sink->frames();
    const MediaFormat& format = *frames[0]->format;
    EXPECT_EQ(format.codec, Codec::h264);
    EXPECT_EQ(format.width, 320);
    EXPECT_EQ(format.height, 180);
    ASSERT_GT(format.codecData.size(), 6U);
    EXPECT_EQ(format.codecData[0], 1);
    for (std::size_t i = 0; i < 21; ++i)
    {
        EXPECT_EQ(frames[i]->keyFrame, i % 10 == 0) << i;
        EXPECT_EQ(frames[i]->format, frames[0]->format);
        EXPECT_EQ(frames[i]->duration, std::chrono::milliseconds(40));
        // Length-prefixed NAL units fill the whole frame.
        const std::vector<std::uint8_t>& bytes = frames[i]->bytes;
        std::size_t at = 0;
        while (at + 4 <= bytes.size())
        {
            at += 4U + (std::size_t{bytes[at]} << 24 | std::size_t{bytes[at + 1]} << 16 |
                        std::size_t{bytes[at + 2]} << 8 | bytes[at + 3]);
        }
        EXPECT_EQ(at, bytes.size());
        if (i > 0)
        {
            EXPECT_NEAR(static_cast<double>(test::nsOf(frames[i]->captureTime) -
                                            test::nsOf(frames[i - 1]->captureTime)),
                        40e6, 1e3);
        }
    }
}

TEST_F(MediaTapTest, UnitsHaveTheCaptureTimesOfThePackets)
{
    open();
    const auto viewer = attach("trackID=0");
    const auto sink = tap();
    ASSERT_TRUE(viewer->waitForUnits(5));
    ASSERT_TRUE(sink->waitFor(30, 1));
    const std::vector<EncodedUnitPtr> frames = sink->frames();
    const std::int64_t captured = test::nsOf(viewer->units()[4]->captureTime);
    EXPECT_TRUE(std::any_of(frames.begin(), frames.end(),
                            [&](const EncodedUnitPtr& frame)
                            { return test::nsOf(frame->captureTime) == captured; }));
}

TEST_F(MediaTapTest, AudioHasVideosTimelineAndItsOwnFormat)
{
    stream.audioCodec = Codec::aac;
    open();
    const auto sink = tap();
    ASSERT_TRUE(sink->waitFor(10, 10));
    const EncodedUnit& audio = *sink->audioUnits()[0];
    EXPECT_EQ(audio.format->codec, Codec::aac);
    EXPECT_EQ(audio.format->sampleRate, 16000);
    EXPECT_EQ(audio.format->channels, 1);
    EXPECT_GE(audio.format->codecData.size(), 2U);
    EXPECT_TRUE(audio.keyFrame);
    EXPECT_NEAR(
        static_cast<double>(test::nsOf(audio.captureTime) - test::nsOf(sink->frames()[0]->captureTime)), 0,
        1e9);
}

TEST_F(MediaTapTest, OpusHasTheIdentificationHeaderForFiles)
{
    stream.audioCodec = Codec::opus;
    open();
    const auto sink = tap();
    ASSERT_TRUE(sink->waitFor(10, 10));
    const EncodedUnit& audio = *sink->audioUnits()[0];
    EXPECT_EQ(audio.format->sampleRate, 48000);
    EXPECT_EQ(audio.format->codecData, infoOf(Codec::opus).makeCodecData(audio.format->channels));
    EXPECT_EQ(infoOf(Codec::opus).samplesIn(audio.bytes.data(), audio.bytes.size(), 1), 960U);
}

TEST_F(MediaTapTest, TapSurvivesAStopOfTheSource)
{
    open();
    const auto sink = tap();
    ASSERT_TRUE(sink->waitFor(3, 1));
    source->release();
    ASSERT_TRUE(sink->waitForDiscontinuity());
    const std::size_t before = sink->frames().size();
    source->acquire();
    ASSERT_TRUE(sink->waitFor(before + 3, 1));
    const std::vector<EncodedUnitPtr> frames = sink->frames();
    EXPECT_TRUE(frames[before]->keyFrame);
    EXPECT_GT(frames[before]->captureTime, frames[before - 1]->captureTime);
}

TEST_F(MediaTapTest, RemovedSinkIsNotCalled)
{
    open();
    const auto sink = tap();
    const auto other = tap();
    ASSERT_TRUE(sink->waitFor(1, 1));
    source->detachMedia(sink.get());
    const std::size_t before = sink->frames().size();
    ASSERT_TRUE(other->waitFor(other->frames().size() + 5, 1));
    EXPECT_EQ(sink->frames().size(), before);
    EXPECT_EQ(sink.use_count(), 1);
}

TEST(SourceCounts, TheIntervalIsThatOfTheLastTwoKeyFrames)
{
    SourceCounts counts;
    const MonotonicTime start{std::chrono::seconds(100)};
    counts.noteKeyFrame(start);
    EXPECT_EQ(counts.keyFrameInterval(), Duration::zero());
    counts.noteKeyFrame(start + std::chrono::seconds(2));
    EXPECT_EQ(counts.keyFrameInterval(), std::chrono::seconds(2));
    // The source started again.
    counts.noteKeyFrame(start);
    EXPECT_EQ(counts.keyFrameInterval(), std::chrono::seconds(2));
    EXPECT_EQ(counts.keyFrames(), 3U);
    counts.add(10);
    counts.add(5);
    EXPECT_EQ(counts.bytes(), 15U);
}

}  // namespace
}  // namespace refhost

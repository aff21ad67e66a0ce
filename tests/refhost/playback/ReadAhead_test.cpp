#include "refhost/playback/ReadAhead.h"

#include <gtest/gtest.h>

#include <memory>

#include "refhost/threads/WorkPool.h"
#include "tests/refhost/base/TransitionTable.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using namespace std::chrono_literals;

constexpr Duration frameLength = 40ms;
constexpr WallTime begin = wallTimeOfUnix(1'600'000'000);
constexpr MonotonicTime start(1s);

PlaybackUnit frameAt(Duration offset, std::size_t packets = 1)
{
    PlaybackUnit unit;
    unit.unit = makeUnit(7, 0, true, packets);
    unit.video = true;
    unit.wall = unit.media = unit.due = begin + offset;
    unit.duration = frameLength;
    return unit;
}

/// Frames of 40 ms, up to an end.
class Frames : public PlaybackSource
{
public:
    bool open(const Request&) override
    {
        return true;
    }

    Result read(PlaybackUnit& out) override
    {
        if (next >= end)
        {
            return atEnd;
        }
        out = frameAt(next, packets);
        next += frameLength;
        ++reads;
        return Result::unit;
    }

    Duration next = frameLength;
    Duration end = 1h;
    Result atEnd = Result::end;
    std::size_t packets = 1;
    int reads = 0;
};

class ReadAheadTest : public testing::Test
{
protected:
    bool readOnce(MonotonicTime now, double rate = 1)
    {
        return readAhead->add(ReadAhead::read(frames, readAhead->plan(rate)), now);
    }

    void fill(MonotonicTime now, double rate = 1)
    {
        for (int i = 0; i < 100 && readAhead->shouldRead(now, rate); ++i)
        {
            readOnce(now, rate);
        }
    }

    PlaybackSettings settings;
    Frames frames;
    std::unique_ptr<ReadAhead> readAhead = std::make_unique<ReadAhead>(settings);
};

TEST(ReadState, TableIsTheDocumentedOne)
{
    using S = ReadState;
    expectTransitions<S>({S::idle, S::filling, S::full, S::waiting, S::atEnd}, {{S::idle, S::filling},
                                                                                {S::filling, S::full},
                                                                                {S::filling, S::waiting},
                                                                                {S::filling, S::atEnd},
                                                                                {S::full, S::filling},
                                                                                {S::waiting, S::filling},
                                                                                {S::waiting, S::full},
                                                                                {S::atEnd, S::filling}});
}

TEST_F(ReadAheadTest, ReadsNothingBeforeThereIsAPlace)
{
    EXPECT_FALSE(readAhead->shouldRead(start, 1));
    EXPECT_DEBUG_DEATH(readAhead->add({{}, PlaybackSource::Result::end}, start), "illegal transition");
}

TEST_F(ReadAheadTest, ReadsUpToItsSpanAndAgainWhenHalfOfItIsLeft)
{
    readAhead->restart(frameAt(0s));
    fill(start);
    EXPECT_EQ(readAhead->queue().span(), 1s);
    while (readAhead->queue().span() >= 500ms)
    {
        EXPECT_FALSE(readAhead->shouldRead(start, 1));
        readAhead->queue().pop();
    }
    EXPECT_TRUE(readAhead->shouldRead(start, 1));
}

TEST_F(ReadAheadTest, SpanIsMeasuredInPlayersTime)
{
    readAhead->restart(frameAt(0s));
    fill(start, 4);
    EXPECT_EQ(readAhead->queue().span(), 4s);
}

TEST_F(ReadAheadTest, BytesAreTheFirmerLimit)
{
    settings.readAheadBytes = 20'000;
    frames.packets = 4;
    readAhead->restart(frameAt(0s));
    fill(start);
    EXPECT_GE(readAhead->queue().bytes(), settings.readAheadBytes);
    EXPECT_LT(readAhead->queue().bytes(), settings.readAheadBytes + std::size_t{5} * 1400)
        << "one unit more at most";
}

TEST_F(ReadAheadTest, HoldsSomeUnitsHoweverLongTheyLast)
{
    settings.readAhead = 10ms;
    readAhead->restart(frameAt(0s));
    fill(start);
    EXPECT_EQ(readAhead->queue().size(), 8U);
}

TEST_F(ReadAheadTest, AGrowingRecordingIsReadAgainAfterAWhile)
{
    frames.end = 3 * frameLength;
    frames.atEnd = PlaybackSource::Result::later;
    readAhead->restart(frameAt(0s));
    EXPECT_TRUE(readOnce(start)) << "two frames came";
    EXPECT_FALSE(readAhead->shouldRead(start, 1));
    EXPECT_EQ(readAhead->retryTime(start), start + settings.growthInterval);
    EXPECT_TRUE(readAhead->shouldRead(start + settings.growthInterval, 1));
    EXPECT_FALSE(readOnce(start + settings.growthInterval)) << "still nothing";
    EXPECT_FALSE(readAhead->atEnd());
}

TEST_F(ReadAheadTest, BehindTheEndNothingIsReadUntilANewPlace)
{
    frames.end = 2 * frameLength;
    readAhead->restart(frameAt(0s));
    EXPECT_TRUE(readOnce(start));
    EXPECT_TRUE(readAhead->atEnd());
    EXPECT_FALSE(readAhead->shouldRead(start, 1));
    EXPECT_EQ(readAhead->retryTime(start), PooledWork::never);
    readAhead->restart(frameAt(0s));
    EXPECT_FALSE(readAhead->atEnd());
    EXPECT_EQ(readAhead->queue().size(), 1U) << "what was read before is gone";
    EXPECT_TRUE(readAhead->shouldRead(start, 1));
}

TEST_F(ReadAheadTest, OneBatchIsBounded)
{
    settings.readAhead = 1h;
    settings.readAheadBytes = 1U << 30U;
    readAhead->restart(frameAt(0s));
    readOnce(start);
    EXPECT_EQ(frames.reads, 64);
}

}  // namespace
}  // namespace test
}  // namespace refhost

#include "refhost/playback/ReadAhead.h"

#include <gtest/gtest.h>

#include <memory>

#include "refhost/playback/PlaybackScheduler.h"
#include "tests/refhost/base/TransitionTable.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr std::int64_t frameNs = 40'000'000;

PlaybackUnit frameAt(std::int64_t ns, std::size_t packets = 1)
{
    PlaybackUnit unit;
    unit.unit = makeUnit(7, ns, true, packets);
    unit.video = true;
    unit.wallNs = unit.mediaNs = unit.dueNs = ns;
    unit.durationNs = frameNs;
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
        if (nextNs >= endNs)
        {
            return atEnd;
        }
        out = frameAt(nextNs, packets);
        nextNs += frameNs;
        ++reads;
        return Result::unit;
    }

    std::int64_t nextNs = frameNs;
    std::int64_t endNs = 3600'000'000'000;
    Result atEnd = Result::end;
    std::size_t packets = 1;
    int reads = 0;
};

class ReadAheadTest : public testing::Test
{
protected:
    bool readOnce(std::int64_t nowMs, double rate = 1)
    {
        return readAhead->add(ReadAhead::read(frames, readAhead->plan(rate)), nowMs);
    }

    void fill(std::int64_t nowMs, double rate = 1)
    {
        for (int i = 0; i < 100 && readAhead->wantsToRead(nowMs, rate); ++i)
        {
            readOnce(nowMs, rate);
        }
    }

    PlaybackSettings settings;
    Frames frames;
    std::unique_ptr<ReadAhead> readAhead = std::make_unique<ReadAhead>(settings);
};

TEST(ReadState, TheTableIsWhatTheHeaderSays)
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
    EXPECT_FALSE(readAhead->wantsToRead(0, 1));
    EXPECT_DEBUG_DEATH(readAhead->add({{}, PlaybackSource::Result::end}, 0), "illegal transition");
}

TEST_F(ReadAheadTest, ReadsUpToItsSpanAndAgainWhenHalfOfItIsLeft)
{
    readAhead->restart(frameAt(0));
    fill(0);
    EXPECT_EQ(readAhead->queue().spanNs(), 1000 * 1'000'000);
    while (readAhead->queue().spanNs() >= 500 * 1'000'000)
    {
        EXPECT_FALSE(readAhead->wantsToRead(0, 1));
        readAhead->queue().pop();
    }
    EXPECT_TRUE(readAhead->wantsToRead(0, 1));
}

TEST_F(ReadAheadTest, TheSpanIsOfThePlayersTime)
{
    readAhead->restart(frameAt(0));
    fill(0, 4);
    EXPECT_EQ(readAhead->queue().spanNs(), 4000 * 1'000'000LL);
}

TEST_F(ReadAheadTest, BytesAreTheFirmerLimit)
{
    settings.readAheadBytes = 20'000;
    frames.packets = 4;
    readAhead->restart(frameAt(0));
    fill(0);
    EXPECT_GE(readAhead->queue().bytes(), settings.readAheadBytes);
    EXPECT_LT(readAhead->queue().bytes(), settings.readAheadBytes + 5 * 1400U) << "one unit more at most";
}

TEST_F(ReadAheadTest, HoldsSomeUnitsHoweverLongTheyLast)
{
    settings.readAheadMs = 10;
    readAhead->restart(frameAt(0));
    fill(0);
    EXPECT_EQ(readAhead->queue().size(), 8U);
}

TEST_F(ReadAheadTest, AGrowingRecordingIsReadAgainAfterAWhile)
{
    frames.endNs = 3 * frameNs;
    frames.atEnd = PlaybackSource::Result::later;
    readAhead->restart(frameAt(0));
    EXPECT_TRUE(readOnce(1000)) << "two frames came";
    EXPECT_FALSE(readAhead->wantsToRead(1000, 1));
    EXPECT_EQ(readAhead->retryMs(1000), 1000 + settings.growthMs);
    EXPECT_TRUE(readAhead->wantsToRead(1000 + settings.growthMs, 1));
    EXPECT_FALSE(readOnce(1000 + settings.growthMs)) << "still nothing";
    EXPECT_FALSE(readAhead->atEnd());
}

TEST_F(ReadAheadTest, BehindTheEndNothingIsReadUntilANewPlace)
{
    frames.endNs = 2 * frameNs;
    readAhead->restart(frameAt(0));
    EXPECT_TRUE(readOnce(0));
    EXPECT_TRUE(readAhead->atEnd());
    EXPECT_FALSE(readAhead->wantsToRead(0, 1));
    EXPECT_EQ(readAhead->retryMs(0), PlaybackWork::never);
    readAhead->restart(frameAt(0));
    EXPECT_FALSE(readAhead->atEnd());
    EXPECT_EQ(readAhead->queue().size(), 1U) << "what was read before is gone";
    EXPECT_TRUE(readAhead->wantsToRead(0, 1));
}

TEST_F(ReadAheadTest, OneGoIsBounded)
{
    settings.readAheadMs = 3600'000;
    settings.readAheadBytes = 1U << 30U;
    readAhead->restart(frameAt(0));
    readOnce(0);
    EXPECT_EQ(frames.reads, 64);
}

}  // namespace
}  // namespace test
}  // namespace refhost

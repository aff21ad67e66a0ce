#include "refhost/talkback/outputs/PlayoutPacer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "refhost/talkback/outputs/ClockedOutput.h"
#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/talkback/AudioSamples.h"

using namespace refhost;
using refhost::test::Samples;
using std::chrono::milliseconds;

namespace
{

constexpr std::size_t ms = 48;  // frames
const PcmFormat format{48000, 1};

// An output that plays `playedEachTurn` frames per 20 ms of received audio: its clock differs from the
// sender's.
struct Drifting
{
    explicit Drifting(double playedEachTurn) : played(playedEachTurn) {}

    void turn()
    {
        Samples block = audio;
        if (level <= 0)
        {
            ++dry;
            level = 0;
        }
        pacer.pace(static_cast<std::size_t>(level), block);
        dropped += block.empty() ? 1 : 0;
        level += static_cast<double>(block.size()) - played;
        min = std::min(min, level);
        max = std::max(max, level);
    }

    PlayoutPacer pacer{format, milliseconds(40)};
    const Samples audio = test::tone(500, 48000, 20 * ms);
    const double played;
    double level = 0;
    double min = 1e9;
    double max = 0;
    int dry = 0;
    int dropped = 0;
};

}  // namespace

TEST(PlayoutPacer, AudioStartsWithItsLead)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples block{1, 2, 3};
    pacer.pace(0, block);
    Samples expected(40 * ms, 0);
    expected.insert(expected.end(), {1, 2, 3});
    EXPECT_EQ(expected, block);
}

TEST(PlayoutPacer, AudioThatFollowsIsLeftAsItIs)
{
    PlayoutPacer pacer(format, milliseconds(40));
    const Samples audio = test::tone(500, 48000, 20 * ms);
    Samples block = audio;
    pacer.pace(35 * ms, block);
    EXPECT_EQ(audio, block);
    pacer.pace(70 * ms, block);
    EXPECT_EQ(audio, block);
}

TEST(PlayoutPacer, AudioThatWouldComeMoreThan30MillisecondsLaterIsDropped)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples block(20 * ms, 1);
    pacer.pace(70 * ms + 1, block);
    EXPECT_TRUE(block.empty());
}

TEST(PlayoutPacer, LongLateBlockLosesOnlyItsExcess)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples block(64 * ms, 1);
    block.back() = 2;
    pacer.pace(75 * ms, block);
    EXPECT_EQ((64 - 35) * ms, block.size());
    EXPECT_EQ(2, block.back());
}

TEST(PlayoutPacer, OnlyTheEndOfALongBlockIsPlayed)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples block(1000 * ms, 1);
    block.back() = 2;
    pacer.pace(0, block);
    EXPECT_EQ(160 * ms, block.size());
    EXPECT_EQ(2, block.back());
}

TEST(PlayoutPacer, SeveralLatePacketsAtOnceAreTheirOwnLead)
{
    const auto whenDry = [](std::size_t blockMs)
    {
        PlayoutPacer pacer(format, milliseconds(60));
        for (int i = 0; i < 3; ++i)
        {
            Samples packet(20 * ms, 1);
            pacer.pace(i == 0 ? 0 : 60 * ms, packet);
        }
        Samples block(blockMs * ms, 1);
        pacer.pace(0, block);
        return block;
    };
    EXPECT_EQ(80 * ms, whenDry(20).size());
    EXPECT_EQ(80 * ms, whenDry(60).size());
    Samples expected(20 * ms, 0);
    expected.insert(expected.end(), 60 * ms, 1);
    EXPECT_EQ(expected, whenDry(60));
    EXPECT_EQ(Samples(100 * ms, 1), whenDry(100));
    EXPECT_EQ(Samples(110 * ms, 1), whenDry(150)) << "what follows is not dropped";
}

TEST(PlayoutPacer, EmptyBlockStaysEmpty)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples block;
    pacer.pace(0, block);
    EXPECT_TRUE(block.empty());
}

TEST(PlayoutPacer, ChannelsStayApart)
{
    PlayoutPacer pacer({48000, 2}, milliseconds(40));
    bool stretched = false;
    for (int i = 0; i < 400; ++i)
    {
        Samples block;
        for (std::size_t frame = 0; frame < 20 * ms; ++frame)
        {
            block.insert(block.end(), {100, -100});
        }
        pacer.pace(70 * ms, block);
        stretched = stretched || block.size() < 40 * ms;
        ASSERT_EQ(0u, block.size() % 2);
        for (std::size_t at = 0; at < block.size(); at += 2)
        {
            ASSERT_EQ(100, block[at]);
            ASSERT_EQ(-100, block[at + 1]);
        }
    }
    EXPECT_TRUE(stretched);
}

TEST(PlayoutPacer, EqualClocksNeedNoCorrection)
{
    Drifting output(960);
    for (int i = 0; i < 50 * 600; ++i)
    {
        output.turn();
    }
    EXPECT_EQ(1, output.dry) << "at the start";
    EXPECT_EQ(40.0 * ms, output.min);
    EXPECT_EQ(0, output.dropped);
}

TEST(PlayoutPacer, SlowerOutputIsFollowedWithoutDroppingForTwentyMinutes)
{
    Drifting output(960 * (1 - 0.0005));
    for (int i = 0; i < 50 * 1200; ++i)
    {
        output.turn();
    }
    EXPECT_EQ(1, output.dry);
    EXPECT_EQ(0, output.dropped);
    EXPECT_LE(output.max, 70.0 * ms);
}

TEST(PlayoutPacer, FasterOutputIsFollowedWithoutRunningDryForTwentyMinutes)
{
    Drifting output(960 * (1 + 0.0005));
    for (int i = 0; i < 50 * 1200; ++i)
    {
        output.turn();
    }
    EXPECT_EQ(1, output.dry);
    EXPECT_EQ(0, output.dropped);
    EXPECT_LT(0.0, output.min);
}

TEST(PlayoutPacer, TroubleOfAMomentChangesNothing)
{
    Drifting output(960);
    for (int i = 0; i < 50 * 60; ++i)
    {
        if (i % 500 == 250)
        {
            output.level -= 38 * ms;
        }
        if (i % 500 == 251)
        {
            output.level += 38 * ms;
        }
        output.turn();
    }
    EXPECT_EQ(40.0 * ms, output.level);
}

TEST(PlayoutPacer, ShortenedAudioHasNoSteps)
{
    PlayoutPacer pacer(format, milliseconds(40));
    bool shortened = false;
    for (int i = 0; i < 400; ++i)
    {
        Samples block = test::tone(1000, 48000, 20 * ms);
        const int own = test::steepest(block);
        const Samples before = block;
        pacer.pace(70 * ms, block);
        shortened = shortened || block.size() < before.size();
        ASSERT_LE(test::steepest(block), own + own / 50);
        ASSERT_EQ(before.front(), block.front());
        ASSERT_EQ(before.back(), block.back());
    }
    EXPECT_TRUE(shortened);
}

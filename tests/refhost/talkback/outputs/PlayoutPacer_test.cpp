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

// An output that plays `playedEachTurn` frames while 20 ms of audio come: its clock is not the sender's.
struct Drifting
{
    explicit Drifting(double playedEachTurn) : played(playedEachTurn) {}

    void turn()
    {
        Samples piece = audio;
        if (level <= 0)
        {
            ++dry;
            level = 0;
        }
        pacer.pace(static_cast<std::size_t>(level), piece);
        dropped += piece.empty() ? 1 : 0;
        level += static_cast<double>(piece.size()) - played;
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

TEST(PlayoutPacer, AudioStartsSoFarAheadAsWanted)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples piece{1, 2, 3};
    pacer.pace(0, piece);
    Samples expected(40 * ms, 0);
    expected.insert(expected.end(), {1, 2, 3});
    EXPECT_EQ(expected, piece);
}

TEST(PlayoutPacer, AudioThatFollowsIsLeftAsItIs)
{
    PlayoutPacer pacer(format, milliseconds(40));
    const Samples audio = test::tone(500, 48000, 20 * ms);
    Samples piece = audio;
    pacer.pace(35 * ms, piece);
    EXPECT_EQ(audio, piece);
    pacer.pace(70 * ms, piece);
    EXPECT_EQ(audio, piece);
}

TEST(PlayoutPacer, AudioThatWouldComeMoreThan30MillisecondsLaterIsDropped)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples piece(20 * ms, 1);
    pacer.pace(70 * ms + 1, piece);
    EXPECT_TRUE(piece.empty());
}

TEST(PlayoutPacer, OfALongPieceThatIsLateOnlySoMuchIsDroppedAsBringsItBack)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples piece(64 * ms, 1);
    piece.back() = 2;
    pacer.pace(75 * ms, piece);
    EXPECT_EQ((64 - 35) * ms, piece.size());
    EXPECT_EQ(2, piece.back());
}

TEST(PlayoutPacer, OfALongPieceTheEndIsPlayed)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples piece(1000 * ms, 1);
    piece.back() = 2;
    pacer.pace(0, piece);
    EXPECT_EQ(160 * ms, piece.size());
    EXPECT_EQ(2, piece.back());
}

TEST(PlayoutPacer, SeveralPacketsAtOnceThatCameTooLateAreTheirOwnLead)
{
    const auto whenDry = [](std::size_t pieceMs)
    {
        PlayoutPacer pacer(format, milliseconds(60));
        for (int i = 0; i < 3; ++i)
        {
            Samples packet(20 * ms, 1);
            pacer.pace(i == 0 ? 0 : 60 * ms, packet);
        }
        Samples piece(pieceMs * ms, 1);
        pacer.pace(0, piece);
        return piece;
    };
    EXPECT_EQ(80 * ms, whenDry(20).size());
    EXPECT_EQ(80 * ms, whenDry(60).size());
    Samples expected(20 * ms, 0);
    expected.insert(expected.end(), 60 * ms, 1);
    EXPECT_EQ(expected, whenDry(60));
    EXPECT_EQ(Samples(100 * ms, 1), whenDry(100));
    EXPECT_EQ(Samples(110 * ms, 1), whenDry(150)) << "what follows is not dropped";
}

TEST(PlayoutPacer, NothingStaysNothing)
{
    PlayoutPacer pacer(format, milliseconds(40));
    Samples piece;
    pacer.pace(0, piece);
    EXPECT_TRUE(piece.empty());
}

TEST(PlayoutPacer, ChannelsStayApart)
{
    PlayoutPacer pacer({48000, 2}, milliseconds(40));
    bool stretched = false;
    for (int i = 0; i < 400; ++i)
    {
        Samples piece;
        for (std::size_t frame = 0; frame < 20 * ms; ++frame)
        {
            piece.insert(piece.end(), {100, -100});
        }
        pacer.pace(70 * ms, piece);
        stretched = stretched || piece.size() < 40 * ms;
        ASSERT_EQ(0u, piece.size() % 2);
        for (std::size_t at = 0; at < piece.size(); at += 2)
        {
            ASSERT_EQ(100, piece[at]);
            ASSERT_EQ(-100, piece[at + 1]);
        }
    }
    EXPECT_TRUE(stretched);
}

TEST(PlayoutPacer, EqualClocksNeedNothing)
{
    Drifting output(960);
    for (int i = 0; i < 50 * 600; ++i)
    {
        output.turn();
    }
    EXPECT_EQ(1, output.dry) << "at the beginning";
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
        Samples piece = test::tone(1000, 48000, 20 * ms);
        const int own = test::steepest(piece);
        const Samples before = piece;
        pacer.pace(70 * ms, piece);
        shortened = shortened || piece.size() < before.size();
        ASSERT_LE(test::steepest(piece), own + own / 50);
        ASSERT_EQ(before.front(), piece.front());
        ASSERT_EQ(before.back(), piece.back());
    }
    EXPECT_TRUE(shortened);
}

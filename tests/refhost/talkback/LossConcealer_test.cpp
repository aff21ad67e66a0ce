#include "refhost/talkback/LossConcealer.h"

#include <gtest/gtest.h>

#include "tests/refhost/talkback/AudioSamples.h"

using namespace refhost;
using refhost::test::Samples;

namespace
{

const PcmFormat telephone{8000, 1};

// `before` ms of a tone, `lost` ms made up, and the tone again as it would have gone on.
Samples withGap(double hertz, int before, int lost, int after)
{
    const Samples whole = test::tone(hertz, 8000, static_cast<std::size_t>(before + lost + after) * 8);
    Samples out(whole.begin(), whole.begin() + before * 8);
    Samples tail(whole.begin() + (before + lost) * 8, whole.end());
    LossConcealer concealer;
    concealer.noteDecoded(telephone, out);
    concealer.makeUp(telephone, static_cast<std::size_t>(lost) * 8, out);
    concealer.noteDecoded(telephone, tail);
    out.insert(out.end(), tail.begin(), tail.end());
    return out;
}

}  // namespace

TEST(LossConcealer, LostPacketOfAVoiceSoundsOnAlmostAtItsLevel)
{
    const Samples out = withGap(200, 60, 20, 20);
    ASSERT_EQ(800u, out.size());
    EXPECT_LE(5500, test::rms(out, 480, 160)) << "the tone's own is 7071";
}

TEST(LossConcealer, BoundariesAreContinuous)
{
    for (const double hertz : {100.0, 230.0, 377.0, 1000.0})
    {
        const int own = test::steepest(test::tone(hertz, 8000, 800));
        EXPECT_LE(test::steepest(withGap(hertz, 60, 20, 20)), own + own / 3 + 200) << hertz;
    }
}

TEST(LossConcealer, LongGapFadesOutWithin60Milliseconds)
{
    const Samples out = withGap(200, 60, 200, 20);
    EXPECT_LE(test::rms(out, 480 + 320, 160), 4000);
    EXPECT_EQ(0, test::rms(out, 480 + 480, 1000));
    EXPECT_LT(1000, test::rms(out, 480 + 1600 + 80, 80)) << "and the audio comes back";
}

TEST(LossConcealer, GapConcealedInPartsIsOneGap)
{
    Samples audio = test::tone(200, 8000, 480);
    Samples together = audio;
    LossConcealer one;
    one.noteDecoded(telephone, together);
    one.makeUp(telephone, 320, together);
    LossConcealer two;
    two.noteDecoded(telephone, audio);
    two.makeUp(telephone, 160, audio);
    two.makeUp(telephone, 160, audio);
    EXPECT_EQ(together, audio);
}

TEST(LossConcealer, GapWithoutHistoryIsSilence)
{
    LossConcealer concealer;
    Samples out;
    concealer.makeUp({8000, 2}, 10, out);
    EXPECT_EQ(Samples(20, 0), out);
}

TEST(LossConcealer, ShortHistoryIsEnough)
{
    LossConcealer concealer;
    Samples out{1000};
    concealer.noteDecoded(telephone, out);
    concealer.makeUp(telephone, 8, out);
    EXPECT_EQ(9u, out.size());
    EXPECT_EQ(1000, out[8]);
}

TEST(LossConcealer, ResetForgetsTheHistory)
{
    LossConcealer concealer;
    Samples out = test::tone(200, 8000, 480);
    concealer.noteDecoded(telephone, out);
    concealer.reset();
    out.clear();
    concealer.makeUp(telephone, 4, out);
    EXPECT_EQ(Samples(4, 0), out);
}

TEST(LossConcealer, ChannelsStayApart)
{
    LossConcealer concealer;
    Samples out;
    for (const std::int16_t sample : test::tone(200, 8000, 480))
    {
        out.insert(out.end(), {sample, 0});
    }
    concealer.noteDecoded({8000, 2}, out);
    out.clear();
    concealer.makeUp({8000, 2}, 160, out);
    ASSERT_EQ(320u, out.size());
    for (std::size_t i = 1; i < out.size(); i += 2)
    {
        ASSERT_EQ(0, out[i]);
    }
}

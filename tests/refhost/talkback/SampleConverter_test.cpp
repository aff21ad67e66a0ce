#include "refhost/talkback/SampleConverter.h"

#include <gtest/gtest.h>

#include "tests/refhost/talkback/AudioSamples.h"

using namespace refhost;
using refhost::test::Samples;

TEST(SampleConverter, AudioOfTheOutputsFormatPassesAsItIs)
{
    SampleConverter converter({48000, 1});
    Samples out{7};
    ASSERT_TRUE(converter.convert({48000, 1}, {1, 2, 3}, out));
    EXPECT_EQ((Samples{7, 1, 2, 3}), out);
}

TEST(SampleConverter, BlocksMakeOneContinuousTone)
{
    const Samples in = test::tone(1000, 8000, 8000);
    SampleConverter converter({48000, 1});
    Samples out;
    for (std::size_t i = 0; i < in.size(); i += 160)
    {
        ASSERT_TRUE(converter.convert({8000, 1},
                                      Samples(in.begin() + static_cast<std::ptrdiff_t>(i),
                                              in.begin() + static_cast<std::ptrdiff_t>(i + 160)),
                                      out));
    }
    EXPECT_GE(48000u, out.size());
    EXPECT_LE(48000u - 48000u / 500, out.size()) << "two milliseconds stay in the filter";
    EXPECT_NEAR(10000, test::amplitudeAt(1000, 48000, out, 480, 46080), 100);
    const Samples amid(out.begin() + 480, out.end() - 480);
    EXPECT_LE(test::steepest(amid), 1320)
        << "a discontinuity would be a step; the tone's own are at most 1309";
}

TEST(SampleConverter, StereoBecomesMonoAtTheSameLevel)
{
    SampleConverter converter({16000, 1});
    Samples stereo;
    for (const std::int16_t sample : test::tone(500, 16000, 1600))
    {
        stereo.insert(stereo.end(), {sample, sample});
    }
    Samples out;
    ASSERT_TRUE(converter.convert({16000, 2}, stereo, out));
    ASSERT_LE(1500u, out.size());
    EXPECT_NEAR(10000, test::amplitudeAt(500, 16000, out, 160, 1280), 200);
}

TEST(SampleConverter, AnotherFormatInTheMiddleIsTaken)
{
    SampleConverter converter({48000, 1});
    Samples out;
    ASSERT_TRUE(converter.convert({8000, 1}, test::tone(1000, 8000, 800), out));
    out.clear();
    ASSERT_TRUE(converter.convert({16000, 1}, test::tone(1000, 16000, 1600), out));
    EXPECT_NEAR(4800, static_cast<double>(out.size()), 100);
}

TEST(SampleConverter, EmptyInputGivesNothing)
{
    SampleConverter converter({48000, 2});
    Samples out;
    EXPECT_TRUE(converter.convert({8000, 1}, {}, out));
    EXPECT_TRUE(out.empty());
}

TEST(SampleConverter, InvalidFormatIsRefused)
{
    SampleConverter converter({48000, 1});
    Samples out;
    EXPECT_FALSE(converter.convert({0, 1}, {1, 2}, out));
    EXPECT_TRUE(out.empty());
}

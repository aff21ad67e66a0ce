#include "refhost/fragments/OpusTranscoder.h"

#include <gtest/gtest.h>

#include "tests/refhost/fragments/TelephoneTone.h"

namespace refhost
{
namespace
{

using test::TelephoneTone;

/// What listeners hear.
test::Samples samplesOf(const std::vector<EncodedUnitPtr>& units)
{
    const MediaFormat& format = *units.at(0)->format;
    const auto decoder = LibavDecoder::make(
        Codec::opus, std::string(format.codecData.begin(), format.codecData.end()), {48000, format.channels});
    test::Samples all;
    test::Samples samples;
    for (const EncodedUnitPtr& unit : units)
    {
        EXPECT_TRUE(decoder->decode(unit->bytes.data(), unit->bytes.size(), samples));
        all.insert(all.end(), samples.begin(), samples.end());
    }
    return all;
}

class OpusTranscoderTest : public testing::TestWithParam<Codec>
{
};

TEST_P(OpusTranscoderTest, TheToneIsTheSameAndInTime)
{
    const TelephoneTone tone(GetParam());
    const auto transcoder = OpusTranscoder::make(tone.format);
    ASSERT_NE(transcoder, nullptr);
    std::vector<EncodedUnitPtr> out;
    // Blocks of 30 ms become blocks of 20 ms.
    for (int i = 0; i < 50; ++i)
    {
        transcoder->transcode(*tone.block(i * 0.03, 240), out);
    }
    ASSERT_EQ(out.size(), 75U);
    EXPECT_EQ(out[0]->format->codec, Codec::opus);
    EXPECT_EQ(out[0]->format->sampleRate, 48000);
    for (std::size_t i = 1; i < out.size(); ++i)
    {
        EXPECT_EQ(out[i]->captureTime - out[i - 1]->captureTime, std::chrono::milliseconds(20));
        EXPECT_EQ(out[i]->duration, std::chrono::milliseconds(20));
        EXPECT_EQ(out[i]->decodeTime, out[i]->captureTime);
        EXPECT_EQ(out[i]->format, out[0]->format);
    }
    const Duration delay = MadeUnits::capturedAt(0) - out[0]->captureTime;
    EXPECT_GT(delay, Duration::zero()) << "the encoder's";
    EXPECT_LT(delay, std::chrono::milliseconds(10));
    const test::Samples samples = samplesOf(out);
    ASSERT_EQ(samples.size(), 75U * 960);
    EXPECT_NEAR(test::amplitudeAt(TelephoneTone::hertz, 48000, samples, 9600, 48000), 10000, 1500);
    EXPECT_NEAR(test::rms(samples, 9600, 48000), 10000 / std::sqrt(2), 1200) << "nothing but the tone";
}

TEST_P(OpusTranscoderTest, ABlockThatDoesNotContinueTheLastStartsAgain)
{
    const TelephoneTone tone(GetParam());
    const auto transcoder = OpusTranscoder::make(tone.format);
    std::vector<EncodedUnitPtr> out;
    transcoder->transcode(*tone.block(0, 240), out);
    ASSERT_EQ(out.size(), 1U);
    transcoder->transcode(*tone.block(5, 160), out);
    ASSERT_EQ(out.size(), 2U) << "the half block in front of the gap is forgotten";
    EXPECT_EQ(out[1]->captureTime - out[0]->captureTime, std::chrono::seconds(5));
}

TEST_P(OpusTranscoderTest, TwoChannelsStayTwo)
{
    const TelephoneTone tone(GetParam(), 2);
    const auto transcoder = OpusTranscoder::make(tone.format);
    ASSERT_NE(transcoder, nullptr);
    std::vector<EncodedUnitPtr> out;
    transcoder->transcode(*tone.block(0, 800), out);
    EXPECT_EQ(out.size(), 5U);
    EXPECT_EQ(samplesOf(out).size(), 5U * 960 * 2);
}

TEST_P(OpusTranscoderTest, MalformedBlocksAreLeftOut)
{
    const TelephoneTone tone(GetParam());
    const auto transcoder = OpusTranscoder::make(tone.format);
    std::vector<EncodedUnitPtr> out;
    transcoder->transcode(*tone.block(0, 0), out);
    EncodedUnit large = *tone.block(0, 1);
    large.bytes.resize(100000);
    transcoder->transcode(large, out);
    EXPECT_TRUE(out.empty());
    transcoder->transcode(*tone.block(0, 160), out);
    EXPECT_EQ(out.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Telephone, OpusTranscoderTest, testing::Values(Codec::pcmu, Codec::pcma),
                         [](const auto& tested) { return infoOf(tested.param).name; });

TEST(OpusTranscoder, LeavesAloneWhatBrowsersPlayAndWhatItCannotEncode)
{
    EXPECT_EQ(OpusTranscoder::formatFor(*MadeUnits::audioFormat(Codec::aac)), nullptr);
    EXPECT_EQ(OpusTranscoder::formatFor(*MadeUnits::audioFormat(Codec::opus)), nullptr);
    EXPECT_EQ(OpusTranscoder::formatFor(*MadeUnits::videoFormat()), nullptr);
    MediaFormat format = *MadeUnits::audioFormat(Codec::pcmu);
    format.sampleRate = 11025;
    EXPECT_EQ(OpusTranscoder::formatFor(format), nullptr);
    EXPECT_EQ(OpusTranscoder::make(std::make_shared<const MediaFormat>(format)), nullptr);
    format.sampleRate = 16000;
    EXPECT_NE(OpusTranscoder::make(std::make_shared<const MediaFormat>(format)), nullptr);
    format.channels = 3;
    EXPECT_EQ(OpusTranscoder::formatFor(format), nullptr);
}

}  // namespace
}  // namespace refhost

#include "refhost/rtp/payload/AudioConfig.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/payload/H264Units.h"

namespace refhost
{
namespace
{

using test::Bytes;
using test::fromHex;

struct Case
{
    const char* name;
    const char* hex;
    std::uint32_t sampleRate;
    int channels;
    std::uint32_t frameSamples;
};

class AudioConfigTest : public testing::TestWithParam<Case>
{
};

TEST_P(AudioConfigTest, IsRead)
{
    const auto config = AudioConfig::read(fromHex(GetParam().hex));
    ASSERT_TRUE(config);
    EXPECT_EQ(config->sampleRate, GetParam().sampleRate);
    EXPECT_EQ(config->channels, GetParam().channels);
    EXPECT_EQ(config->frameSamples, GetParam().frameSamples);
    EXPECT_LE(config->bits, 4 * std::string(GetParam().hex).size());
}

TEST_P(AudioConfigTest, CutToItsFirstByteCannotBeRead)
{
    EXPECT_FALSE(AudioConfig::read(fromHex(std::string(GetParam().hex).substr(0, 2))));
    EXPECT_FALSE(AudioConfig::read({}));
}

INSTANTIATE_TEST_SUITE_P(Configs, AudioConfigTest,
                         testing::Values(Case{"Lc16000Mono", "1408", 16000, 1, 1024},
                                         Case{"Lc48000Stereo", "1190", 48000, 2, 1024},
                                         Case{"OfAvencAac", "140856e500", 16000, 1, 1024},
                                         Case{"ShortFrames", "140c", 16000, 1, 960},
                                         // Rate 22050 with spectral band replication to 44100.
                                         Case{"ExplicitReplication", "2b920800", 22050, 2, 1024},
                                         Case{"RateSpelledOut", "17801f4008", 16000, 1, 1024},
                                         Case{"SevenPointOne", "11b8", 48000, 8, 1024}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(AudioConfig, OfOtherCodecsIsNotRead)
{
    for (const char* const hex : {"f8e85000", "0000", "1688", "1480", "ffff", "1400"})
    {
        EXPECT_FALSE(AudioConfig::read(fromHex(hex))) << hex;
    }
}

}  // namespace
}  // namespace refhost

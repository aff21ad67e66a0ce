#include "refhost/media/SequenceParameterSet.h"

#include <gtest/gtest.h>

#include <string>

#include "refhost/base/Hex.h"

namespace refhost
{
namespace
{

std::optional<SequenceParameterSet> read(bool h265, const std::string& bytes)
{
    const auto* const data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    return h265 ? SequenceParameterSet::readH265(data, bytes.size())
                : SequenceParameterSet::readH264(data, bytes.size());
}

struct Case
{
    const char* name;
    bool h265;
    const char* hex;
    int width;
    int height;
    std::uint32_t chromaFormat;
    double frameRate;
};

class SequenceParameterSetTest : public testing::TestWithParam<Case>
{
};

// Made by x264 and x265.
constexpr Case cases[] = {
    {"H264OfWholeMacroblocks", false, "6742c015da0507ec05a830303528000003000800000301e478b175", 320, 240, 1,
     30},
    {"H264Cropped", false, "6742c015da05421e2223016a0c0c0d4a000003000200000300791e2c5d40", 322, 242, 1, 30},
    {"H264OfFullHd", false, "6742c028da01e0089f97016a02020280000003008000001e478c1950", 1920, 1080, 1, 30},
    {"H264InterlacedOf422", false, "677a001fbcd940b4126c05a8303032000003000200000300791e30632c", 720, 576, 2,
     30},
    {"H265Cropped", true,
     "42010101600000030090000003000003003fa00a8804071111965654a4c2fff000100016a0c0c0c080000003008000000f04",
     322, 242, 1, 0},
    {"H265OfFullHd", true,
     "420101016000000300900000030000030078a003c0801107cb965654a4c2fff000100016a020202080000003008000000f04",
     1920, 1080, 1, 0}};

TEST_P(SequenceParameterSetTest, HasTheDisplayedSizeAndTheFrameRate)
{
    const auto set = read(GetParam().h265, *bytesOfHex(GetParam().hex));
    ASSERT_TRUE(set);
    EXPECT_EQ(set->width, GetParam().width);
    EXPECT_EQ(set->height, GetParam().height);
    EXPECT_EQ(set->chromaFormat, GetParam().chromaFormat);
    EXPECT_EQ(set->frameRate, GetParam().frameRate);
    EXPECT_EQ(set->lumaBits, 8U);
    EXPECT_EQ(set->id, 0U);
}

TEST_P(SequenceParameterSetTest, CutShortIsNotReadBeyondItsEnd)
{
    const std::string whole = *bytesOfHex(GetParam().hex);
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        const auto set = read(GetParam().h265, whole.substr(0, size));
        EXPECT_FALSE(set && size < 8) << size;
    }
}

INSTANTIATE_TEST_SUITE_P(Sets, SequenceParameterSetTest, testing::ValuesIn(cases),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(SequenceParameterSet, OfH265HasWhatARecordRepeats)
{
    const auto set = read(true, *bytesOfHex("420101016000000300900000030000030078a003c0801107cb965654a4c2fff0"
                                            "00100016a020202080000003008000000f04"));
    ASSERT_TRUE(set);
    EXPECT_EQ(set->profileTierLevel,
              (std::array<std::uint8_t, 12>{0x01, 0x60, 0, 0, 0, 0x90, 0, 0, 0, 0, 0, 0x78}));
    EXPECT_EQ(set->subLayers, 1U);
    EXPECT_TRUE(set->temporalIdNesting);
}

TEST(SequenceParameterSet, OfAnotherTypeIsNotRead)
{
    EXPECT_FALSE(read(false, *bytesOfHex("6842c015da0507ec05a830303528000003000800000301e478b175")));
    EXPECT_FALSE(read(true, *bytesOfHex("440101016000000300900000030000030078a003c0801107cb965654a4c2")));
}

}  // namespace
}  // namespace refhost

#include "bench/load/FrameStart.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace rtspload
{
namespace
{

struct Case
{
    std::string name;
    std::string encoding;
    std::vector<std::uint8_t> payload;
    FrameStart expected;

    friend std::ostream& operator<<(std::ostream& out, const Case& tested)
    {
        return out << tested.name;
    }
};

class FrameStartOf : public testing::TestWithParam<Case>
{
};

TEST_P(FrameStartOf, Payload)
{
    const Case& given = GetParam();
    EXPECT_EQ(frameStart(given.encoding, given.payload.data(), given.payload.size()), given.expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, FrameStartOf,
    testing::Values(
        Case{"IdrSlice", "H264", {0x65, 0x88}, FrameStart::keyFrame},
        Case{"OtherSlice", "H264", {0x41, 0x9a}, FrameStart::other},
        Case{"ParameterSetAlone", "H264", {0x67, 0x42}, FrameStart::unknown},
        Case{"SupplementalInformationAlone", "H264", {0x06, 0x05}, FrameStart::unknown},
        Case{"StapWithParameterSetsAndIdrSlice",
             "H264",
             {0x78, 0, 2, 0x67, 0x42, 0, 1, 0x68, 0, 2, 0x65, 0x88},
             FrameStart::keyFrame},
        Case{"StapWithParameterSetsOnly", "H264", {0x78, 0, 2, 0x67, 0x42, 0, 1, 0x68}, FrameStart::unknown},
        Case{"StapCutShort", "H264", {0x78, 0xff, 0xff, 0x67}, FrameStart::unknown},
        Case{"FirstFragmentOfIdr", "H264", {0x7c, 0x85, 0x88}, FrameStart::keyFrame},
        Case{"LaterFragmentOfIdr", "H264", {0x7c, 0x05, 0x88}, FrameStart::unknown},
        Case{"FirstFragmentOfOther", "H264", {0x5c, 0x81, 0x9a}, FrameStart::other},
        Case{"FragmentCutShort", "H264", {0x7c}, FrameStart::unknown},
        Case{"H265Idr", "H265", {0x26, 0x01}, FrameStart::keyFrame},
        Case{"H265Other", "H265", {0x02, 0x01}, FrameStart::other},
        Case{"H265ParameterSet", "H265", {0x40, 0x01}, FrameStart::unknown},
        Case{"H265FirstFragmentOfIdr", "H265", {0x62, 0x01, 0x93}, FrameStart::keyFrame},
        Case{"H265PacketOfParameterSetAndIdr",
             "H265",
             {0x60, 0x01, 0, 2, 0x40, 0x01, 0, 2, 0x26, 0x01},
             FrameStart::keyFrame},
        Case{"Audio", "PCMU", {0x65, 0x65}, FrameStart::unknown},
        Case{"Nothing", "H264", {}, FrameStart::unknown}),
    [](const auto& given) { return given.param.name; });

}  // namespace
}  // namespace rtspload

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "mediaurl/OrvaneMediaUrl.h"
#include "tests/CapturedOutput.h"

namespace
{

const int cameraBefore = 77;
const double beginBefore = 7.0;
const double endBefore = 8.0;

struct PlaybackCase
{
    const char* name;
    const char* url;
    int result;
    int camera;
    double begin;
    double end;
};

void PrintTo(const PlaybackCase& playback, std::ostream* out)
{
    *out << playback.url;
}

class PlaybackUrl : public testing::TestWithParam<PlaybackCase>
{
};

PlaybackCase refused(const char* name, const char* url, int camera)
{
    return {name, url, -8, camera, beginBefore, endBefore};
}

const PlaybackCase playbackCases[] = {
    {"Plain", "orv/playback/1_100_3700", 0, 1, 100.0, 3700.0},
    {"BehindSchemeAndAuthority", "rtsp://192.0.2.10:554/orv/playback/5_100_200", 0, 5, 100.0, 200.0},
    {"EndBeforeBegin", "orv/playback/1_200_100", 0, 1, 200.0, 100.0},
    {"Zeros", "orv/playback/1_0_0", 0, 1, 0.0, 0.0},
    {"LeadingZeros", "orv/playback/01_010_007", 0, 1, 10.0, 7.0},
    {"BeyondThirtyTwoBits", "orv/playback/1_4294967296_99999999999", 0, 1, 4294967296.0, 99999999999.0},
    {"BeyondEveryInteger", "orv/playback/1_100_1000000000000000000000000", 0, 1, 100.0, 1e24},
    {"NegativeCamera", "orv/playback/-1_100_200", 0, -1, 100.0, 200.0},
    refused("FourFields", "orv/playback/1_100_200_300", 1),
    refused("Fraction", "orv/playback/1_1.5_2", 1),
    refused("FractionInEnd", "orv/playback/1_1_2.5", 1),
    refused("Sign", "orv/playback/1_-1_2", 1),
    refused("Blank", "orv/playback/1_1_ 2", 1),
    refused("Query", "orv/playback/1_100_200?a=b", 1),
    refused("NoEnd", "orv/playback/1_100", 1),
    refused("EmptyEnd", "orv/playback/1_100_", 1),
    refused("EmptyBegin", "orv/playback/1__200", 1),
    refused("CameraAndSeparator", "orv/playback/1_", 1),
    refused("CameraAndTwoSeparators", "orv/playback/1__", 1),
    refused("CameraAlone", "orv/playback/1", cameraBefore),
    refused("EmptyCamera", "orv/playback/_100_200", cameraBefore),
    refused("LetterAsCamera", "orv/playback/a_100_200", cameraBefore),
    refused("CameraOutOfRange", "orv/playback/2147483648_100_200", cameraBefore),
    refused("KeyAlone", "orv/playback/", cameraBefore),
    refused("PrefixAlone", "orv/playback", cameraBefore),
    refused("Live", "orv/live/1/0", cameraBefore),
    refused("WrongCase", "orv/Playback/1_100_200", cameraBefore),
    refused("Empty", "", cameraBefore),
    refused("HighByteAsCamera", "orv/playback/\xb1_100_200", cameraBefore),
    refused("HighByteAsBegin", "orv/playback/1_\xb1_200", 1),
    refused("HighByteAsEnd", "orv/playback/1_100_\xb2", 1),
    refused("HighByteAsSeparator",
            "orv/playback/1_100\xdf"
            "200",
            1),
};

}  // namespace

TEST_P(PlaybackUrl, ReturnsResultAndFieldsAndPrintsNothing)
{
    const PlaybackCase& playback = GetParam();
    OrvaneMediaUrl codec;
    codec.objMediaUrlParam.setCameraID(cameraBefore);
    codec.objMediaUrlParam.setStreamID(3);
    codec.objMediaUrlParam.setRecordBeginTime(beginBefore);
    codec.objMediaUrlParam.setRecordEndTime(endBefore);
    CapturedOutput output;
    EXPECT_EQ(playback.result, codec.parsePlaybackMediaUrl(playback.url));
    EXPECT_EQ("", output.text());
    EXPECT_EQ("orv/playback", codec.objMediaUrlParam.getMediaUrlPrefix());
    EXPECT_EQ(playback.camera, codec.objMediaUrlParam.getCameraID());
    EXPECT_EQ(3, codec.objMediaUrlParam.getStreamID());
    EXPECT_EQ(playback.begin, codec.objMediaUrlParam.getRecordBeginTime());
    EXPECT_EQ(playback.end, codec.objMediaUrlParam.getRecordEndTime());
}

INSTANTIATE_TEST_SUITE_P(Table, PlaybackUrl, testing::ValuesIn(playbackCases),
                         [](const testing::TestParamInfo<PlaybackCase>& row) { return row.param.name; });

TEST(OrvaneMediaUrlPlayback, EveryPrefixOfAUrlUpToItsLastFieldIsRefused)
{
    const std::string url = "rtsp://192.0.2.10/orv/playback/12_100_20";
    for (std::size_t length = 0; length <= url.size() - 2; ++length)
    {
        OrvaneMediaUrl codec;
        EXPECT_EQ(-8, codec.parsePlaybackMediaUrl(url.substr(0, length))) << url.substr(0, length);
        EXPECT_EQ(0.0, codec.objMediaUrlParam.getRecordBeginTime());
        EXPECT_EQ(0.0, codec.objMediaUrlParam.getRecordEndTime());
    }
}

TEST(OrvaneMediaUrlPlayback, TimesThatNoDoubleHoldsAreAccepted)
{
    OrvaneMediaUrl codec;
    EXPECT_EQ(0, codec.parsePlaybackMediaUrl("orv/playback/1_1_" + std::string(400, '9')));
    EXPECT_EQ(1.0, codec.objMediaUrlParam.getRecordBeginTime());
}

TEST(OrvaneMediaUrlPlayback, RendersWhatItParsed)
{
    OrvaneMediaUrl codec;
    ASSERT_EQ(0, codec.parsePlaybackMediaUrl("rtsp://192.0.2.10/orv/playback/3_10_20"));
    EXPECT_EQ("orv/playback/3_10_20", codec.toPlayBackMediaUrl());
}

TEST(OrvaneMediaUrlPlayback, RendersZerosAtFirst)
{
    OrvaneMediaUrl codec;
    EXPECT_EQ("orv/playback/0_0_0", codec.toPlayBackMediaUrl());
}

TEST(OrvaneMediaUrlPlayback, RendersWholeSecondsBehindThePlaybackPrefixWhateverWasParsed)
{
    OrvaneMediaUrl codec;
    codec.parseMediaUrl("orv/live/2/1");
    codec.objMediaUrlParam.setRecordBeginTime(100.9);
    codec.objMediaUrlParam.setRecordEndTime(200.0);
    EXPECT_EQ("orv/playback/2_100_200", codec.toPlayBackMediaUrl());
}

TEST(OrvaneMediaUrlPlayback, RendersTimesOutsideOfTheRangeAsItsEnds)
{
    OrvaneMediaUrl codec;
    codec.objMediaUrlParam.setRecordBeginTime(-5.0);
    codec.objMediaUrlParam.setRecordEndTime(4294967296.0);
    EXPECT_EQ("orv/playback/0_0_4294967295", codec.toPlayBackMediaUrl());
    codec.objMediaUrlParam.setRecordBeginTime(std::numeric_limits<double>::quiet_NaN());
    codec.objMediaUrlParam.setRecordEndTime(std::numeric_limits<double>::infinity());
    EXPECT_EQ("orv/playback/0_0_4294967295", codec.toPlayBackMediaUrl());
}

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mediaurl/OrvaneMediaUrl.h"
#include "tests/AllocationCounter.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeHost.h"

namespace
{

struct LiveCase
{
    const char* name;
    const char* url;
    int result;
    int camera;
    int stream;
};

void PrintTo(const LiveCase& live, std::ostream* out)
{
    *out << live.url;
}

class LiveUrl : public testing::TestWithParam<LiveCase>
{
};

const LiveCase liveCases[] = {
    {"Plain", "orv/live/1/0", 0, 1, 0},
    {"BehindSchemeAndAuthority", "rtsp://192.0.2.10:554/orv/live/12/2", 0, 12, 2},
    {"BehindAnyText", "xorv/live/1/0", 0, 1, 0},
    {"LeadingZeros", "orv/live/001/00", 0, 1, 0},
    {"Negative", "orv/live/-1/-2", 0, -1, -2},
    {"LargestNumbers", "orv/live/2147483647/-2147483648", 0, 2147483647, -2147483647 - 1},
    {"KeyTwice", "orv/live/3/1/orv/live/5/6", -8, 0, 0},
    {"KeyTwiceInFront", "orv/live/orv/live/5/6", -8, 0, 0},
    {"PrefixAlone", "orv/live", -8, 0, 0},
    {"KeyAlone", "orv/live/", -8, 0, 0},
    {"NoStream", "orv/live/1", -8, 0, 0},
    {"EmptyCamera", "orv/live//0", -8, 0, 0},
    {"EmptyStream", "orv/live/1/", -8, 0, 0},
    {"WrongCase", "ORV/LIVE/1/0", -8, 0, 0},
    {"Playback", "orv/playback/1_100_200", -8, 0, 0},
    {"Empty", "", -8, 0, 0},
    {"LettersInCamera", "orv/live/x/1", -8, 0, 0},
    {"LettersInStream", "orv/live/1/1a", -8, 0, 0},
    {"QueryInStream", "orv/live/1/0?a=b", -8, 0, 0},
    {"TrackInStream", "orv/live/1/0/trackID=0", -8, 0, 0},
    {"CameraOutOfRange", "orv/live/2147483648/0", -8, 0, 0},
    {"StreamOutOfRange", "orv/live/1/99999999999999999999", -8, 0, 0},
    {"TwoSlashesBehindCamera", "orv/live/1//0", -8, 0, 0},
    // Bytes that sign extension or the loss of one bit would turn into a match: 0xb1 for 1, 0xaf for a slash.
    {"HighBytesInFront", "\xff\xaf\xef/orv/live/1/0", 0, 1, 0},
    {"HighByteAsCamera", "orv/live/\xb1/0", -8, 0, 0},
    {"HighByteAsStream", "orv/live/1/\xb0", -8, 0, 0},
    {"HighByteAsSeparator",
     "orv/live/1\xaf"
     "0",
     -8, 0, 0},
    {"HighByteInKey", "orv\xaflive/1/0", -8, 0, 0},
};

}  // namespace

TEST_P(LiveUrl, ReturnsResultAndFieldsAndPrintsNothing)
{
    const LiveCase& live = GetParam();
    OrvaneMediaUrl codec;
    CapturedOutput output;
    EXPECT_EQ(live.result, codec.parseMediaUrl(live.url));
    EXPECT_EQ("", output.text());
    EXPECT_EQ("orv/live", codec.objMediaUrlParam.getMediaUrlPrefix());
    EXPECT_EQ(live.camera, codec.objMediaUrlParam.getCameraID());
    EXPECT_EQ(live.stream, codec.objMediaUrlParam.getStreamID());
    EXPECT_EQ("", codec.objMediaUrlParam.getDeviceId());
    EXPECT_EQ(0.0, codec.objMediaUrlParam.getRecordBeginTime());
    EXPECT_EQ(0.0, codec.objMediaUrlParam.getRecordEndTime());
    EXPECT_FALSE(codec.objMediaUrlParam.getMulticastFlag());
}

INSTANTIATE_TEST_SUITE_P(Table, LiveUrl, testing::ValuesIn(liveCases),
                         [](const testing::TestParamInfo<LiveCase>& row) { return row.param.name; });

TEST(OrvaneMediaUrlLive, EveryProperPrefixOfAUrlUpToItsLastFieldIsRefused)
{
    const std::string url = "rtsp://192.0.2.10:554/orv/live/12/34";
    const std::size_t lastField = url.size() - 2;
    for (std::size_t length = 0; length < url.size(); ++length)
    {
        OrvaneMediaUrl codec;
        const int result = codec.parseMediaUrl(url.substr(0, length));
        if (length <= lastField)
        {
            EXPECT_EQ(-8, result) << url.substr(0, length);
            EXPECT_EQ(0, codec.objMediaUrlParam.getCameraID()) << url.substr(0, length);
            EXPECT_EQ(0, codec.objMediaUrlParam.getStreamID()) << url.substr(0, length);
        }
        else
        {
            EXPECT_EQ(0, result);
            EXPECT_EQ(3, codec.objMediaUrlParam.getStreamID());
        }
    }
}

TEST(OrvaneMediaUrlLive, EmptyFieldsAreRefusedAlsoWhereTheHostTakesThemForNumbers)
{
    FakeHost::instance().readEmptyTextAsZero(true);
    OrvaneMediaUrl codec;
    EXPECT_EQ(-8, codec.parseMediaUrl("orv/live//0"));
    EXPECT_EQ(-8, codec.parseMediaUrl("orv/live/1/"));
    EXPECT_EQ(-8, codec.parseMediaUrl("orv/live//"));
    EXPECT_EQ(-8, codec.parseMediaUrl("orv/live/"));
    EXPECT_EQ(-8, codec.parsePlaybackMediaUrl("orv/playback/_1_2"));
    EXPECT_EQ(-8, codec.parsePlaybackMediaUrl("orv/playback/1__2"));
    EXPECT_EQ(-8, codec.parsePlaybackMediaUrl("orv/playback/1_1_"));
    FakeHost::instance().reset();
}

TEST(OrvaneMediaUrlLive, EmbeddedNulIsNoNumber)
{
    OrvaneMediaUrl codec;
    EXPECT_EQ(-8, codec.parseMediaUrl(std::string("orv/live/1\0/0", 13)));
    EXPECT_EQ(-8, codec.parseMediaUrl(std::string("orv/live/1/0\0", 13)));
}

TEST(OrvaneMediaUrlLive, FailedParseLeavesCameraAndStreamOfTheOneBefore)
{
    OrvaneMediaUrl codec;
    ASSERT_EQ(0, codec.parseMediaUrl("orv/live/4/1"));
    EXPECT_EQ(-8, codec.parseMediaUrl("orv/live/x/1"));
    EXPECT_EQ(-8, codec.parseMediaUrl("orv/live/5/x"));
    EXPECT_EQ(4, codec.objMediaUrlParam.getCameraID());
    EXPECT_EQ(1, codec.objMediaUrlParam.getStreamID());
}

TEST(OrvaneMediaUrlLive, PrefixIsSetAlsoWhenThePlaybackPrefixWasThere)
{
    OrvaneMediaUrl codec;
    codec.parsePlaybackMediaUrl("orv/playback/1_2_3");
    EXPECT_EQ(-8, codec.parseMediaUrl(""));
    EXPECT_EQ("orv/live", codec.objMediaUrlParam.getMediaUrlPrefix());
}

TEST(OrvaneMediaUrlLive, RendersCameraAndStreamBehindTheLivePrefixWhateverWasParsed)
{
    OrvaneMediaUrl codec;
    EXPECT_EQ("orv/live/0/0", codec.toMediaUrl());
    codec.parsePlaybackMediaUrl("orv/playback/3_10_20");
    codec.objMediaUrlParam.setStreamID(1);
    EXPECT_EQ("orv/live/3/1", codec.toMediaUrl());
    codec.objMediaUrlParam.setCameraID(-2147483647 - 1);
    codec.objMediaUrlParam.setStreamID(2147483647);
    EXPECT_EQ("orv/live/-2147483648/2147483647", codec.toMediaUrl());
}

TEST(OrvaneMediaUrlLive, ParsingAllocatesNothingBeyondItsStrings)
{
    const std::string url = "rtsp://user@a-host-with-a-rather-long-name.example.com:554/orv/live/12/2";
    OrvaneMediaUrl codec;
    ASSERT_EQ(0, codec.parseMediaUrl(url));
    const AllocationCounter counter;
    const int result = codec.parseMediaUrl(url);
    EXPECT_EQ(0u, counter.count()) << "every string involved is short enough to be kept in place";
    EXPECT_EQ(0, result);
}

TEST(OrvaneMediaUrlMulticast, AcceptsAnyTextAndWritesNothing)
{
    OrvaneMediaUrl codec;
    ASSERT_EQ(0, codec.parsePlaybackMediaUrl("orv/playback/4_1_2"));
    for (const char* url : {"", "orv/multicast/1/0", "orv/live/7/8"})
    {
        EXPECT_EQ(0, codec.parseMulticastMediaUrl(url));
        EXPECT_EQ("orv/playback", codec.objMediaUrlParam.getMediaUrlPrefix());
        EXPECT_EQ(4, codec.objMediaUrlParam.getCameraID());
        EXPECT_EQ(0, codec.objMediaUrlParam.getStreamID());
    }
}

TEST(OrvaneMediaUrlMulticast, RendersNothing)
{
    OrvaneMediaUrl codec;
    codec.parseMediaUrl("orv/live/1/2");
    EXPECT_EQ("", codec.toMulticastMediaUrl());
}

TEST(OrvaneMediaUrlType, IsOne)
{
    OrvaneMediaUrl codec;
    EXPECT_EQ(1, codec.getThirdPlatType());
}

TEST(OrvaneMediaUrlNumString, IsOneOrMoreDigits)
{
    const OrvaneMediaUrl codec;
    for (const char* text : {"0", "007", "4294967296", "9", "123456789012345678901234567890"})
    {
        EXPECT_TRUE(codec.isValidNumString(text)) << text;
    }
    for (const char* text :
         {"", "-1", "+1", "1.5", " 1", "1 ", "1a", "a", "/", ":", "1_2", "\xb1", "1\xb1", "\xff"})
    {
        EXPECT_FALSE(codec.isValidNumString(text)) << text;
    }
    EXPECT_FALSE(codec.isValidNumString(std::string("1\0", 2)));
}

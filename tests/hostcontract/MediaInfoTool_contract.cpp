#include <gtest/gtest.h>

#include <set>
#include <string>

#include "hostapi/description/MediaInfoTool.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

const std::string url = "orv/live/1/0";

class MediaInfoToolContract : public testing::Test
{
protected:
    void SetUp() override
    {
        HostUnderTest::prepareStreams();
        InetAddr address;
        address.setIP("127.0.0.1");
        DeviceInfoEx device;
        device.setDeviceID("device");
        device.setDeviceAddr(address);
        tool.setDeviceInfoEx(device);
        tool.setDeviceExAbility(DeviceExAbility());
        tool.setMediaUrl(url);
        tool.setThirdPlatType(1);
    }
    void TearDown() override
    {
        HostUnderTest::dropStreams();
    }

    MediaInfoTool tool;
};

}  // namespace

TEST_F(MediaInfoToolContract, DescribesEveryTrackOfALiveStream)
{
    MediaInfo info;
    ASSERT_EQ(0, tool.createMediaInfo(1, 0, info, false));
    EXPECT_EQ(url, info.mediaUrl);
    std::set<std::string> ids;
    std::set<std::string> types;
    for (const SubMediaInfo& track : info.getAllSubMediaInfo())
    {
        EXPECT_TRUE(ids.insert(track.trackId).second) << track.trackId;
        types.insert(track.mediaType);
        EXPECT_FALSE(track.trackId.empty());
        EXPECT_FALSE(track.encodingName.empty());
        EXPECT_GT(track.clockRate, 0);
        EXPECT_GE(track.payloadType, 0);
        EXPECT_LE(track.payloadType, 127);
        EXPECT_FALSE(track.getAudioBackInfoFlag());
    }
    EXPECT_EQ((std::set<std::string>{"audio", "video"}), types);
}

TEST_F(MediaInfoToolContract, DescriptionReplacesWhatTheOutRecordHeld)
{
    MediaInfo info;
    SubMediaInfo stale;
    stale.trackId = "stale";
    info.addSubMediaInfo(stale);
    ASSERT_EQ(0, tool.createMediaInfo(1, 0, info, false));
    EXPECT_FALSE(info.getSubMediaInfo("stale", stale));
}

TEST_F(MediaInfoToolContract, BackChannelIsNotDescribedWithoutTheAbility)
{
    MediaInfo info;
    ASSERT_EQ(0, tool.createMediaInfo(1, 0, info, true));
    for (const SubMediaInfo& track : info.getAllSubMediaInfo())
    {
        EXPECT_FALSE(track.getAudioBackInfoFlag());
    }
}

TEST_F(MediaInfoToolContract, FailureLeavesTheOutRecordUnchanged)
{
    int camera = 0;
    int stream = 0;
    HostUnderTest::prepareFailingStream(camera, stream);
    MediaInfo info;
    SubMediaInfo kept;
    kept.trackId = "kept";
    info.addSubMediaInfo(kept);
    info.mediaUrl = "kept";
    EXPECT_NE(0, tool.createMediaInfo(camera, stream, info, true));
    EXPECT_EQ("kept", info.mediaUrl);
    ASSERT_EQ(1u, info.getAllSubMediaInfo().size());
    EXPECT_EQ("kept", info.getAllSubMediaInfo().front().trackId);
}

#include <gtest/gtest.h>

#include <string>

#include "hostapi/description/MediaInfoTool.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/description/ThirdPlatMgr.h"
#include "hostapi/playback/OVAVPlayBackSource.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

const int video = 1;
const int audio = 2;
const int encoder = 103;

RecordInfo sampleRecord()
{
    RecordInfo record;
    record.setCameraId(12);
    record.setDeviceId("device");
    record.setDeviceIP("192.0.2.1");
    record.setRecordBeginTime(100);
    record.setRecordEndTime(3700);
    return record;
}

}  // namespace

TEST(RecordInfoContract, IsEmptyAtFirst)
{
    const RecordInfo record;
    EXPECT_EQ(0, record.getCameraId());
    EXPECT_STREQ("", record.getDeviceId());
    EXPECT_STREQ("", record.getDeviceIP());
    EXPECT_EQ(0u, record.getRecordBeginTime());
    EXPECT_EQ(0u, record.getRecordEndTime());
}

TEST(RecordInfoContract, KeepsTheValuesThatWereSet)
{
    const RecordInfo record = sampleRecord();
    EXPECT_EQ(12, record.getCameraId());
    EXPECT_STREQ("device", record.getDeviceId());
    EXPECT_STREQ("192.0.2.1", record.getDeviceIP());
    EXPECT_EQ(100u, record.getRecordBeginTime());
    EXPECT_EQ(3700u, record.getRecordEndTime());
}

TEST(RecordInfoContract, TimesHave32BitsWithoutSign)
{
    RecordInfo record;
    record.setRecordBeginTime(static_cast<unsigned long>(-1L));
    record.setRecordEndTime(4294967294ul);
    EXPECT_EQ(4294967295u, record.getRecordBeginTime());
    EXPECT_EQ(4294967294u, record.getRecordEndTime());
}

TEST(RecordInfoContract, NullTextIsEmpty)
{
    RecordInfo record = sampleRecord();
    record.setDeviceId(nullptr);
    record.setDeviceIP(nullptr);
    EXPECT_STREQ("", record.getDeviceId());
    EXPECT_STREQ("", record.getDeviceIP());
}

TEST(OVAVPlayBackSourceContract, ReturnsTheRecordThatWasSet)
{
    OVAVPlayBackSource source;
    EXPECT_EQ(0, source.getRecordInfo().getCameraId());
    source.setDeviceInfo(DeviceInfoEx());
    source.setDeviceAbility(DeviceExAbility());
    source.setRecordInfo(sampleRecord());
    source.setThirdPlatType(1);
    const IMediaSource& seenByADispatcher = source;
    EXPECT_EQ(12, seenByADispatcher.getRecordInfo().getCameraId());
    EXPECT_EQ(100u, seenByADispatcher.getRecordInfo().getRecordBeginTime());
    EXPECT_EQ(3700u, seenByADispatcher.getRecordInfo().getRecordEndTime());
}

TEST(ThirdPlatMgrContract, NamesTracksAsDescriptionsDo)
{
    HostUnderTest::prepareStreams();
    MediaInfoTool tool;
    MediaInfo info;
    ASSERT_EQ(0, tool.createMediaInfo(1, 0, info, false));
    for (const SubMediaInfo& track : info.getAllSubMediaInfo())
    {
        const int type = track.mediaType == "video" ? video : audio;
        EXPECT_EQ(track.trackId, ThirdPlatMgr().getTrackIDByESStreamType(1, type, false, encoder));
    }
    HostUnderTest::dropStreams();
}

TEST(ThirdPlatMgrContract, TracksThatNoRecordingHasAreWithoutName)
{
    for (const int type : {0, 3, -1})
    {
        EXPECT_EQ("", ThirdPlatMgr().getTrackIDByESStreamType(1, type, false, encoder)) << type;
    }
    EXPECT_EQ("", ThirdPlatMgr().getTrackIDByESStreamType(1, audio, true, encoder)) << "sent by a client";
}

TEST(PlaybackDescriptionContract, FailureLeavesTheOutRecordUnchanged)
{
    RecordInfo record = sampleRecord();
    HostUnderTest::prepareFailingRecording(record);
    MediaInfo info;
    SubMediaInfo kept;
    kept.trackId = "kept";
    info.addSubMediaInfo(kept);
    info.mediaUrl = "kept";
    MediaInfoTool tool;
    tool.setMediaUrl("orv/playback/12_100_3700");
    EXPECT_NE(0, tool.createPlaybackMediaInfo(record, info));
    EXPECT_EQ("kept", info.mediaUrl);
    ASSERT_EQ(1u, info.getAllSubMediaInfo().size());
    EXPECT_EQ("kept", info.getAllSubMediaInfo().front().trackId);
    HostUnderTest::dropStreams();
}

#include "mediaurl/MediaUrlParam.h"

#include <gtest/gtest.h>

#include <string>

TEST(MediaUrlParam, IsEmptyAtFirst)
{
    const MediaUrlParam param;
    EXPECT_EQ("", param.getMediaUrlPrefix());
    EXPECT_EQ("", param.getDeviceId());
    EXPECT_EQ(0, param.getCameraID());
    EXPECT_EQ(0, param.getStreamID());
    EXPECT_EQ(0.0, param.getRecordBeginTime());
    EXPECT_EQ(0.0, param.getRecordEndTime());
    EXPECT_FALSE(param.getMulticastFlag());
}

TEST(MediaUrlParam, KeepsEachValueApart)
{
    MediaUrlParam param;
    std::string prefix = "orv/live";
    param.setMediaUrlPrefix(prefix);
    param.setDeviceId("device");
    param.setCameraID(-1);
    param.setStreamID(2);
    param.setRecordBeginTime(3.5);
    param.setRecordEndTime(4.5);
    param.setMulticastFlag(true);
    EXPECT_EQ("orv/live", param.getMediaUrlPrefix());
    EXPECT_EQ("orv/live", prefix) << "the setter takes a reference and leaves it alone";
    EXPECT_EQ("device", param.getDeviceId());
    EXPECT_EQ(-1, param.getCameraID());
    EXPECT_EQ(2, param.getStreamID());
    EXPECT_EQ(3.5, param.getRecordBeginTime());
    EXPECT_EQ(4.5, param.getRecordEndTime());
    EXPECT_TRUE(param.getMulticastFlag());
}

TEST(MediaUrlParam, AssignmentCopiesAllSevenFieldsAndTheTextsAreIndependent)
{
    MediaUrlParam source;
    std::string prefix = "orv/playback";
    source.setMediaUrlPrefix(prefix);
    source.setDeviceId("first");
    source.setCameraID(1);
    source.setStreamID(2);
    source.setRecordBeginTime(3.0);
    source.setRecordEndTime(4.0);
    source.setMulticastFlag(true);
    MediaUrlParam copy;
    copy = source;
    std::string other = "orv/live";
    source.setMediaUrlPrefix(other);
    source.setDeviceId("second");
    EXPECT_EQ("orv/playback", copy.getMediaUrlPrefix());
    EXPECT_EQ("first", copy.getDeviceId());
    EXPECT_EQ(1, copy.getCameraID());
    EXPECT_EQ(2, copy.getStreamID());
    EXPECT_EQ(3.0, copy.getRecordBeginTime());
    EXPECT_EQ(4.0, copy.getRecordEndTime());
    EXPECT_TRUE(copy.getMulticastFlag());
}

TEST(MediaUrlParam, GettersReturnCopies)
{
    MediaUrlParam param;
    param.setDeviceId("device");
    param.getDeviceId() += " changed";
    EXPECT_EQ("device", param.getDeviceId());
}

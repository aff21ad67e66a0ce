#include "hostapi/description/MediaInfoTool.h"

#include <gtest/gtest.h>

#include "refhost/base/HostStatus.h"
#include "refhost/media/Device.h"
#include "tests/refhost/description/FakeDirectory.h"

namespace refhost
{
namespace
{

using test::FakeDirectory;

class MediaInfoToolTest : public testing::Test
{
protected:
    MediaInfoToolTest()
    {
        SubMediaInfo track;
        track.trackId = "trackID=0";
        directory->stream->tracks.push_back(track);
        track.trackId = "trackID=1";
        directory->stream->tracks.push_back(track);
        Device::setStreams(directory);
        out.mediaUrl = "before";
    }

    ~MediaInfoToolTest() override
    {
        Device::setStreams(nullptr);
    }

    int create(int camera, int stream, bool withTalkBack = true)
    {
        MediaInfoTool tool;
        tool.setDeviceInfoEx(DeviceInfoEx());
        tool.setDeviceExAbility(DeviceExAbility());
        tool.setMediaUrl("orv/live/3/1");
        tool.setThirdPlatType(1);
        return tool.createMediaInfo(camera, stream, out, withTalkBack);
    }

    std::shared_ptr<FakeDirectory> directory = std::make_shared<FakeDirectory>();
    MediaInfo out;
};

TEST_F(MediaInfoToolTest, ReadyStreamIsDescribedWithItsTracksInOrder)
{
    ASSERT_EQ(create(3, 1), 0);
    EXPECT_EQ(out.mediaUrl, "orv/live/3/1");
    ASSERT_EQ(out.getAllSubMediaInfo().size(), 2U);
    EXPECT_EQ(out.getAllSubMediaInfo()[0].trackId, "trackID=0");
    EXPECT_EQ(out.getAllSubMediaInfo()[1].trackId, "trackID=1");
}

TEST_F(MediaInfoToolTest, DescriptionReplacesThePreviousOne)
{
    ASSERT_EQ(create(3, 1), 0);
    ASSERT_EQ(create(3, 1), 0);
    EXPECT_EQ(out.getAllSubMediaInfo().size(), 2U);
}

TEST_F(MediaInfoToolTest, BackChannelIsLastIfRequestedAndAvailable)
{
    directory->talkBack = true;
    ASSERT_EQ(create(3, 1), 0);
    ASSERT_EQ(out.getAllSubMediaInfo().size(), 3U);
    EXPECT_TRUE(out.getAllSubMediaInfo()[2].getAudioBackInfoFlag());
    ASSERT_EQ(create(3, 1, false), 0);
    EXPECT_EQ(out.getAllSubMediaInfo().size(), 2U);
    directory->talkBack = false;
    ASSERT_EQ(create(3, 1), 0);
    EXPECT_EQ(out.getAllSubMediaInfo().size(), 2U);
}

TEST_F(MediaInfoToolTest, UnknownStreamIsReportedAndLeavesTheDescription)
{
    EXPECT_EQ(create(3, 2), hostStreamUnknown);
    EXPECT_EQ(create(-1, 1), hostStreamUnknown);
    EXPECT_EQ(out.mediaUrl, "before");
}

TEST_F(MediaInfoToolTest, StreamThatIsStartingIsNotReady)
{
    directory->stream->description = StreamSource::Description::starting;
    EXPECT_EQ(create(3, 1), hostStreamNotReady);
    EXPECT_EQ(out.mediaUrl, "before");
}

TEST_F(MediaInfoToolTest, FailedStreamIsReported)
{
    directory->stream->description = StreamSource::Description::failed;
    EXPECT_EQ(create(3, 1), hostStreamFailed);
    EXPECT_EQ(out.mediaUrl, "before");
}

TEST_F(MediaInfoToolTest, HostWithoutStreamsHasNone)
{
    Device::setStreams(nullptr);
    EXPECT_EQ(create(3, 1), hostStreamUnknown);
}

}  // namespace
}  // namespace refhost

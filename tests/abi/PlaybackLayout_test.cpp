#include <gtest/gtest.h>

#include <string>

#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlaybackController.h"
#include "tests/CapturedOutput.h"
#include "tests/abi/Layout.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeDescription.h"

// The mirrors below name the members of each class in the order in which hosts know them.
namespace
{

struct PlayBackMirror
{
    void* table;
    OVMutex mutex;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    MediaInfo mediaInfo;
    int thirdPlatType;
    SafePointer<RTPPlayBackDispacher> dispatcher;
    bool firstTrackPlaying;
    bool secondTrackPlaying;
    std::string firstTrackId;
    std::string secondTrackId;
};

struct PlaybackControllerMirror
{
    void* table;
    OVMutex mutex;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    MediaInfo mediaInfo;
    int thirdPlatType;
    MediaUrlParam mediaUrlParam;
    std::string recordKey;
    PlayBackMirror playBack;
};

}  // namespace

TEST(Layout, PlaybackControllerFieldsStandInTheirOrder)
{
    EXPECT_EQ(sizeof(PlaybackControllerMirror), sizeof(OVPlaybackController));
    const SafePointer<MediaUrlFactoryMap> map = MediaUrlFactoryMap::getInstance();
    map->registerFactory(31, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    OVPlaybackController controller;
    const auto& playBack = Layout::at(&controller, &PlaybackControllerMirror::playBack);
    EXPECT_EQ(0, Layout::at(&controller, &PlaybackControllerMirror::thirdPlatType));
    EXPECT_EQ("", Layout::at(&controller, &PlaybackControllerMirror::recordKey));
    EXPECT_FALSE(playBack.dispatcher.isEmpty());
    EXPECT_EQ("", playBack.firstTrackId);
    DeviceInfoEx device;
    device.setDeviceID("device");
    DeviceExAbility ability;
    ability.setAudioBackFlag(true);
    ASSERT_EQ(0, controller.initInstance(31, "rtsp://host/orv/playback/12_100_3700", device, ability));
    EXPECT_STREQ("device", Layout::at(&controller, &PlaybackControllerMirror::deviceInfo).getDeviceID());
    EXPECT_TRUE(Layout::at(&controller, &PlaybackControllerMirror::deviceAbility).getAudioBackFlag());
    EXPECT_EQ("orv/playback/12_100_3700",
              Layout::at(&controller, &PlaybackControllerMirror::mediaInfo).mediaUrl);
    EXPECT_EQ(31, Layout::at(&controller, &PlaybackControllerMirror::thirdPlatType));
    EXPECT_EQ(12, Layout::at(&controller, &PlaybackControllerMirror::mediaUrlParam).getCameraID());
    EXPECT_EQ("12_100_3700", Layout::at(&controller, &PlaybackControllerMirror::recordKey));
    map->unregisterFactory(31);
}

TEST(Layout, PlaybackSessionFieldsStandInTheirOrder)
{
    EXPECT_EQ(sizeof(PlayBackMirror), sizeof(OVPlayBack));
    OVPlayBack session;
    EXPECT_TRUE(Layout::at(&session, &PlayBackMirror::mediaInfo).getAllSubMediaInfo().empty());
    EXPECT_FALSE(Layout::at(&session, &PlayBackMirror::dispatcher).isEmpty());
    EXPECT_EQ("", Layout::at(&session, &PlayBackMirror::secondTrackId));
    DeviceInfoEx device;
    device.setDeviceID("device");
    ASSERT_EQ(0, session.init(device, DeviceExAbility(), 31, 12, 100, 3700));
    session.setMediaInfo(FakeDescription::presentation(false));
    EXPECT_STREQ("", Layout::at(&session, &PlayBackMirror::deviceInfo).getDeviceID()) << "never filled";
    EXPECT_EQ(2u, Layout::at(&session, &PlayBackMirror::mediaInfo).getAllSubMediaInfo().size());
    EXPECT_EQ(31, Layout::at(&session, &PlayBackMirror::thirdPlatType));
    EXPECT_EQ("trackID=0", Layout::at(&session, &PlayBackMirror::firstTrackId));
    EXPECT_EQ("trackID=1", Layout::at(&session, &PlayBackMirror::secondTrackId));
    for (const char* track : {"trackID=0", "trackID=1"})
    {
        ASSERT_EQ(0, session.setup("session", track, SafePointer<IConnection>(new FakeConnection(1))));
    }
    session.play("session", "trackID=0");
    EXPECT_TRUE(Layout::at(&session, &PlayBackMirror::firstTrackPlaying));
    EXPECT_FALSE(Layout::at(&session, &PlayBackMirror::secondTrackPlaying));
    session.play("session", "trackID=1");
    session.pause("session", "trackID=0");
    EXPECT_FALSE(Layout::at(&session, &PlayBackMirror::firstTrackPlaying));
    EXPECT_TRUE(Layout::at(&session, &PlayBackMirror::secondTrackPlaying));
}

TEST(Layout, PlaybackSessionWithoutDispatcherThrowsOnlyWhereItAsksIt)
{
    OVPlayBack session;
    session.setMediaInfo(FakeDescription::presentation(false));
    // No operation leads here, only a write to the field.
    auto& dispatcher =
        const_cast<SafePointer<RTPPlayBackDispacher>&>(Layout::at(&session, &PlayBackMirror::dispatcher));
    dispatcher.dec_reference();
    ASSERT_TRUE(dispatcher.isEmpty());
    const auto setup = [&session](const char* trackId, int kind)
    { return session.setup("session", trackId, SafePointer<IConnection>(new FakeConnection(kind))); };
    CapturedOutput output;
    EXPECT_EQ(-6, setup("trackID=0", 0));
    EXPECT_EQ(-8, setup("no such track", 1));
    EXPECT_EQ(-8, setup("no such track", 3));
    EXPECT_EQ("", output.text());
    EXPECT_THROW(setup("no such track", 2), OVRuntimeError);
    EXPECT_THROW(setup("trackID=0", 1), OVRuntimeError);
}

#include "tests/abi/Layout.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <type_traits>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "hostapi/live/LiveDispatcherMgr.h"
#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "hostapi/playback/OVAVPlayBackSource.h"
#include "hostapi/playback/RTPPlayBackDispacherMgr.h"
#include "live/OVLiveController.h"
#include "live/OVLiveController2.h"
#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "live/OVMulticastLiveControlerFactory.h"
#include "live/OVMulticastLiveController.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrl.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlaybackController.h"
#include "playback/OVPlaybackControllerFactory.h"
#include "support/function.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeDescription.h"
#include "tests/fakehost/FakeLiveSessions.h"
#include "tests/fakehost/FakeMediaPlayer.h"
#include "tests/fakehost/OVMutexInspector.h"

// The mirrors below name the members of each class in the order in which hosts know them.
namespace
{

struct UrlParamMirror
{
    std::string mediaUrlPrefix;
    std::string deviceId;
    int cameraID;
    int streamID;
    double recordBeginTime;
    double recordEndTime;
    bool multicastFlag;
};

struct CodecMirror
{
    void* table;
    UrlParamMirror objMediaUrlParam;
};

struct CodecFactoryMirror
{
    void* table;
    OVMutex mutex;
};

struct RegistryMirror
{
    void* table;
    std::map<int, SafePointer<IMediaUrlFactory>> factories;
    OVMutex mutex;
};

struct ControllerFactoryMirror
{
    void* table;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    int thirdPlatType;
    OVMutex mutex;
};

struct LiveControllerMirror
{
    void* table;
    OVMutex mutex;
    std::string mediaUrl;
    std::string streamKey;
    MediaInfo mediaInfo;
    MediaUrlParam mediaUrlParam;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    std::string audioBackTrackId;
};

// The second form and the multicast one.
struct SessionControllerMirror
{
    void* table;
    OVMutex mutex;
    std::string mediaUrl;
    MediaUrlParam mediaUrlParam;
    std::string streamKey;
    MediaInfo mediaInfo;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    std::string audioBackTrackId;
};

struct TalkBackMirror
{
    void* table;
    SafePointer<GThread> thread;
    OVMutex mutex;
    int encoderType;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    int thirdPlatType;
    std::string audioBackTrackId;
    SafePointer<IMediaPlayer> mediaPlayer;
    bool playerOpened;
    std::map<std::string, SafePointer<AudioDispatcher>> sessions;
    MTUParam mtuParam;
};

struct ConnectionMirror
{
    void* table;
    int transportKind;
};

/// The device's codec, but multicast URLs are what live URLs are, so that the same URL serves every
/// controller.
class LiveForMulticastCodec : public OrvaneMediaUrl
{
public:
    int parseMulticastMediaUrl(const std::string& url) override
    {
        return parseMediaUrl(url);
    }
    std::string toMulticastMediaUrl() override
    {
        return toMediaUrl();
    }
};

class LiveForMulticastFactory : public IMediaUrlFactory
{
public:
    int createMediaUrl(SafePointer<IMediaUrl>& codec) override
    {
        codec = SafePointer<IMediaUrl>(new LiveForMulticastCodec);
        return 0;
    }
};

}  // namespace

TEST(Layout, ConnectionStartsWithItsTransportKind)
{
    const FakeConnection connection(3);
    EXPECT_EQ(3, Layout::at(static_cast<const IConnection*>(&connection), &ConnectionMirror::transportKind));
}

TEST(Layout, UrlParametersStandInTheirOrder)
{
    constexpr std::size_t text = sizeof(std::string);
    EXPECT_EQ(2 * text + 2 * sizeof(int) + 3 * sizeof(double), sizeof(MediaUrlParam))
        << "doubles align to 8 bytes";
    EXPECT_EQ(sizeof(UrlParamMirror), sizeof(MediaUrlParam));
    EXPECT_FALSE(std::is_polymorphic<MediaUrlParam>::value);
    MediaUrlParam param;
    std::string prefix = "prefix";
    param.setMediaUrlPrefix(prefix);
    param.setDeviceId("device");
    param.setCameraID(1);
    param.setStreamID(2);
    param.setRecordBeginTime(3.0);
    param.setRecordEndTime(4.0);
    param.setMulticastFlag(true);
    EXPECT_EQ("prefix", Layout::at(&param, &UrlParamMirror::mediaUrlPrefix));
    EXPECT_EQ("device", Layout::at(&param, &UrlParamMirror::deviceId));
    EXPECT_EQ(1, Layout::at(&param, &UrlParamMirror::cameraID));
    EXPECT_EQ(2, Layout::at(&param, &UrlParamMirror::streamID));
    EXPECT_EQ(3.0, Layout::at(&param, &UrlParamMirror::recordBeginTime));
    EXPECT_EQ(4.0, Layout::at(&param, &UrlParamMirror::recordEndTime));
    EXPECT_TRUE(Layout::at(&param, &UrlParamMirror::multicastFlag));
}

TEST(Layout, CodecHoldsItsParametersAloneAndTheOrvaneCodecAddsNothing)
{
    EXPECT_EQ(sizeof(CodecMirror), sizeof(IMediaUrl));
    EXPECT_EQ(sizeof(IMediaUrl), sizeof(OrvaneMediaUrl));
    EXPECT_EQ(sizeof(CodecFactoryMirror), sizeof(OrvaneMediaUrlFactory));
    OrvaneMediaUrl codec;
    const void* const object = static_cast<IMediaUrl*>(&codec);
    EXPECT_EQ(static_cast<const void*>(&codec.objMediaUrlParam),
              &Layout::at(object, &CodecMirror::objMediaUrlParam));
}

TEST(Layout, RegistryHoldsItsMapThenItsMutex)
{
    EXPECT_EQ(sizeof(RegistryMirror), sizeof(MediaUrlFactoryMap));
    const SafePointer<MediaUrlFactoryMap> map = MediaUrlFactoryMap::getInstance();
    map->registerFactory(31, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    const auto& factories = Layout::at(map.operator->(), &RegistryMirror::factories);
    ASSERT_EQ(1u, factories.size());
    EXPECT_EQ(31, factories.begin()->first);
    map->unregisterFactory(31);
}

namespace
{

template <class Factory>
void expectFactoryFieldsInTheirOrder(int mutexInits)
{
    EXPECT_EQ(sizeof(ControllerFactoryMirror), sizeof(Factory));
    Factory factory;
    DeviceInfoEx device;
    device.setDeviceID("device");
    factory.setDeviceInfo(device);
    DeviceExAbility ability;
    ability.setAudioBackFlag(true);
    factory.setDeviceAbility(ability);
    factory.setThirdPlatType(17);
    EXPECT_STREQ("device", Layout::at(&factory, &ControllerFactoryMirror::deviceInfo).getDeviceID());
    EXPECT_TRUE(Layout::at(&factory, &ControllerFactoryMirror::deviceAbility).getAudioBackFlag());
    EXPECT_EQ(17, Layout::at(&factory, &ControllerFactoryMirror::thirdPlatType));
    const OVMutex& mutex = Layout::at(&factory, &ControllerFactoryMirror::mutex);
    EXPECT_EQ(mutexInits, OVMutexInspector::initCount(mutex));
}

/// The fields of a live controller that has set a track up, of camera 12, stream 3 of "device".
template <class Mirror, class Controller>
void expectControllerFieldsInTheirOrder(const char* audioBackTrackId)
{
    EXPECT_EQ(sizeof(Mirror), sizeof(Controller));
    const SafePointer<MediaUrlFactoryMap> map = MediaUrlFactoryMap::getInstance();
    map->registerFactory(31, SafePointer<IMediaUrlFactory>(new LiveForMulticastFactory));
    Controller controller;
    DeviceInfoEx device;
    device.setDeviceID("device");
    DeviceExAbility ability;
    ability.setAudioBackFlag(true);
    CapturedOutput output;
    ASSERT_EQ(0, controller.initInstance(31, "rtsp://host/orv/live/12/3", device, ability, true));
    ASSERT_EQ(0, controller.setup("session", FakeDescription::backChannel().trackId,
                                  SafePointer<IConnection>(new FakeConnection(1))));
    EXPECT_EQ(0, OVMutexInspector::initCount(Layout::at(&controller, &Mirror::mutex)));
    EXPECT_EQ("rtsp://host/orv/live/12/3", Layout::at(&controller, &Mirror::mediaUrl));
    EXPECT_EQ("12/3", Layout::at(&controller, &Mirror::streamKey));
    EXPECT_EQ("orv/live/12/3", Layout::at(&controller, &Mirror::mediaInfo).mediaUrl);
    EXPECT_EQ(12, Layout::at(&controller, &Mirror::mediaUrlParam).getCameraID());
    EXPECT_STREQ("device", Layout::at(&controller, &Mirror::deviceInfo).getDeviceID());
    EXPECT_TRUE(Layout::at(&controller, &Mirror::deviceAbility).getAudioBackFlag());
    EXPECT_EQ(audioBackTrackId, Layout::at(&controller, &Mirror::audioBackTrackId));
    map->unregisterFactory(31);
    OVAudioBackDispatcherMgr::getInstance()->clearAllSession();
    FakeLiveSessions::clear();
}

}  // namespace

TEST(Layout, ControllerFactoryFieldsStandInTheirOrder)
{
    expectFactoryFieldsInTheirOrder<OVLiveControllerFactory>(0);
    expectFactoryFieldsInTheirOrder<OVLiveControllerFactory2>(0);
    expectFactoryFieldsInTheirOrder<OVMulticastLiveControlerFactory>(1);
    expectFactoryFieldsInTheirOrder<OVPlaybackControllerFactory>(0);
}

TEST(Layout, LiveControllerFieldsStandInTheirOrder)
{
    expectControllerFieldsInTheirOrder<LiveControllerMirror, OVLiveController>("trackID=2");
    expectControllerFieldsInTheirOrder<SessionControllerMirror, OVLiveController2>("trackID=2");
    expectControllerFieldsInTheirOrder<SessionControllerMirror, OVMulticastLiveController>("");
}

TEST(Layout, TalkBackManagerFieldsStandInTheirOrder)
{
    EXPECT_EQ(sizeof(TalkBackMirror), sizeof(OVAudioBackDispatcherMgr));
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    const void* const object = manager.operator->();
    EXPECT_EQ(103, Layout::at(object, &TalkBackMirror::encoderType));
    EXPECT_EQ(1, Layout::at(object, &TalkBackMirror::thirdPlatType));
    EXPECT_FALSE(Layout::at(object, &TalkBackMirror::playerOpened));
    EXPECT_EQ(1440, Layout::at(object, &TalkBackMirror::mtuParam).getMTUValue());
    EXPECT_TRUE(Layout::at(object, &TalkBackMirror::mediaPlayer).isEmpty());
    EXPECT_FALSE(Layout::at(object, &TalkBackMirror::thread)->IsRunning());

    DeviceInfoEx device;
    device.setDeviceID("device");
    manager->setDeviceInfoEx(device);
    DeviceExAbility ability;
    ability.setAudioBackFlag(true);
    manager->setDeviceExAbility(ability);
    manager->setThirdPlatType(5);
    manager->setEncoderType(8);
    CapturedOutput output;
    manager->initSession("session", "track", SubMediaInfo(), 1364);
    manager->startAudio("session");
    manager->setMediaPlayer(SafePointer<IMediaPlayer>(new FakeMediaPlayer));
    manager->processPlayer();
    EXPECT_STREQ("device", Layout::at(object, &TalkBackMirror::deviceInfo).getDeviceID());
    EXPECT_TRUE(Layout::at(object, &TalkBackMirror::deviceAbility).getAudioBackFlag());
    EXPECT_EQ(5, Layout::at(object, &TalkBackMirror::thirdPlatType));
    EXPECT_EQ(8, Layout::at(object, &TalkBackMirror::encoderType));
    EXPECT_EQ("track", Layout::at(object, &TalkBackMirror::audioBackTrackId));
    EXPECT_FALSE(Layout::at(object, &TalkBackMirror::mediaPlayer).isEmpty());
    EXPECT_TRUE(Layout::at(object, &TalkBackMirror::playerOpened));
    EXPECT_EQ(1u, Layout::at(object, &TalkBackMirror::sessions).count("session"));
    manager->stop();
    EXPECT_EQ("track", Layout::at(object, &TalkBackMirror::audioBackTrackId)) << "it is never cleared";
}

TEST(Layout, InterfacesHoldNothing)
{
    EXPECT_EQ(sizeof(void*), sizeof(IMediaUrlFactory));
    EXPECT_EQ(sizeof(void*), sizeof(IRTSPController));
    EXPECT_EQ(sizeof(void*), sizeof(IRTSPControllerFactory));
}

template <class T>
class DestructorThatMayThrow : public testing::Test
{
};

// Whatever holds a handle, is held by one, or is the base of such a class.
using MayThrow =
    testing::Types<BaseSafePointer, SafePointer<IConnection>, function<int>, function_obj_base<int>,
                   function_obj<int, int (*)()>, IMediaUrl, IMediaUrlFactory, MediaUrlFactoryMap,
                   OrvaneMediaUrl, OrvaneMediaUrlFactory, IRTSPController, IRTSPControllerFactory,
                   OVLiveController, OVLiveControllerFactory, OVLiveController2, OVLiveControllerFactory2,
                   OVMulticastLiveController, OVMulticastLiveControlerFactory, OVPlaybackController,
                   OVPlaybackControllerFactory, OVPlayBack, RTPPlayBackDispacher, RTPPlayBackDispacherMgr,
                   IMediaSource, OVAVPlayBackSource, OVAudioBackDispatcherMgr, AudioDispatcher, IMediaPlayer,
                   IConnection, RTPStreamDispatcherMgr, LiveDispatcherMgr, OVThread, GThread>;
TYPED_TEST_SUITE(DestructorThatMayThrow, MayThrow);

TYPED_TEST(DestructorThatMayThrow, IsDeclaredSoAndVirtual)
{
    EXPECT_FALSE(std::is_nothrow_destructible<TypeParam>::value);
    EXPECT_TRUE(std::has_virtual_destructor<TypeParam>::value);
}

#include "playback/OVPlaybackControllerFactory.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/fakehost/FailingCalls.h"
#include "tests/fakehost/RefCountInspector.h"
#include "tests/mediaurl/WatchedCodec.h"
#include "tests/playback/PlaybackControllerFixture.h"

namespace
{

using Calls = std::vector<std::string>;

class OVPlaybackControllerFactoryTest : public PlaybackControllerFixture
{
protected:
    ~OVPlaybackControllerFactoryTest() noexcept override {}
};

OVPlaybackController& asPlayback(const SafePointer<IRTSPController>& controller)
{
    return dynamic_cast<OVPlaybackController&>(*controller.operator->());
}

}  // namespace

TEST_F(OVPlaybackControllerFactoryTest, DescribesTheRecordingUnderItsCanonicalUrlInThisOrder)
{
    DeviceExAbility ability;
    ability.setAudioBackFlag(true);
    factory_.setDeviceAbility(ability);
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(0, factory_.createMedia("rtsp://192.0.2.10:554/orv/playback/02_0100_3700", controller, true));
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Calls{
                  "MediaInfoTool::setDeviceInfoEx(device A)",
                  "MediaInfoTool::setDeviceExAbility(true)",
                  "MediaInfoTool::setMediaUrl(orv/playback/2_100_3700)",
                  "MediaInfoTool::setThirdPlatType(1)",
                  "MediaInfoTool::createPlaybackMediaInfo(camera 2, 100 to 3700, device A, 192.0.2.1)",
              }),
              host_.calls());
    MediaInfo info;
    EXPECT_EQ(0, controller->getMediaInfo(info));
    EXPECT_EQ("orv/playback/2_100_3700", info.mediaUrl);
    EXPECT_EQ(2u, info.getAllSubMediaInfo().size());
}

TEST_F(OVPlaybackControllerFactoryTest, MediaInfoFlagChangesNothing)
{
    SafePointer<IRTSPController> controller;
    factory_.createMedia("orv/playback/1_100_3700", controller, false);
    const Calls without = host_.calls();
    host_.clearCalls();
    factory_.createMedia("orv/playback/1_100_3700", controller, true);
    EXPECT_EQ(without, host_.calls());
}

TEST_F(OVPlaybackControllerFactoryTest, RendersTheUrlWithANewCodecAndPassesTheCodecsOwnNumber)
{
    useInterval(100, 200);
    SafePointer<IRTSPController> controller;
    EXPECT_EQ(0, factory_.createMedia("any", controller, false));
    EXPECT_EQ((Calls{
                  "IMediaUrlFactory::createMediaUrl()",
                  "IMediaUrl::parsePlaybackMediaUrl(any)",
                  "IMediaUrlFactory::createMediaUrl()",
                  "MediaInfoTool::setDeviceInfoEx(device A)",
                  "MediaInfoTool::setDeviceExAbility(false)",
                  "MediaInfoTool::setMediaUrl(recorded parsed 5 100, 200)",
                  "MediaInfoTool::setThirdPlatType(42)",
                  "MediaInfoTool::createPlaybackMediaInfo(camera 5, 100 to 200, device A, 192.0.2.1)",
              }),
              host_.calls());
}

TEST_F(OVPlaybackControllerFactoryTest, EmptyUrlIsNotFoundBeforeAnyLookupAndNothingIsStored)
{
    useInterval(100, 200);
    host_.recordLocks(true);
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(-8, factory_.createMedia("", controller, false));
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Calls{
                  "OVMutex::Lock(OVPlaybackControllerFactory, 42)",
                  "OVMutex::Lock(OVPlaybackController, 29)",
                  "OVMutex::Unlock(OVMutexManager.h, 71)",
                  "OVMutex::Unlock(OVMutexManager.h, 71)",
              }),
              host_.calls());
    host_.recordLocks(false);
    host_.clearCalls();
    ASSERT_FALSE(controller.isEmpty());
    // Had the type been stored, the codec would be found; had the device been stored, it would be named.
    CapturedOutput later;
    EXPECT_EQ(-6, asPlayback(controller).parseMediaUrl("any"));
    asPlayback(controller).setup(session_, video_, connection(1));
    EXPECT_EQ("RTPPlayBackDispacherMgr::initDispatcher(session, , false, camera 0, 0 to 0, , )",
              host_.calls().at(1));
}

TEST_F(OVPlaybackControllerFactoryTest, UnknownPlatformTypeIsRefusedAndTheHandleIsFilledNevertheless)
{
    factory_.setThirdPlatType(unknownType);
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(-6, factory_.createMedia("orv/playback/1_%s_2", controller, false));
    EXPECT_EQ(
        "##########OVPlayBack::parseMediaUrl can not find the MediaUrlFactory of \"orv/playback/1_%s_2\"!!\n",
        output.text());
    EXPECT_FALSE(controller.isEmpty());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlaybackControllerFactoryTest, PlatformTypeIsZeroUntilItIsSet)
{
    const SafePointer<IMediaUrlFactory> codecs(new IntervalCodecFactory(1, 2));
    MediaUrlFactoryMap::getInstance()->registerFactory(0, codecs);
    OVPlaybackControllerFactory fresh;
    SafePointer<IRTSPController> controller;
    EXPECT_EQ(0, fresh.createMedia("any", controller, false));
    MediaUrlFactoryMap::getInstance()->unregisterFactory(0);
}

TEST_F(OVPlaybackControllerFactoryTest, MalformedUrlIsRefusedWithTheCodecsCodeAndALine)
{
    for (const char* url : {"orv/playback/1_100", "orv/live/1/0", "orv/playback/1_1.5_2", "x"})
    {
        SafePointer<IRTSPController> controller;
        CapturedOutput output;
        EXPECT_EQ(-8, factory_.createMedia(url, controller, false)) << url;
        EXPECT_EQ("##########OVPlayBack::parseMediaUrl objMediaUrl->parsePlaybackMediaUrl error!!\n",
                  output.text());
        EXPECT_FALSE(controller.isEmpty());
    }
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlaybackControllerFactoryTest, EachFailingCallEndsItWithItsCodeAndLineAndLeaksNothing)
{
    useInterval(100, 200);
    const char* const createLine =
        "##########OVPlayBack::parseMediaUrl objMediaUrlFactory->createMedia error!!\n";
    const char* const lines[] = {
        createLine,
        "##########OVPlayBack::parseMediaUrl objMediaUrl->parsePlaybackMediaUrl error!!\n",
        createLine,
        "objMediaInfoTool.createMediaInfo Error!!!!\n",
    };
    const std::size_t records = host_.recordsInUse();
    const int mutexes = host_.living("OVMutex");
    std::optional<SafePointer<IRTSPController>> controller;
    const auto create = [&] { return factory_.createMedia("any", *controller, false); };
    const auto good = FailingCalls(4)
                          .before([&] { controller.emplace(); })
                          .during(create,
                                  [&](const FailingCalls::Attempt& failed)
                                  {
                                      EXPECT_EQ(failed.code, failed.result);
                                      EXPECT_EQ(lines[failed.nth - 1], failed.printed);
                                      ASSERT_FALSE(controller->isEmpty());
                                      EXPECT_EQ(0, host_.living("MediaInfoTool"));
                                      EXPECT_EQ(records + 2, host_.recordsInUse())
                                          << "only the controller and its dispatcher are left";
                                      MediaInfo info;
                                      (*controller)->getMediaInfo(info);
                                      EXPECT_TRUE(info.getAllSubMediaInfo().empty());
                                  });
    EXPECT_EQ("", good.printed);
    EXPECT_FALSE(controller->isEmpty());
    controller.reset();
    EXPECT_EQ(records, host_.recordsInUse());
    EXPECT_EQ(mutexes, host_.living("OVMutex"));
    EXPECT_EQ(0, host_.living("RTPPlayBackDispacher"));
}

TEST_F(OVPlaybackControllerFactoryTest, RegistryThatLosesTheCodecMeanwhileIsReportedByAnotherLine)
{
    useInterval(100, 200, [] { MediaUrlFactoryMap::getInstance()->unregisterFactory(intervalType); });
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(-6, factory_.createMedia("some/url", controller, false));
    EXPECT_EQ("##########OVPlayBack::MediaUrlFactoryMap::getInstance()->lookup MediaUrlFactory fail!!\n",
              output.text());
    EXPECT_EQ(0u, host_.callCount("MediaInfoTool::createPlaybackMediaInfo"));
}

TEST_F(OVPlaybackControllerFactoryTest, FailedParseKeepsTheSettingsAndNoUrl)
{
    useInterval(100, 200);
    host_.failNthCall(2, -8);
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    factory_.createMedia("some/url", controller, false);
    host_.clearCalls();
    EXPECT_EQ(0, asPlayback(controller).createMediaInfo());
    EXPECT_EQ((Calls{
                  "IMediaUrlFactory::createMediaUrl()",
                  "MediaInfoTool::setDeviceInfoEx(device A)",
                  "MediaInfoTool::setDeviceExAbility(false)",
                  "MediaInfoTool::setMediaUrl(recorded  0 0, 0)",
                  "MediaInfoTool::setThirdPlatType(42)",
                  "MediaInfoTool::createPlaybackMediaInfo(camera 0, 0 to 0, device A, 192.0.2.1)",
              }),
              host_.calls());
}

TEST_F(OVPlaybackControllerFactoryTest, MakesASeparateControllerForEachCallHeldByTheCallerAlone)
{
    SafePointer<IRTSPController> first = make("orv/playback/1_1_2");
    SafePointer<IRTSPController> second = make("orv/playback/1_1_2");
    EXPECT_NE(first.operator->(), second.operator->());
    EXPECT_EQ(1, RefCountInspector::holders(first.operator->()));
}

TEST_F(OVPlaybackControllerFactoryTest, FillsTheHandleBeforeItInitialisesTheController)
{
    SafePointer<IRTSPController> controller;
    std::vector<bool> empty;
    useInterval(100, 200, [&] { empty.push_back(controller.isEmpty()); });
    factory_.createMedia("any", controller, false);
    EXPECT_EQ((std::vector<bool>{false, false}), empty);
}

TEST_F(OVPlaybackControllerFactoryTest, ReleasesWhatTheHandleHeldBefore)
{
    SafePointer<IRTSPController> controller = make("orv/playback/1_1_2");
    const std::size_t records = host_.recordsInUse();
    factory_.createMedia("orv/playback/2_1_2", controller, false);
    EXPECT_EQ(records, host_.recordsInUse());
}

TEST_F(OVPlaybackControllerFactoryTest, HoldsItsLockAndTheControllersButNotTheRegistrysWhileItInitialises)
{
    std::vector<int> locks;
    useInterval(100, 200, [&] { locks.push_back(FakeHost::locksHeldHere()); });
    SafePointer<IRTSPController> controller;
    factory_.createMedia("any", controller, false);
    EXPECT_EQ((std::vector<int>{2, 2}), locks);
    for (const FakeHost::Call& call : host_.callDetails())
    {
        EXPECT_EQ(2, call.locksHeld) << call.text;
    }
    EXPECT_EQ(0, FakeHost::locksHeldHere());
}

TEST_F(OVPlaybackControllerFactoryTest, TakesItsLockBeforeTheControllersUnderTheirNamesAndLines)
{
    host_.recordLocks(true);
    SafePointer<IRTSPController> controller;
    factory_.createMedia("orv/playback/1_1_2", controller, false);
    host_.recordLocks(false);
    const Calls calls = host_.calls();
    ASSERT_GE(calls.size(), 4u);
    EXPECT_EQ("OVMutex::Lock(OVPlaybackControllerFactory, 42)", calls[0]);
    EXPECT_EQ("OVMutex::Lock(OVPlaybackController, 29)", calls[1]);
    EXPECT_EQ(0u, calls[2].find("OVMutex::Lock(MediaUrlFactoryMap, ")) << calls[2];
    EXPECT_EQ("OVMutex::Unlock(OVMutexManager.h, 71)", calls[calls.size() - 2]);
    EXPECT_EQ("OVMutex::Unlock(OVMutexManager.h, 71)", calls[calls.size() - 1]);
}

TEST_F(OVPlaybackControllerFactoryTest, EverySetterTakesTheLockUnderTheUnitsNameAndItsLine)
{
    host_.recordLocks(true);
    factory_.setDeviceInfo(DeviceInfoEx());
    factory_.setDeviceAbility(DeviceExAbility());
    factory_.setThirdPlatType(unknownType);
    host_.recordLocks(false);
    EXPECT_EQ((Calls{
                  "OVMutex::Lock(OVPlaybackControllerFactory, 19)",
                  "OVMutex::Unlock(OVMutexManager.h, 71)",
                  "OVMutex::Lock(OVPlaybackControllerFactory, 25)",
                  "OVMutex::Unlock(OVMutexManager.h, 71)",
                  "OVMutex::Lock(OVPlaybackControllerFactory, 30)",
                  "OVMutex::Unlock(OVMutexManager.h, 71)",
              }),
              host_.calls());
}

TEST_F(OVPlaybackControllerFactoryTest, GivesBothLocksBackWhenAnExceptionPasses)
{
    useInterval(100, 200, [] { throw std::runtime_error("no memory"); });
    SafePointer<IRTSPController> controller;
    EXPECT_THROW(factory_.createMedia("any", controller, false), std::runtime_error);
    EXPECT_EQ(0, FakeHost::locksHeldHere());
    EXPECT_FALSE(controller.isEmpty());
}

TEST_F(OVPlaybackControllerFactoryTest, SettingsReachOnlyControllersMadeAfterwards)
{
    const SafePointer<IRTSPController> before = make("orv/playback/1_1_2");
    setDevice("device B");
    DeviceExAbility ability;
    ability.setAudioBackFlag(true);
    factory_.setDeviceAbility(ability);
    before->setup(session_, video_, connection(1));
    EXPECT_EQ(
        "RTPPlayBackDispacherMgr::initDispatcher(session, device A, false, camera 1, 1 to 2, device A, "
        "192.0.2.1)",
        host_.calls().at(1));
    const SafePointer<IRTSPController> after = make("orv/playback/1_1_2");
    after->setup(session_, video_, connection(1));
    EXPECT_EQ(
        "RTPPlayBackDispacherMgr::initDispatcher(session, device B, true, camera 1, 1 to 2, device B, "
        "192.0.2.1)",
        host_.calls().at(1));
}

TEST_F(OVPlaybackControllerFactoryTest, ServesManyThreadsAtOnce)
{
    const std::size_t records = host_.recordsInUse();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [this, i]
            {
                const std::string url = "orv/playback/" + std::to_string(i) + "_1_2";
                for (int iteration = 0; iteration < 100; ++iteration)
                {
                    setDevice("device " + std::to_string(i));
                    SafePointer<IRTSPController> controller;
                    EXPECT_EQ(0, factory_.createMedia(url, controller, false));
                    MediaInfo info;
                    controller->getMediaInfo(info);
                    EXPECT_EQ(url, info.mediaUrl);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(records, host_.recordsInUse());
}

TEST_F(OVPlaybackControllerFactoryTest, HoldsTheCodecsFactoryUntilTheCodecHasParsedAndIsGone)
{
    WatchedCodec::registerUnder(intervalType, WatchedCodec::whileParsing);
    factory_.setThirdPlatType(intervalType);
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(-6, factory_.createMedia("any", controller, true)) << "rendering finds it no more";
    EXPECT_EQ((Calls{"parse, factory lives", "codec gone", "factory gone"}), WatchedCodec::events());
}

TEST_F(OVPlaybackControllerFactoryTest, HoldsTheCodecsFactoryUntilTheDescriptionIsMade)
{
    WatchedCodec::registerUnder(intervalType, WatchedCodec::whileRendering);
    factory_.setThirdPlatType(intervalType);
    SafePointer<IRTSPController> controller;
    EXPECT_EQ(0, factory_.createMedia("any", controller, true));
    EXPECT_EQ((Calls{"parse, factory lives", "codec gone", "render, factory lives", "type, factory lives",
                     "codec gone", "factory gone"}),
              WatchedCodec::events());
}

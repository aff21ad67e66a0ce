#include "live/OVLiveControllerFactory.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "live/OVLiveController.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/RefCountInspector.h"
#include "tests/live/ScriptedCodec.h"

namespace
{

const int orvaneType = 7;
const int scriptedType = 8;
const int unknownType = 9;

class OVLiveControllerFactoryTest : public testing::Test
{
protected:
    ~OVLiveControllerFactoryTest() noexcept override {}

    void SetUp() override
    {
        MediaUrlFactoryMap::getInstance()->registerFactory(
            orvaneType, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
        factory_.setThirdPlatType(orvaneType);
        setDevice("device A");
        host_.reset();
    }

    void TearDown() override
    {
        MediaUrlFactoryMap::getInstance()->unregisterFactory(orvaneType);
        MediaUrlFactoryMap::getInstance()->unregisterFactory(scriptedType);
        host_.reset();
    }

    void useScriptedCodec(std::function<void()> onCreate = nullptr)
    {
        MediaUrlFactoryMap::getInstance()->registerFactory(
            scriptedType, SafePointer<IMediaUrlFactory>(new ScriptedCodecFactory(onCreate)));
        factory_.setThirdPlatType(scriptedType);
    }

    void setDevice(const std::string& id)
    {
        DeviceInfoEx device;
        device.setDeviceID(id);
        factory_.setDeviceInfo(device);
    }

    FakeHost& host_ = FakeHost::instance();
    OVLiveControllerFactory factory_;
};

OVLiveController& asLive(const SafePointer<IRTSPController>& controller)
{
    return dynamic_cast<OVLiveController&>(*controller.operator->());
}

}  // namespace

TEST_F(OVLiveControllerFactoryTest, DescribesTheStreamUnderItsCanonicalUrlInThisOrder)
{
    DeviceExAbility ability;
    ability.setAudioBackFlag(true);
    factory_.setDeviceAbility(ability);
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(0, factory_.createMedia("rtsp://192.0.2.10:554/orv/live/1/0", controller, true));
    EXPECT_EQ("", output.text());
    EXPECT_EQ((std::vector<std::string>{
                  "MediaInfoTool::setDeviceInfoEx(device A)",
                  "MediaInfoTool::setDeviceExAbility(true)",
                  "MediaInfoTool::setMediaUrl(orv/live/1/0)",
                  "MediaInfoTool::setThirdPlatType(1)",
                  "MediaInfoTool::createMediaInfo(1, 0, true)",
              }),
              host_.calls());
    MediaInfo info;
    EXPECT_EQ(0, controller->getMediaInfo(info));
    EXPECT_EQ("orv/live/1/0", info.mediaUrl);
    EXPECT_EQ(3u, info.getAllSubMediaInfo().size());
}

TEST_F(OVLiveControllerFactoryTest, PassesTheMediaInfoFlagOnUnchanged)
{
    SafePointer<IRTSPController> controller;
    EXPECT_EQ(0, factory_.createMedia("orv/live/1/0", controller, false));
    EXPECT_EQ("MediaInfoTool::createMediaInfo(1, 0, false)", host_.calls().back());
}

TEST_F(OVLiveControllerFactoryTest, RendersTheUrlWithAFreshCodecAndTellsTheCodecsOwnNumber)
{
    useScriptedCodec();
    SafePointer<IRTSPController> controller;
    EXPECT_EQ(0, factory_.createMedia("any", controller, false));
    EXPECT_EQ((std::vector<std::string>{
                  "IMediaUrlFactory::createMediaUrl()",
                  "IMediaUrl::parseMediaUrl(any)",
                  "IMediaUrlFactory::createMediaUrl()",
                  "MediaInfoTool::setDeviceInfoEx(device A)",
                  "MediaInfoTool::setDeviceExAbility(false)",
                  "MediaInfoTool::setMediaUrl(canonical parsed 5 6)",
                  "MediaInfoTool::setThirdPlatType(42)",
                  "MediaInfoTool::createMediaInfo(5, 6, false)",
              }),
              host_.calls());
}

TEST_F(OVLiveControllerFactoryTest, MakesASeparateControllerForEachCallHeldByTheCallerAlone)
{
    SafePointer<IRTSPController> first;
    SafePointer<IRTSPController> second;
    factory_.createMedia("orv/live/1/0", first, false);
    factory_.createMedia("orv/live/1/0", second, false);
    EXPECT_NE(first.operator->(), second.operator->());
    EXPECT_EQ(1, RefCountInspector::holders(first.operator->()));
}

TEST_F(OVLiveControllerFactoryTest, UnknownPlatformTypeIsRefusedAndTheHandleIsFilledNevertheless)
{
    factory_.setThirdPlatType(unknownType);
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(-6, factory_.createMedia("orv/live/1/0", controller, false));
    EXPECT_EQ(
        "##########OVLiveController::parseMediaUrl can not find the MediaUrlFactory of \"orv/live/1/0\"!!\n",
        output.text());
    EXPECT_FALSE(controller.isEmpty());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVLiveControllerFactoryTest, MalformedUrlIsRefusedWithTheCodecsCodeAndALine)
{
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(-8, factory_.createMedia("orv/live/x/0", controller, false));
    EXPECT_EQ("##########OVLiveController::parseMediaUrl objMediaUrl->parseMediaUrl error!!\n",
              output.text());
    EXPECT_FALSE(controller.isEmpty());
}

TEST_F(OVLiveControllerFactoryTest, EachFailingCallEndsItWithItsCodeAndLineAndLeaksNothing)
{
    useScriptedCodec();
    const char* const createLine =
        "##########OVLiveController::parseMediaUrl objMediaUrlFactory->createMedia error!!\n";
    const char* const lines[] = {
        createLine,
        "##########OVLiveController::parseMediaUrl objMediaUrl->parseMediaUrl error!!\n",
        createLine,
        "objMediaInfoTool.createMediaInfo Error!!!!\n",
    };
    const std::size_t records = host_.recordsInUse();
    const int mutexes = host_.living("OVMutex");
    int failures = 0;
    for (int nth = 1;; ++nth)
    {
        host_.failNthCall(nth, -500 - nth);
        SafePointer<IRTSPController> controller;
        CapturedOutput output;
        const int result = factory_.createMedia("any", controller, false);
        const std::string printed = output.text();
        ASSERT_FALSE(controller.isEmpty());
        if (!host_.failureStruck())
        {
            EXPECT_EQ(0, result);
            EXPECT_EQ("", printed);
            break;
        }
        ASSERT_LE(nth, 4);
        EXPECT_EQ(-500 - nth, result);
        EXPECT_EQ(lines[nth - 1], printed);
        EXPECT_EQ(0, host_.living("MediaInfoTool"));
        EXPECT_EQ(records + 1, host_.recordsInUse()) << "only the controller is left";
        ++failures;
    }
    EXPECT_EQ(4, failures);
    EXPECT_EQ(records, host_.recordsInUse());
    EXPECT_EQ(mutexes, host_.living("OVMutex"));
}

TEST_F(OVLiveControllerFactoryTest, RegistryThatLosesTheCodecMeanwhileIsReportedWithTheControllersUrl)
{
    useScriptedCodec([] { MediaUrlFactoryMap::getInstance()->unregisterFactory(scriptedType); });
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    EXPECT_EQ(-6, factory_.createMedia("some/url", controller, false));
    EXPECT_EQ(
        "##########OVLiveController::parseMediaUrl can not find the MediaUrlFactory of \"some/url\"!!\n",
        output.text());
}

TEST_F(OVLiveControllerFactoryTest, FailedParseStoresNothing)
{
    useScriptedCodec();
    host_.failNthCall(2, -8);
    SafePointer<IRTSPController> controller;
    CapturedOutput output;
    factory_.createMedia("some/url", controller, false);
    host_.clearCalls();
    // What a description would be made from now shows what the controller kept.
    MediaInfo info;
    EXPECT_EQ(0, asLive(controller).createMediaInfo(scriptedType, false, info));
    EXPECT_EQ((std::vector<std::string>{
                  "IMediaUrlFactory::createMediaUrl()",
                  "MediaInfoTool::setDeviceInfoEx()",
                  "MediaInfoTool::setDeviceExAbility(false)",
                  "MediaInfoTool::setMediaUrl(canonical  0 0)",
                  "MediaInfoTool::setThirdPlatType(42)",
                  "MediaInfoTool::createMediaInfo(0, 0, false)",
              }),
              host_.calls());
}

TEST_F(OVLiveControllerFactoryTest, FillsTheHandleBeforeItInitialisesTheController)
{
    SafePointer<IRTSPController> controller;
    std::vector<bool> empty;
    useScriptedCodec([&] { empty.push_back(controller.isEmpty()); });
    factory_.createMedia("any", controller, false);
    EXPECT_EQ((std::vector<bool>{false, false}), empty);
}

TEST_F(OVLiveControllerFactoryTest, ReleasesWhatTheHandleHeldBefore)
{
    SafePointer<IRTSPController> controller;
    factory_.createMedia("orv/live/1/0", controller, false);
    const std::size_t records = host_.recordsInUse();
    factory_.createMedia("orv/live/2/0", controller, false);
    EXPECT_EQ(records, host_.recordsInUse());
}

TEST_F(OVLiveControllerFactoryTest, HoldsItsLockButNotTheRegistrysWhileTheControllerIsInitialised)
{
    std::vector<int> locks;
    useScriptedCodec([&] { locks.push_back(FakeHost::locksHeldHere()); });
    SafePointer<IRTSPController> controller;
    factory_.createMedia("any", controller, false);
    EXPECT_EQ((std::vector<int>{1, 1}), locks);
    for (const FakeHost::Call& call : host_.callDetails())
    {
        EXPECT_EQ(1, call.locksHeld) << call.text;
    }
    EXPECT_EQ(0, FakeHost::locksHeldHere());
}

TEST_F(OVLiveControllerFactoryTest, EverySetterTakesTheLockUnderTheUnitsName)
{
    host_.recordLocks(true);
    factory_.setDeviceInfo(DeviceInfoEx());
    factory_.setDeviceAbility(DeviceExAbility());
    factory_.setThirdPlatType(unknownType);
    host_.recordLocks(false);
    const std::vector<std::string> calls = host_.calls();
    ASSERT_EQ(6u, calls.size());
    for (std::size_t i = 0; i < calls.size(); i += 2)
    {
        EXPECT_EQ(0u, calls[i].find("OVMutex::Lock(OVLiveControllerFactory, ")) << calls[i];
        EXPECT_EQ("OVMutex::Unlock(OVMutexManager.h, 71)", calls[i + 1]);
    }
}

TEST_F(OVLiveControllerFactoryTest, CreateMediaTakesTheLockUnderTheUnitsName)
{
    host_.recordLocks(true);
    SafePointer<IRTSPController> controller;
    factory_.createMedia("orv/live/1/0", controller, false);
    host_.recordLocks(false);
    EXPECT_EQ(0u, host_.calls().front().find("OVMutex::Lock(OVLiveControllerFactory, "));
    EXPECT_EQ("OVMutex::Unlock(OVMutexManager.h, 71)", host_.calls().back());
}

TEST_F(OVLiveControllerFactoryTest, GivesItsLockBackWhenAnExceptionPasses)
{
    useScriptedCodec([] { throw std::runtime_error("no memory"); });
    SafePointer<IRTSPController> controller;
    EXPECT_THROW(factory_.createMedia("any", controller, false), std::runtime_error);
    EXPECT_EQ(0, FakeHost::locksHeldHere());
    EXPECT_FALSE(controller.isEmpty());
}

TEST_F(OVLiveControllerFactoryTest, SettingsReachOnlyControllersMadeAfterwards)
{
    SafePointer<IRTSPController> controller;
    factory_.createMedia("orv/live/1/0", controller, false);
    setDevice("device B");
    host_.clearCalls();
    MediaInfo info;
    asLive(controller).createMediaInfo(orvaneType, false, info);
    EXPECT_EQ("MediaInfoTool::setDeviceInfoEx(device A)", host_.calls().front());
    host_.clearCalls();
    factory_.createMedia("orv/live/1/0", controller, false);
    EXPECT_EQ("MediaInfoTool::setDeviceInfoEx(device B)", host_.calls().front());
}

TEST_F(OVLiveControllerFactoryTest, ServesManyThreadsAtOnce)
{
    const std::size_t records = host_.recordsInUse();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [this, i]
            {
                for (int round = 0; round < 100; ++round)
                {
                    setDevice("device " + std::to_string(i));
                    SafePointer<IRTSPController> controller;
                    EXPECT_EQ(
                        0, factory_.createMedia("orv/live/" + std::to_string(i) + "/0", controller, false));
                    MediaInfo info;
                    controller->getMediaInfo(info);
                    EXPECT_EQ("orv/live/" + std::to_string(i) + "/0", info.mediaUrl);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(records, host_.recordsInUse());
}

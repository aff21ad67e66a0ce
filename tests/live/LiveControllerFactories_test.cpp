#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FailingCalls.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/RefCountInspector.h"
#include "tests/live/LiveForms.h"
#include "tests/mediaurl/WatchedCodec.h"

namespace
{

const int orvaneType = 7;
const int scriptedType = 8;
const int unknownType = 9;

using Calls = std::vector<std::string>;

/// A factory of one of the forms for the device's own URLs, of device "device A".
template <class Form>
class FactoryFixture : public testing::Test
{
protected:
    ~FactoryFixture() noexcept override {}

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
            scriptedType, SafePointer<IMediaUrlFactory>(new ScriptedCodecFactory(std::move(onCreate))));
        factory_.setThirdPlatType(scriptedType);
    }

    void setDevice(const std::string& id)
    {
        DeviceInfoEx device;
        device.setDeviceID(id);
        factory_.setDeviceInfo(device);
    }

    static typename Form::Controller& own(const SafePointer<IRTSPController>& controller)
    {
        return dynamic_cast<typename Form::Controller&>(*controller.operator->());
    }

    /// What the controllers print of a failure in parsing.
    static std::string line(const std::string& what)
    {
        return std::string("##########") + Form::controllerName + "::parseMediaUrl " + what + "!!\n";
    }

    FakeHost& host_ = FakeHost::instance();
    typename Form::Factory factory_;
    SafePointer<IRTSPController> controller_;
};

template <class Form>
class LiveControllerFactories : public FactoryFixture<Form>
{
protected:
    ~LiveControllerFactories() noexcept override {}
};
using AllForms = testing::Types<FirstForm, SecondForm, MulticastForm>;
TYPED_TEST_SUITE(LiveControllerFactories, AllForms);

template <class Form>
class UnicastControllerFactories : public FactoryFixture<Form>
{
protected:
    ~UnicastControllerFactories() noexcept override {}
};
using UnicastForms = testing::Types<FirstForm, SecondForm>;
TYPED_TEST_SUITE(UnicastControllerFactories, UnicastForms);

class MulticastControllerFactory : public FactoryFixture<MulticastForm>
{
protected:
    ~MulticastControllerFactory() noexcept override {}
};

}  // namespace

TYPED_TEST(UnicastControllerFactories, DescribeTheStreamUnderItsCanonicalUrlInThisOrder)
{
    DeviceExAbility ability;
    ability.setAudioBackFlag(true);
    this->factory_.setDeviceAbility(ability);
    CapturedOutput output;
    EXPECT_EQ(0, this->factory_.createMedia("rtsp://192.0.2.10:554/orv/live/1/0", this->controller_, true));
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Calls{
                  "MediaInfoTool::setDeviceInfoEx(device A)",
                  "MediaInfoTool::setDeviceExAbility(true)",
                  "MediaInfoTool::setMediaUrl(orv/live/1/0)",
                  "MediaInfoTool::setThirdPlatType(1)",
                  "MediaInfoTool::createMediaInfo(1, 0, true)",
              }),
              this->host_.calls());
    MediaInfo info;
    EXPECT_EQ(0, this->controller_->getMediaInfo(info));
    EXPECT_EQ("orv/live/1/0", info.mediaUrl);
    EXPECT_EQ(3u, info.getAllSubMediaInfo().size());
}

TYPED_TEST(UnicastControllerFactories, RefuseAMalformedUrlWithTheCodecsCodeAndALine)
{
    CapturedOutput output;
    EXPECT_EQ(-8, this->factory_.createMedia("orv/live/x/0", this->controller_, false));
    EXPECT_EQ(this->line("objMediaUrl->parseMediaUrl error"), output.text());
    EXPECT_FALSE(this->controller_.isEmpty());
}

TEST_F(MulticastControllerFactory, WithTheDevicesOwnCodecEveryUrlIsCameraZeroStreamZeroWithoutText)
{
    for (const char* url : {"rtsp://192.0.2.10/orv/multicast/3/1", "orv/live/1/0", "any", ""})
    {
        host_.clearCalls();
        CapturedOutput output;
        EXPECT_EQ(0, factory_.createMedia(url, controller_, false)) << url;
        EXPECT_EQ("", output.text());
        EXPECT_EQ((Calls{
                      "MediaInfoTool::setDeviceInfoEx(device A)",
                      "MediaInfoTool::setDeviceExAbility(false)",
                      "MediaInfoTool::setMediaUrl()",
                      "MediaInfoTool::setThirdPlatType(1)",
                      "MediaInfoTool::createMediaInfo(0, 0, false)",
                  }),
                  host_.calls())
            << url;
    }
    std::string key;
    EXPECT_EQ(0, own(controller_).parseMediaUrl(orvaneType, "orv/multicast/3/1", key));
    EXPECT_EQ("0/0", key);
}

TYPED_TEST(LiveControllerFactories, PassTheMediaInfoFlagOnUnchanged)
{
    this->useScriptedCodec();
    EXPECT_EQ(0, this->factory_.createMedia("any", this->controller_, false));
    EXPECT_EQ("MediaInfoTool::createMediaInfo(5, 6, false)", this->host_.calls().back());
    EXPECT_EQ(0, this->factory_.createMedia("any", this->controller_, true));
    EXPECT_EQ("MediaInfoTool::createMediaInfo(5, 6, true)", this->host_.calls().back());
}

TYPED_TEST(LiveControllerFactories, RenderTheUrlWithAFreshCodecAndReportTheCodecsOwnNumber)
{
    this->useScriptedCodec();
    EXPECT_EQ(0, this->factory_.createMedia("any", this->controller_, false));
    EXPECT_EQ((Calls{
                  "IMediaUrlFactory::createMediaUrl()",
                  std::string("IMediaUrl::") + TypeParam::parseOperation + "(any)",
                  "IMediaUrlFactory::createMediaUrl()",
                  "MediaInfoTool::setDeviceInfoEx(device A)",
                  "MediaInfoTool::setDeviceExAbility(false)",
                  std::string("MediaInfoTool::setMediaUrl(") + TypeParam::rendered + ")",
                  "MediaInfoTool::setThirdPlatType(42)",
                  "MediaInfoTool::createMediaInfo(5, 6, false)",
              }),
              this->host_.calls());
}

TYPED_TEST(LiveControllerFactories, MakeASeparateControllerForEachCallHeldByTheCallerAlone)
{
    this->useScriptedCodec();
    SafePointer<IRTSPController> other;
    this->factory_.createMedia("any", this->controller_, false);
    this->factory_.createMedia("any", other, false);
    EXPECT_NE(this->controller_.operator->(), other.operator->());
    EXPECT_EQ(1, RefCountInspector::holders(this->controller_.operator->()));
}

TYPED_TEST(LiveControllerFactories, RefuseAnUnknownPlatformTypeAndFillTheHandleNevertheless)
{
    this->factory_.setThirdPlatType(unknownType);
    CapturedOutput output;
    EXPECT_EQ(-6, this->factory_.createMedia("orv/live/1/0", this->controller_, false));
    EXPECT_EQ(this->line("can not find the MediaUrlFactory of \"orv/live/1/0\""), output.text());
    EXPECT_FALSE(this->controller_.isEmpty());
    EXPECT_TRUE(this->host_.calls().empty());
}

TYPED_TEST(LiveControllerFactories, EndWithTheCodeAndLineOfEachFailingCallAndLeakNothing)
{
    this->useScriptedCodec();
    const std::string createLine = this->line("objMediaUrlFactory->createMedia error");
    const std::string lines[] = {
        createLine,
        this->line("objMediaUrl->parseMediaUrl error"),
        createLine,
        "objMediaInfoTool.createMediaInfo Error!!!!\n",
    };
    const std::size_t records = this->host_.recordsInUse();
    const int mutexes = this->host_.living("OVMutex");
    std::optional<SafePointer<IRTSPController>> controller;
    const auto create = [&] { return this->factory_.createMedia("any", *controller, false); };
    const auto good = FailingCalls(4)
                          .before([&] { controller.emplace(); })
                          .during(create,
                                  [&](const FailingCalls::Attempt& failed)
                                  {
                                      EXPECT_EQ(failed.code, failed.result);
                                      EXPECT_EQ(lines[failed.nth - 1], failed.printed);
                                      EXPECT_FALSE(controller->isEmpty());
                                      EXPECT_EQ(0, this->host_.living("MediaInfoTool"));
                                      EXPECT_EQ(records + 1, this->host_.recordsInUse())
                                          << "only the controller is left";
                                  });
    EXPECT_EQ("", good.printed);
    EXPECT_FALSE(controller->isEmpty());
    controller.reset();
    EXPECT_EQ(records, this->host_.recordsInUse());
    EXPECT_EQ(mutexes, this->host_.living("OVMutex"));
}

TYPED_TEST(LiveControllerFactories, RegistryThatLosesTheCodecMeanwhileIsReportedWithTheControllersUrl)
{
    this->useScriptedCodec([] { MediaUrlFactoryMap::getInstance()->unregisterFactory(scriptedType); });
    CapturedOutput output;
    EXPECT_EQ(-6, this->factory_.createMedia("some/url", this->controller_, false));
    EXPECT_EQ(this->line("can not find the MediaUrlFactory of \"some/url\""), output.text());
}

TYPED_TEST(LiveControllerFactories, ControllerWhoseParseFailedStoresNothing)
{
    this->useScriptedCodec();
    this->host_.failNthCall(2, -8);
    CapturedOutput output;
    this->factory_.createMedia("some/url", this->controller_, false);
    this->host_.clearCalls();
    // The values of the next description are those that the controller kept.
    MediaInfo info;
    EXPECT_EQ(0, this->own(this->controller_).createMediaInfo(scriptedType, false, info));
    EXPECT_EQ((Calls{
                  "IMediaUrlFactory::createMediaUrl()",
                  "MediaInfoTool::setDeviceInfoEx()",
                  "MediaInfoTool::setDeviceExAbility(false)",
                  std::string("MediaInfoTool::setMediaUrl(") + TypeParam::renderedUnparsed + ")",
                  "MediaInfoTool::setThirdPlatType(42)",
                  "MediaInfoTool::createMediaInfo(0, 0, false)",
              }),
              this->host_.calls());
}

TYPED_TEST(LiveControllerFactories, ControllerWhoseDescriptionFailedHasStoredAllElse)
{
    this->useScriptedCodec();
    this->host_.script("MediaInfoTool::createMediaInfo", {-507});
    {
        CapturedOutput output;
        EXPECT_EQ(-507, this->factory_.createMedia("some/url", this->controller_, false));
    }
    this->host_.clearCalls();
    MediaInfo info;
    EXPECT_EQ(0, this->own(this->controller_).createMediaInfo(scriptedType, false, info));
    EXPECT_EQ("MediaInfoTool::setDeviceInfoEx(device A)", this->host_.calls()[1]);
    EXPECT_EQ(TypeParam::rendered, info.mediaUrl);
    CapturedOutput output;
    this->own(this->controller_).createMediaInfo(unknownType, false, info);
    EXPECT_EQ(this->line("can not find the MediaUrlFactory of \"some/url\""), output.text());
}

TYPED_TEST(LiveControllerFactories, FillTheHandleBeforeTheyInitialiseTheController)
{
    std::vector<bool> empty;
    this->useScriptedCodec([&] { empty.push_back(this->controller_.isEmpty()); });
    this->factory_.createMedia("any", this->controller_, false);
    EXPECT_EQ((std::vector<bool>{false, false}), empty);
}

TYPED_TEST(LiveControllerFactories, ReleaseWhatTheHandleHeldBefore)
{
    this->useScriptedCodec();
    this->factory_.createMedia("any", this->controller_, false);
    const std::size_t records = this->host_.recordsInUse();
    this->factory_.createMedia("any", this->controller_, false);
    EXPECT_EQ(records, this->host_.recordsInUse());
}

TYPED_TEST(LiveControllerFactories, HoldTheirLockButNotTheRegistrysWhileTheControllerIsInitialised)
{
    std::vector<int> locks;
    this->useScriptedCodec([&] { locks.push_back(FakeHost::locksHeldHere()); });
    this->factory_.createMedia("any", this->controller_, false);
    EXPECT_EQ((std::vector<int>{1, 1}), locks);
    for (const FakeHost::Call& call : this->host_.callDetails())
    {
        EXPECT_EQ(1, call.locksHeld) << call.text;
    }
    EXPECT_EQ(0, FakeHost::locksHeldHere());
}

TYPED_TEST(LiveControllerFactories, InitialiseTheirMutexOnceInTheMulticastFormAndNeverInTheOthers)
{
    this->host_.recordLocks(true);
    const typename TypeParam::Factory factory;
    this->host_.recordLocks(false);
    EXPECT_EQ(Calls(TypeParam::mutexInits, "OVMutex::Init()"), this->host_.calls());
}

TYPED_TEST(LiveControllerFactories, TakeTheLockUnderTheUnitsNameInEverySetter)
{
    this->host_.recordLocks(true);
    this->factory_.setDeviceInfo(DeviceInfoEx());
    this->factory_.setDeviceAbility(DeviceExAbility());
    this->factory_.setThirdPlatType(unknownType);
    this->host_.recordLocks(false);
    const Calls calls = this->host_.calls();
    ASSERT_EQ(6u, calls.size());
    const std::string lock = std::string("OVMutex::Lock(") + TypeParam::factoryName + ", ";
    for (std::size_t i = 0; i < calls.size(); i += 2)
    {
        EXPECT_EQ(0u, calls[i].find(lock)) << calls[i];
        EXPECT_EQ("OVMutex::Unlock(OVMutexManager.h, 71)", calls[i + 1]);
    }
}

TYPED_TEST(LiveControllerFactories, TakeTheLockUnderTheUnitsNameInCreateMedia)
{
    this->host_.recordLocks(true);
    this->useScriptedCodec();
    this->host_.clearCalls();
    this->factory_.createMedia("any", this->controller_, false);
    this->host_.recordLocks(false);
    EXPECT_EQ(
        0u, this->host_.calls().front().find(std::string("OVMutex::Lock(") + TypeParam::factoryName + ", "));
    EXPECT_EQ("OVMutex::Unlock(OVMutexManager.h, 71)", this->host_.calls().back());
}

TYPED_TEST(LiveControllerFactories, GiveTheirLockBackWhenAnExceptionPasses)
{
    this->useScriptedCodec([] { throw std::runtime_error("no memory"); });
    EXPECT_THROW(this->factory_.createMedia("any", this->controller_, false), std::runtime_error);
    EXPECT_EQ(0, FakeHost::locksHeldHere());
    EXPECT_FALSE(this->controller_.isEmpty());
}

TYPED_TEST(LiveControllerFactories, SettingsReachOnlyControllersMadeAfterwards)
{
    this->useScriptedCodec();
    this->factory_.createMedia("any", this->controller_, false);
    this->setDevice("device B");
    this->host_.clearCalls();
    MediaInfo info;
    this->own(this->controller_).createMediaInfo(scriptedType, false, info);
    EXPECT_EQ("MediaInfoTool::setDeviceInfoEx(device A)", this->host_.calls()[1]);
    this->host_.clearCalls();
    this->factory_.createMedia("any", this->controller_, false);
    EXPECT_EQ("MediaInfoTool::setDeviceInfoEx(device B)", this->host_.calls()[3]);
}

TYPED_TEST(UnicastControllerFactories, ServeManyThreadsAtOnce)
{
    const std::size_t records = this->host_.recordsInUse();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [this, i]
            {
                const std::string url = "orv/live/" + std::to_string(i) + "/0";
                for (int iteration = 0; iteration < 100; ++iteration)
                {
                    this->setDevice("device " + std::to_string(i));
                    SafePointer<IRTSPController> controller;
                    EXPECT_EQ(0, this->factory_.createMedia(url, controller, false));
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
    EXPECT_EQ(records, this->host_.recordsInUse());
}

TYPED_TEST(LiveControllerFactories, HoldTheCodecsFactoryUntilTheCodecHasParsedAndIsGone)
{
    WatchedCodec::registerUnder(scriptedType, WatchedCodec::whileParsing);
    this->factory_.setThirdPlatType(scriptedType);
    CapturedOutput output;
    EXPECT_EQ(-6, this->factory_.createMedia("any", this->controller_, true)) << "rendering finds it no more";
    EXPECT_EQ((Calls{"parse, factory lives", "codec gone", "factory gone"}), WatchedCodec::events());
}

TYPED_TEST(LiveControllerFactories, HoldTheCodecsFactoryUntilTheDescriptionIsMade)
{
    WatchedCodec::registerUnder(scriptedType, WatchedCodec::whileRendering);
    this->factory_.setThirdPlatType(scriptedType);
    EXPECT_EQ(0, this->factory_.createMedia("any", this->controller_, true));
    EXPECT_EQ((Calls{"parse, factory lives", "codec gone", "render, factory lives", "type, factory lives",
                     "codec gone", "factory gone"}),
              WatchedCodec::events());
}

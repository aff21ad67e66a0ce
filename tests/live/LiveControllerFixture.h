#pragma once

#include <gtest/gtest.h>

#include <string>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "live/OVLiveControllerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeHost.h"

/// A live controller of camera 12, stream 0, with video, audio and back channel; the log begins behind its
/// making.
class LiveControllerFixture : public testing::Test
{
protected:
    ~LiveControllerFixture() noexcept override {}

    void SetUp() override
    {
        MediaUrlFactoryMap::getInstance()->registerFactory(
            type, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
        OVAudioBackDispatcherMgr::getInstance();
        OVLiveControllerFactory factory;
        DeviceExAbility ability;
        ability.setAudioBackFlag(true);
        factory.setDeviceAbility(ability);
        factory.setThirdPlatType(type);
        ASSERT_EQ(0, factory.createMedia("rtsp://192.0.2.10/orv/live/12/0", controller_, true));
        host_.reset();
    }

    void TearDown() override
    {
        MediaUrlFactoryMap::getInstance()->unregisterFactory(type);
        OVAudioBackDispatcherMgr::getInstance()->clearAllSession();
        host_.reset();
    }

    static SafePointer<IConnection> connection(int kind)
    {
        return SafePointer<IConnection>(new FakeConnection(kind));
    }

    static constexpr int type = 7;
    const std::string session_ = "session";
    const std::string video_ = "trackID=0";
    const std::string audio_ = "trackID=1";
    const std::string talkBack_ = "trackID=2";
    FakeHost& host_ = FakeHost::instance();
    SafePointer<IRTSPController> controller_;
};

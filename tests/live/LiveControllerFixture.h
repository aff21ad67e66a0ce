#pragma once

#include <gtest/gtest.h>

#include <string>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "hostapi/live/LiveDispatcherMgr.h"
#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakeLiveSessions.h"
#include "tests/live/LiveForms.h"

/// A live controller of one of the forms with video, audio and back channel; camera 12, stream 0 where the
/// device's own codec reads the URL. The log starts behind its making.
template <class Form>
class LiveControllerFixture : public testing::Test
{
protected:
    ~LiveControllerFixture() noexcept override {}

    void SetUp() override
    {
        MediaUrlFactoryMap::getInstance()->registerFactory(type, Form::codecs());
        // Created here, so that tests that count handles do not count these.
        OVAudioBackDispatcherMgr::getInstance();
        LiveDispatcherMgr::getInstance();
        RTPStreamDispatcherMgr::getInstance();
        controller_ = make();
        host_.reset();
    }

    void TearDown() override
    {
        MediaUrlFactoryMap::getInstance()->unregisterFactory(type);
        OVAudioBackDispatcherMgr::getInstance()->clearAllSession();
        FakeLiveSessions::clear();
        host_.reset();
    }

    /// One more controller of the same URL.
    SafePointer<IRTSPController> make()
    {
        typename Form::Factory factory;
        DeviceExAbility ability;
        ability.setAudioBackFlag(true);
        factory.setDeviceAbility(ability);
        factory.setThirdPlatType(type);
        SafePointer<IRTSPController> controller;
        EXPECT_EQ(0, factory.createMedia(Form::url, controller, true));
        return controller;
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

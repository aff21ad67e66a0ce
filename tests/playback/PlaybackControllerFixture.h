#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "hostapi/playback/RTPPlayBackDispacherMgr.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlaybackController.h"
#include "playback/OVPlaybackControllerFactory.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/playback/IntervalCodec.h"

/// A factory of playback controllers whose device is "device A" at 192.0.2.1 and whose codec is the device's
/// own.
class PlaybackControllerFixture : public testing::Test
{
protected:
    ~PlaybackControllerFixture() noexcept override {}

    void SetUp() override
    {
        MediaUrlFactoryMap::getInstance()->registerFactory(
            orvaneType, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
        RTPPlayBackDispacherMgr::getInstance();
        factory_.setThirdPlatType(orvaneType);
        setDevice("device A");
        host_.reset();
    }

    void TearDown() override
    {
        MediaUrlFactoryMap::getInstance()->unregisterFactory(orvaneType);
        MediaUrlFactoryMap::getInstance()->unregisterFactory(intervalType);
        for (const std::string& track : {video_, audio_})
        {
            RTPPlayBackDispacherMgr::getInstance()->stop(session_, track);
        }
        host_.reset();
    }

    void setDevice(const std::string& id)
    {
        InetAddr address;
        address.setIP("192.0.2.1");
        DeviceInfoEx device;
        device.setDeviceID(id);
        device.setDeviceAddr(address);
        factory_.setDeviceInfo(device);
    }

    /// From now on every URL names this interval.
    void useInterval(double begin, double end, const std::function<void()>& onCreate = nullptr)
    {
        MediaUrlFactoryMap::getInstance()->unregisterFactory(intervalType);
        MediaUrlFactoryMap::getInstance()->registerFactory(
            intervalType, SafePointer<IMediaUrlFactory>(new IntervalCodecFactory(begin, end, onCreate)));
        factory_.setThirdPlatType(intervalType);
    }

    SafePointer<IRTSPController> make(const std::string& url)
    {
        SafePointer<IRTSPController> controller;
        EXPECT_EQ(0, factory_.createMedia(url, controller, false));
        host_.clearCalls();
        return controller;
    }

    static SafePointer<IConnection> connection(int kind)
    {
        return SafePointer<IConnection>(new FakeConnection(kind));
    }

    static constexpr int orvaneType = 7;
    static constexpr int intervalType = 8;
    static constexpr int unknownType = 9;
    const std::string session_ = "session";
    const std::string video_ = "trackID=0";
    const std::string audio_ = "trackID=1";
    FakeHost& host_ = FakeHost::instance();
    OVPlaybackControllerFactory factory_;
};

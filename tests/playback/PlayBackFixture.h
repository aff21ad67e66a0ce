#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "playback/OVPlayBack.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeDescription.h"
#include "tests/fakehost/FakeHost.h"

/// A playback session whose dispatcher is the first one of the log.
class PlayBackFixture : public testing::Test
{
protected:
    using Calls = std::vector<std::string>;

    ~PlayBackFixture() noexcept override {}

    PlayBackFixture()
    {
        host_.reset();
        session_.reset(new OVPlayBack);
    }

    void TearDown() override
    {
        session_.reset();
        host_.reset();
    }

    static DeviceInfoEx device()
    {
        InetAddr address;
        address.setIP("192.0.2.1");
        DeviceInfoEx info;
        info.setDeviceID("device A");
        info.setDeviceAddr(address);
        return info;
    }

    int init(long begin = 100, long end = 3700)
    {
        DeviceExAbility ability;
        ability.setAudioBackFlag(true);
        return session_->init(device(), ability, 7, 12, begin, end);
    }

    /// A session with both tracks set up; the log starts behind that.
    void prepare()
    {
        init();
        session_->setMediaInfo(FakeDescription::presentation(false));
        session_->setup(id_, video_, connection(1));
        session_->setup(id_, audio_, connection(1));
        host_.clearCalls();
    }

    static SafePointer<IConnection> connection(int kind)
    {
        return SafePointer<IConnection>(new FakeConnection(kind));
    }

    const std::string id_ = "session";
    const std::string video_ = "trackID=0";
    const std::string audio_ = "trackID=1";
    FakeHost& host_ = FakeHost::instance();
    std::unique_ptr<OVPlayBack> session_;
};

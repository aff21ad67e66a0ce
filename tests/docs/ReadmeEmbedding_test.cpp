#include "ReadmeEmbedding.inc"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeHost.h"

TEST(ReadmeEmbedding, ItsFiveStepsServeAStream)
{
    registerUrls();
    const SafePointer<IRTSPControllerFactory> factory = makeLiveFactory(DeviceInfoEx(), DeviceExAbility());

    SafePointer<IRTSPController> controller;
    MediaInfo media;
    ASSERT_EQ(describe(factory, "rtsp://192.0.2.10/orv/live/1/0", controller, media), 0);
    ASSERT_EQ(media.getAllSubMediaInfo().size(), 2U);

    const std::string track = media.getAllSubMediaInfo().front().trackId;
    const SafePointer<IConnection> connection(new FakeConnection(IConnection::udpUnicast));
    EXPECT_EQ(startTrack(controller, "session", track, connection), 0);
    EXPECT_EQ(endTrack(controller, "session", track), 0);

    std::vector<std::string> dispatch;
    for (const std::string& call : FakeHost::instance().calls())
    {
        if (call.find("RTPStreamDispatcherMgr::") == 0)
        {
            dispatch.push_back(call.substr(24, call.find('(') - 24));
        }
    }
    EXPECT_THAT(dispatch,
                testing::ElementsAre("initRTPBuilder", "addRTPConnection", "play", "deleteRTPConnection"));
}

TEST(ReadmeEmbedding, StatusReportsAnUnknownUrl)
{
    registerUrls();
    const SafePointer<IRTSPControllerFactory> factory = makeLiveFactory(DeviceInfoEx(), DeviceExAbility());

    SafePointer<IRTSPController> controller;
    MediaInfo media;
    EXPECT_NE(describe(factory, "rtsp://192.0.2.10/other/1/0", controller, media), 0);
}

#include <gtest/gtest.h>

#include <limits>
#include <ostream>
#include <string>
#include <utility>

#include "playback/OVPlayBack.h"
#include "tests/fakehost/FailingCalls.h"
#include "tests/playback/PlayBackFixture.h"

namespace
{

class OVPlayBackSetup : public PlayBackFixture
{
protected:
    ~OVPlayBackSetup() noexcept override {}
};

struct Transport
{
    int kind;
    int payloadSize;

    friend std::ostream& operator<<(std::ostream& out, const Transport& transport)
    {
        return out << transport.kind;
    }
};

class OVPlayBackTransport : public OVPlayBackSetup, public testing::WithParamInterface<Transport>
{
protected:
    ~OVPlayBackTransport() noexcept override {}
};

}  // namespace

TEST_F(OVPlayBackSetup, InitNamesTheTracksThenMakesTheSourceThenStartsTheDispatcher)
{
    CapturedOutput output;
    EXPECT_EQ(0, init());
    EXPECT_EQ("", output.text());
    const std::string record = "camera 12, 100 to 3700, device A, 192.0.2.1";
    EXPECT_EQ((Calls{
                  "ThirdPlatMgr::getTrackIDByESStreamType(7, 1, false, 103)",
                  "ThirdPlatMgr::getTrackIDByESStreamType(7, 2, false, 103)",
                  "OVAVPlayBackSource::setDeviceInfo(device A)",
                  "OVAVPlayBackSource::setDeviceAbility(true)",
                  "OVAVPlayBackSource::setRecordInfo(" + record + ")",
                  "OVAVPlayBackSource::setThirdPlatType(7)",
                  "RTPPlayBackDispacher#1::setMediaSource(" + record + ")",
                  "RTPPlayBackDispacher#1::setTransferMixStreamFlag(false)",
                  "RTPPlayBackDispacher#1::setRTCPTimeout(60)",
                  "RTPPlayBackDispacher#1::setRTCPFrequence(5)",
                  "RTPPlayBackDispacher#1::setFramePacketMode(false)",
                  "RTPPlayBackDispacher#1::start()",
              }),
              host_.calls());
}

TEST_F(OVPlayBackSetup, InitLeavesTheSourceToTheDispatcherAlone)
{
    init();
    EXPECT_EQ(1, host_.living("OVAVPlayBackSource"));
    init();
    EXPECT_EQ(1, host_.living("OVAVPlayBackSource")) << "the dispatcher let go of the former one";
    session_.reset();
    EXPECT_EQ(0, host_.living("OVAVPlayBackSource"));
}

TEST_F(OVPlayBackSetup, FailedStartIsPrintedAndItsCodeReturnedAfterAllSettings)
{
    const auto good = FailingCalls(1).during(
        [this] { return init(); },
        [this](const FailingCalls::Attempt& attempt)
        {
            EXPECT_EQ(attempt.code, attempt.result);
            EXPECT_EQ("OVPlayBack->initInstance PRTPStreamDispatcher start Fail!\n", attempt.printed);
            EXPECT_EQ(12u, host_.calls().size());
            EXPECT_EQ(1, host_.living("OVAVPlayBackSource")) << "nothing is undone";
        });
    EXPECT_EQ("", good.printed);
}

TEST_F(OVPlayBackSetup, TracksAreKnownAlsoAfterAFailedStart)
{
    host_.script("RTPPlayBackDispacher::start", {-1});
    {
        CapturedOutput output;
        init();
    }
    EXPECT_EQ(0, session_->stop(id_, video_));
    EXPECT_EQ(0, session_->stop(id_, audio_));
}

TEST_F(OVPlayBackSetup, InitTakesTheLowBitsOfTimes)
{
    init(-1, -2);
    EXPECT_EQ("OVAVPlayBackSource::setRecordInfo(camera 12, 4294967295 to 4294967294, device A, 192.0.2.1)",
              host_.calls().at(4));
}

TEST_F(OVPlayBackSetup, InitTakesTheLastTimesOf32Bits)
{
    // The ends of a device's long.
    init(2147483647L, -2147483647L - 1);
    EXPECT_EQ("OVAVPlayBackSource::setRecordInfo(camera 12, 2147483647 to 2147483648, device A, 192.0.2.1)",
              host_.calls().at(4));
}

TEST_F(OVPlayBackSetup, InitAndDescriptionTakeNoLock)
{
    host_.recordLocks(true);
    init();
    session_->setMediaInfo(FakeDescription::presentation(false));
    session_->setup(id_, video_, connection(2));
    session_->setRTCPFrequence(id_, video_, 9);
    host_.recordLocks(false);
    EXPECT_EQ(0u, host_.callCount("OVMutex::Lock"));
}

TEST_P(OVPlayBackTransport, SetupCreatesThePacketiserThenAttachesTheConnection)
{
    init();
    session_->setMediaInfo(FakeDescription::presentation(false));
    host_.clearCalls();
    const Transport& transport = GetParam();
    EXPECT_EQ(0, session_->setup(id_, video_, connection(transport.kind)));
    Calls calls = host_.calls();
    if (transport.kind == 2)
    {
        ASSERT_EQ("RTPPlayBackDispacher#1::getMTUParam()", calls.at(0));
        calls.erase(calls.begin());
    }
    EXPECT_EQ((Calls{
                  "RTPPlayBackDispacher#1::initRTPBuilder(session, trackID=0, H264, " +
                      std::to_string(transport.payloadSize) + ")",
                  "RTPPlayBackDispacher#1::addSessionConnection(session, trackID=0, " +
                      std::to_string(transport.kind) + ")",
              }),
              calls);
}

INSTANTIATE_TEST_SUITE_P(Known, OVPlayBackTransport,
                         testing::Values(Transport{1, 1364}, Transport{2, 1440 - 76}, Transport{3, 1364}),
                         [](const testing::TestParamInfo<Transport>& tested)
                         { return "Kind" + std::to_string(tested.param.kind); });

TEST_F(OVPlayBackSetup, UnicastPayloadIsTheDispatchersMtuWithout76Bytes)
{
    init();
    session_->setMediaInfo(FakeDescription::presentation(false));
    for (const auto& row : {std::make_pair(1500, "1424"), std::make_pair(576, "500"), std::make_pair(76, "0"),
                            std::make_pair(0, "-76")})
    {
        host_.script("RTPPlayBackDispacher::getMTUParam", {row.first});
        host_.clearCalls();
        session_->setup(id_, video_, connection(2));
        EXPECT_EQ(std::string("RTPPlayBackDispacher#1::initRTPBuilder(session, trackID=0, H264, ") +
                      row.second + ")",
                  host_.calls().at(1));
    }
}

TEST_F(OVPlayBackSetup, UnknownTransportKindIsRefusedBeforeTheTrackIsLookedUp)
{
    init();
    session_->setMediaInfo(FakeDescription::presentation(false));
    host_.clearCalls();
    for (const int kind : {0, 4, -1, 256 + 1, std::numeric_limits<int>::max()})
    {
        EXPECT_EQ(-6, session_->setup(id_, video_, connection(kind))) << kind;
        EXPECT_EQ(-6, session_->setup(id_, "no such track", connection(kind))) << kind;
    }
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlayBackSetup, SetupWithoutConnectionThrowsTheHandlesReport)
{
    prepare();
    const SafePointer<IConnection> none;
    CapturedOutput output;
    EXPECT_THROW(session_->setup(id_, video_, none), OVRuntimeError);
    EXPECT_EQ("SafePointer Report:11IConnection Use NULL pointer ->\n", output.text());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlayBackSetup, SetupOfATrackThatIsNotDescribedIsNotFound)
{
    prepare();
    CapturedOutput output;
    for (const char* track : {"", "trackID=", "trackID=9", "trackID=00"})
    {
        EXPECT_EQ(-8, session_->setup(id_, track, connection(1))) << track;
    }
    EXPECT_EQ("", output.text());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlayBackSetup, SetupBeforeADescriptionFindsNoTrack)
{
    init();
    EXPECT_EQ(-8, session_->setup(id_, video_, connection(1)));
}

TEST_F(OVPlayBackSetup, EachFailingCallEndsSetupWithItsCodeSilently)
{
    init();
    session_->setMediaInfo(FakeDescription::presentation(false));
    FailingCalls(2).duringSetup([this] { return session_->setup(id_, video_, connection(3)); });
}

#include <gtest/gtest.h>

#include <string>

#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

const std::string streamKey = "1/0";
const std::string session = "12345678";
const std::string videoTrack = "trackID=0";
const std::string audioTrack = "trackID=1";
constexpr int payloadSize = 1364;
constexpr int untouched = 4711;

SubMediaInfo video()
{
    SubMediaInfo info;
    info.trackId = videoTrack;
    info.mediaType = "video";
    info.encodingName = "H264";
    info.payloadType = 96;
    info.clockRate = 90000;
    return info;
}

SubMediaInfo audio()
{
    SubMediaInfo info;
    info.trackId = audioTrack;
    info.mediaType = "audio";
    info.encodingName = "PCMU";
    info.payloadType = 0;
    info.clockRate = 8000;
    info.channels = 1;
    return info;
}

class DispatcherContract : public testing::Test
{
protected:
    void SetUp() override
    {
        HostUnderTest::prepareStreams();
    }
    void TearDown() override
    {
        EXPECT_EQ(0, HostUnderTest::livingConnections());
        HostUnderTest::dropStreams();
    }

    int setUpVideo(const std::string& sessionId)
    {
        const int result =
            dispatcher()->initRTPBuilder(streamKey, sessionId, videoTrack, video(), payloadSize);
        return result != 0 ? result
                           : dispatcher()->addRTPConnection(streamKey, sessionId, videoTrack,
                                                            HostUnderTest::makeConnection());
    }

    static SafePointer<RTPStreamDispatcherMgr> dispatcher()
    {
        return RTPStreamDispatcherMgr::getInstance();
    }
};

}  // namespace

TEST_F(DispatcherContract, InstanceIsSharedAndEachHandleIsNew)
{
    const SafePointer<RTPStreamDispatcherMgr> one = dispatcher();
    const SafePointer<RTPStreamDispatcherMgr> again = dispatcher();
    EXPECT_FALSE(one.isEmpty());
    EXPECT_EQ(one.operator->(), again.operator->());
}

TEST_F(DispatcherContract, UnknownTrackIsRefusedByEveryOperation)
{
    EXPECT_NE(
        0, dispatcher()->addRTPConnection(streamKey, session, videoTrack, HostUnderTest::makeConnection()));
    EXPECT_NE(0, dispatcher()->play(streamKey, session, videoTrack));
    EXPECT_NE(0, dispatcher()->pause(streamKey, session, videoTrack));
    EXPECT_NE(0, dispatcher()->deleteRTPConnection(streamKey, session, videoTrack));
    int ssrc = untouched;
    EXPECT_NE(0, dispatcher()->getTrackSSRC(streamKey, session, videoTrack, ssrc));
    EXPECT_EQ(untouched, ssrc);
}

TEST_F(DispatcherContract, KeysThatAgreeOnlyInPartAreUnknown)
{
    ASSERT_EQ(0, setUpVideo(session));
    EXPECT_NE(0, dispatcher()->play("1/1", session, videoTrack));
    EXPECT_NE(0, dispatcher()->play(streamKey, "other", videoTrack));
    EXPECT_NE(0, dispatcher()->play(streamKey, session, audioTrack));
    EXPECT_NE(0, dispatcher()->play("", "", ""));
    EXPECT_EQ(0, dispatcher()->deleteRTPConnection(streamKey, session, videoTrack));
}

TEST_F(DispatcherContract, WholeLifeOfATrackSucceedsInEveryStep)
{
    EXPECT_EQ(0, dispatcher()->initRTPBuilder(streamKey, session, videoTrack, video(), payloadSize));
    EXPECT_EQ(
        0, dispatcher()->addRTPConnection(streamKey, session, videoTrack, HostUnderTest::makeConnection()));
    EXPECT_EQ(0, dispatcher()->play(streamKey, session, videoTrack));
    EXPECT_EQ(0, dispatcher()->play(streamKey, session, videoTrack));
    EXPECT_EQ(0, dispatcher()->pause(streamKey, session, videoTrack));
    EXPECT_EQ(0, dispatcher()->pause(streamKey, session, videoTrack));
    EXPECT_EQ(0, dispatcher()->play(streamKey, session, videoTrack));
    EXPECT_EQ(0, dispatcher()->deleteRTPConnection(streamKey, session, videoTrack));
    EXPECT_NE(0, dispatcher()->play(streamKey, session, videoTrack));
    EXPECT_NE(0, dispatcher()->deleteRTPConnection(streamKey, session, videoTrack));
}

TEST_F(DispatcherContract, ConnectionIsKeptUntilTheTrackEnds)
{
    ASSERT_EQ(0, setUpVideo(session));
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    dispatcher()->play(streamKey, session, videoTrack);
    dispatcher()->pause(streamKey, session, videoTrack);
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    dispatcher()->deleteRTPConnection(streamKey, session, videoTrack);
    EXPECT_EQ(0, HostUnderTest::livingConnections());
}

TEST_F(DispatcherContract, NewPacketiserReplacesWhatTheSameKeysHad)
{
    ASSERT_EQ(0, setUpVideo(session));
    EXPECT_EQ(0, dispatcher()->initRTPBuilder(streamKey, session, videoTrack, video(), payloadSize));
    EXPECT_EQ(0, HostUnderTest::livingConnections());
    EXPECT_EQ(0, dispatcher()->deleteRTPConnection(streamKey, session, videoTrack));
    EXPECT_NE(0, dispatcher()->deleteRTPConnection(streamKey, session, videoTrack));
}

TEST_F(DispatcherContract, SsrcStaysTheSameThroughPlayAndPause)
{
    ASSERT_EQ(0, setUpVideo(session));
    int first = 0;
    int later = 0;
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(streamKey, session, videoTrack, first));
    dispatcher()->play(streamKey, session, videoTrack);
    dispatcher()->pause(streamKey, session, videoTrack);
    dispatcher()->play(streamKey, session, videoTrack);
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(streamKey, session, videoTrack, later));
    EXPECT_EQ(first, later);
    dispatcher()->deleteRTPConnection(streamKey, session, videoTrack);
}

TEST_F(DispatcherContract, TracksHaveSsrcsOfTheirOwn)
{
    ASSERT_EQ(0, setUpVideo(session));
    ASSERT_EQ(0, setUpVideo("other"));
    ASSERT_EQ(0, dispatcher()->initRTPBuilder(streamKey, session, audioTrack, audio(), payloadSize));
    int ofVideo = 0;
    int ofAudio = 0;
    int ofOther = 0;
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(streamKey, session, videoTrack, ofVideo));
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(streamKey, session, audioTrack, ofAudio));
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(streamKey, "other", videoTrack, ofOther));
    EXPECT_NE(ofVideo, ofAudio);
    EXPECT_NE(ofVideo, ofOther);
    dispatcher()->deleteRTPConnection(streamKey, session, videoTrack);
    dispatcher()->deleteRTPConnection(streamKey, session, audioTrack);
    dispatcher()->deleteRTPConnection(streamKey, "other", videoTrack);
}

TEST_F(DispatcherContract, EndOfOneTrackLeavesTheOthers)
{
    ASSERT_EQ(0, setUpVideo(session));
    ASSERT_EQ(0, setUpVideo("other"));
    dispatcher()->deleteRTPConnection(streamKey, session, videoTrack);
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    EXPECT_EQ(0, dispatcher()->play(streamKey, "other", videoTrack));
    EXPECT_EQ(0, dispatcher()->deleteRTPConnection(streamKey, "other", videoTrack));
}

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "hostapi/live/LiveDispatcherMgr.h"
#include "tests/SampleTracks.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

const std::string session = "12345678";
const std::string other = "87654321";
const std::string videoTrack = "trackID=0";
const std::string audioTrack = "trackID=1";
constexpr int payloadSize = 1364;
constexpr int untouched = 4711;

class LiveDispatcherContract : public testing::Test
{
protected:
    void SetUp() override
    {
        HostUnderTest::prepareStreams();
    }
    void TearDown() override
    {
        // A session ends with its last connection, so that each one is given one and ended here.
        for (const std::string& id : {session, other})
        {
            for (const std::string& track : {videoTrack, audioTrack})
            {
                connect(id, track);
                dispatcher()->deleteSessionConection(id, track);
            }
            EXPECT_FALSE(dispatcher()->findSession(id));
        }
        EXPECT_EQ(0, HostUnderTest::livingConnections());
        HostUnderTest::dropStreams();
    }

    static MediaInfo stream()
    {
        MediaInfo info;
        info.addSubMediaInfo(SampleTracks::video());
        info.addSubMediaInfo(SampleTracks::audio());
        return info;
    }

    static int init(const std::string& sessionId)
    {
        return dispatcher()->initSession(sessionId, 1, 0, stream(), payloadSize);
    }

    static int connect(const std::string& sessionId, const std::string& trackId)
    {
        return dispatcher()->addSessionConnection(sessionId, trackId, HostUnderTest::makeConnection());
    }

    static int setUp(const std::string& sessionId, const std::string& trackId)
    {
        const int result = dispatcher()->findSession(sessionId) ? 0 : init(sessionId);
        return result != 0 ? result : connect(sessionId, trackId);
    }

    static SafePointer<LiveDispatcherMgr> dispatcher()
    {
        return LiveDispatcherMgr::getInstance();
    }
};

}  // namespace

TEST_F(LiveDispatcherContract, InstanceIsSharedAndEachHandleIsNew)
{
    const SafePointer<LiveDispatcherMgr> one = dispatcher();
    const SafePointer<LiveDispatcherMgr> again = dispatcher();
    EXPECT_FALSE(one.isEmpty());
    EXPECT_EQ(one.operator->(), again.operator->());
}

TEST_F(LiveDispatcherContract, MtuLeavesRoomForHeadersAndIsKept)
{
    MTUParam& mtu = dispatcher()->getMTUParam();
    const int usual = mtu.getMTUValue();
    EXPECT_GE(usual, 576);
    mtu.setMTUValue(1500);
    EXPECT_EQ(1500, dispatcher()->getMTUParam().getMTUValue());
    mtu.setMTUValue(usual);
}

TEST_F(LiveDispatcherContract, UnknownSessionIsRefusedByEveryOperation)
{
    EXPECT_FALSE(dispatcher()->findSession(session));
    EXPECT_NE(0, connect(session, videoTrack));
    EXPECT_NE(0, dispatcher()->play(session, videoTrack));
    EXPECT_NE(0, dispatcher()->pause(session, videoTrack));
    EXPECT_NE(0, dispatcher()->deleteSessionConection(session, videoTrack));
    int ssrc = untouched;
    EXPECT_NE(0, dispatcher()->getTrackSSRC(session, videoTrack, ssrc));
    EXPECT_EQ(untouched, ssrc);
}

TEST_F(LiveDispatcherContract, SessionIsFoundFromItsMakingUntilItsLastTrackEnds)
{
    ASSERT_EQ(0, init(session));
    EXPECT_TRUE(dispatcher()->findSession(session));
    EXPECT_FALSE(dispatcher()->findSession(other));
    ASSERT_EQ(0, connect(session, videoTrack));
    ASSERT_EQ(0, connect(session, audioTrack));
    EXPECT_EQ(0, dispatcher()->deleteSessionConection(session, videoTrack));
    EXPECT_TRUE(dispatcher()->findSession(session));
    EXPECT_EQ(0, dispatcher()->deleteSessionConection(session, audioTrack));
    EXPECT_FALSE(dispatcher()->findSession(session));
}

TEST_F(LiveDispatcherContract, SessionEndsWithItsOnlyConnectionThoughItHasFurtherTracks)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    EXPECT_EQ(0, dispatcher()->deleteSessionConection(session, videoTrack));
    EXPECT_FALSE(dispatcher()->findSession(session));
    EXPECT_EQ(0, setUp(session, videoTrack)) << "and can be made again";
}

TEST_F(LiveDispatcherContract, WholeLifeOfATrackSucceedsInEveryStep)
{
    EXPECT_EQ(0, setUp(session, videoTrack));
    EXPECT_EQ(0, dispatcher()->play(session, videoTrack));
    EXPECT_EQ(0, dispatcher()->play(session, videoTrack));
    EXPECT_EQ(0, dispatcher()->pause(session, videoTrack));
    EXPECT_EQ(0, dispatcher()->pause(session, videoTrack));
    EXPECT_EQ(0, dispatcher()->play(session, videoTrack));
    EXPECT_EQ(0, dispatcher()->deleteSessionConection(session, videoTrack));
    EXPECT_NE(0, dispatcher()->play(session, videoTrack));
    EXPECT_NE(0, dispatcher()->deleteSessionConection(session, videoTrack));
}

TEST_F(LiveDispatcherContract, TrackThatEndedCanBeConnectedAgainWhileTheSessionLives)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    ASSERT_EQ(0, setUp(session, audioTrack));
    int first = 0;
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(session, videoTrack, first));
    EXPECT_EQ(0, dispatcher()->deleteSessionConection(session, videoTrack));
    EXPECT_NE(0, dispatcher()->play(session, videoTrack));
    EXPECT_NE(0, dispatcher()->deleteSessionConection(session, videoTrack));
    EXPECT_EQ(0, connect(session, videoTrack));
    EXPECT_EQ(2, HostUnderTest::livingConnections());
    int later = first;
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(session, videoTrack, later));
    EXPECT_NE(first, later) << "it starts again";
    EXPECT_EQ(0, dispatcher()->play(session, videoTrack));
}

TEST_F(LiveDispatcherContract, TrackThatTheDescriptionLacksIsUnknown)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    EXPECT_NE(0, connect(session, "trackID=9"));
    EXPECT_NE(0, connect(session, ""));
    EXPECT_NE(0, dispatcher()->play(session, "trackID=9"));
    EXPECT_NE(0, dispatcher()->deleteSessionConection(session, "trackID=9"));
    EXPECT_EQ(0, dispatcher()->play(session, videoTrack)) << "the session goes on";
}

TEST_F(LiveDispatcherContract, TrackWithoutConnectionCannotPlay)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    EXPECT_NE(0, dispatcher()->play(session, audioTrack));
}

TEST_F(LiveDispatcherContract, ConnectionIsKeptUntilTheTrackEnds)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    dispatcher()->play(session, videoTrack);
    dispatcher()->pause(session, videoTrack);
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    dispatcher()->deleteSessionConection(session, videoTrack);
    EXPECT_EQ(0, HostUnderTest::livingConnections());
}

TEST_F(LiveDispatcherContract, FurtherConnectionReplacesTheFormerAndTheTrackContinues)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    ASSERT_EQ(0, dispatcher()->play(session, videoTrack));
    int before = 0;
    int after = 1;
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(session, videoTrack, before));
    EXPECT_EQ(0, connect(session, videoTrack));
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(session, videoTrack, after));
    EXPECT_EQ(before, after);
    EXPECT_EQ(0, dispatcher()->pause(session, videoTrack));
    EXPECT_EQ(0, dispatcher()->deleteSessionConection(session, videoTrack));
    EXPECT_FALSE(dispatcher()->findSession(session)) << "one deletion is enough";
}

TEST_F(LiveDispatcherContract, SsrcStaysTheSameThroughPlayAndPause)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    int first = 0;
    int later = 1;
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(session, videoTrack, first));
    dispatcher()->play(session, videoTrack);
    dispatcher()->pause(session, videoTrack);
    dispatcher()->play(session, videoTrack);
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(session, videoTrack, later));
    EXPECT_EQ(first, later);
}

TEST_F(LiveDispatcherContract, TracksAndSessionsHaveSsrcsOfTheirOwn)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    ASSERT_EQ(0, setUp(session, audioTrack));
    ASSERT_EQ(0, setUp(other, videoTrack));
    int ofVideo = 0;
    int ofAudio = 0;
    int ofOther = 0;
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(session, videoTrack, ofVideo));
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(session, audioTrack, ofAudio));
    EXPECT_EQ(0, dispatcher()->getTrackSSRC(other, videoTrack, ofOther));
    EXPECT_NE(ofVideo, ofAudio);
    EXPECT_NE(ofVideo, ofOther);
}

TEST_F(LiveDispatcherContract, EndOfOneSessionLeavesTheOthers)
{
    ASSERT_EQ(0, setUp(session, videoTrack));
    ASSERT_EQ(0, setUp(other, videoTrack));
    dispatcher()->deleteSessionConection(session, videoTrack);
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    EXPECT_EQ(0, dispatcher()->play(other, videoTrack));
}

TEST_F(LiveDispatcherContract, SessionsMayBeCreatedAndEndedFromManyThreads)
{
    std::vector<std::thread> clients;
    for (int client = 0; client < 4; ++client)
    {
        clients.emplace_back(
            [client]
            {
                const std::string id = "client " + std::to_string(client);
                for (int iteration = 0; iteration < 50; ++iteration)
                {
                    EXPECT_EQ(0, setUp(id, videoTrack));
                    EXPECT_EQ(0, setUp(id, audioTrack));
                    EXPECT_EQ(0, dispatcher()->play(id, videoTrack));
                    EXPECT_EQ(0, dispatcher()->pause(id, videoTrack));
                    EXPECT_EQ(0, dispatcher()->deleteSessionConection(id, videoTrack));
                    EXPECT_EQ(0, dispatcher()->deleteSessionConection(id, audioTrack));
                    EXPECT_FALSE(dispatcher()->findSession(id));
                }
            });
    }
    for (std::thread& client : clients)
    {
        client.join();
    }
    EXPECT_EQ(0, HostUnderTest::livingConnections());
}

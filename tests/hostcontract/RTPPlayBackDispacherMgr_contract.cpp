#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "hostapi/playback/RTPPlayBackDispacherMgr.h"
#include "tests/SampleTracks.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

const std::string session = "12345678";
const std::string other = "87654321";
const std::string video = "trackID=0";
const std::string audio = "trackID=1";
constexpr int untouched = 4711;

MediaInfo described()
{
    MediaInfo info;
    info.addSubMediaInfo(SampleTracks::video());
    info.addSubMediaInfo(SampleTracks::audio());
    return info;
}

/// The contract that holds with and without recorded media.
class PlaybackDispatchContract : public testing::Test
{
protected:
    void SetUp() override
    {
        HostUnderTest::prepareStreams();
    }
    void TearDown() override
    {
        for (const std::string& id : {session, other})
        {
            dispatcher()->stop(id, video);
            dispatcher()->stop(id, audio);
        }
        EXPECT_EQ(0, HostUnderTest::livingConnections());
        HostUnderTest::dropStreams();
    }

    static int init(const std::string& sessionId)
    {
        RecordInfo record;
        record.setCameraId(1);
        record.setRecordBeginTime(100);
        record.setRecordEndTime(3700);
        return dispatcher()->initDispatcher(sessionId, DeviceInfoEx(), DeviceExAbility(), record);
    }

    /// As the playback controller does it.
    static int setUp(const std::string& sessionId, const std::string& track)
    {
        dispatcher()->setMediaInfo(described());
        const int result = init(sessionId);
        return result != 0 ? result : dispatcher()->setup(sessionId, track, HostUnderTest::makeConnection());
    }

    static int ssrcOf(const std::string& sessionId, const std::string& track)
    {
        int ssrc = untouched;
        EXPECT_EQ(0, dispatcher()->getTrackSSRC(sessionId, track, ssrc));
        return ssrc;
    }

    static bool isKnown(const std::string& sessionId, const std::string& track)
    {
        int ssrc = 0;
        return dispatcher()->getTrackSSRC(sessionId, track, ssrc) == 0;
    }

    static SafePointer<RTPPlayBackDispacherMgr> dispatcher()
    {
        return RTPPlayBackDispacherMgr::getInstance();
    }
};

}  // namespace

TEST_F(PlaybackDispatchContract, InstanceIsSharedAndEachHandleIsNew)
{
    const SafePointer<RTPPlayBackDispacherMgr> one = dispatcher();
    const SafePointer<RTPPlayBackDispacherMgr> again = dispatcher();
    EXPECT_FALSE(one.isEmpty());
    EXPECT_EQ(one.operator->(), again.operator->());
}

TEST_F(PlaybackDispatchContract, UnknownTrackIsRefusedByEveryOperationAndOutputsAreUnchanged)
{
    const auto refuses = [](const std::string& sessionId, const std::string& track)
    {
        EXPECT_NE(0, dispatcher()->play(sessionId, track));
        EXPECT_NE(0, dispatcher()->pause(sessionId, track));
        EXPECT_NE(0, dispatcher()->stop(sessionId, track));
        EXPECT_NE(0, dispatcher()->setPlayRange(sessionId, track, 0, 1, 0, true));
        EXPECT_NE(0, dispatcher()->setPauseRange(sessionId, track, 1));
        EXPECT_NE(0, dispatcher()->setSpeed(sessionId, track, 1, 1));
        double start = untouched;
        double end = untouched;
        EXPECT_NE(0, dispatcher()->getCurPlayRange(sessionId, track, start, end));
        EXPECT_EQ(untouched, start);
        EXPECT_EQ(untouched, end);
        RTPPacketInfo packet;
        packet.sequenceNumber = untouched;
        EXPECT_NE(0, dispatcher()->getCurRTPPacketInfo(sessionId, track, packet));
        EXPECT_EQ(untouched, packet.sequenceNumber);
        int ssrc = untouched;
        EXPECT_NE(0, dispatcher()->getTrackSSRC(sessionId, track, ssrc));
        EXPECT_EQ(untouched, ssrc);
        bool connected = true;
        EXPECT_NE(0, dispatcher()->getConnectionState(sessionId, track, connected));
        EXPECT_TRUE(connected);
    };
    refuses(session, video);
    ASSERT_EQ(0, setUp(session, video));
    refuses(session, audio);
    refuses(session, "");
    refuses(other, video);
    refuses("", "");
}

TEST_F(PlaybackDispatchContract, SetupWithoutASessionIsRefused)
{
    dispatcher()->setMediaInfo(described());
    EXPECT_NE(0, dispatcher()->setup(session, video, HostUnderTest::makeConnection()));
}

TEST_F(PlaybackDispatchContract, SetupOfATrackThatIsNotDescribedIsRefused)
{
    EXPECT_NE(0, setUp(session, "trackID=7"));
    EXPECT_EQ(0, setUp(session, video)) << "the session can go on";
}

TEST_F(PlaybackDispatchContract, DescriptionHoldsForTheThreadThatGaveIt)
{
    dispatcher()->setMediaInfo(described());
    std::thread([] { dispatcher()->setMediaInfo(MediaInfo()); }).join();
    ASSERT_EQ(0, init(session));
    EXPECT_EQ(0, dispatcher()->setup(session, video, HostUnderTest::makeConnection()));
}

TEST_F(PlaybackDispatchContract, FurtherTrackJoinsTheExistingSession)
{
    ASSERT_EQ(0, setUp(session, video));
    const int ssrc = ssrcOf(session, video);
    ASSERT_EQ(0, setUp(session, audio));
    EXPECT_EQ(ssrc, ssrcOf(session, video));
    EXPECT_NE(ssrc, ssrcOf(session, audio));
    EXPECT_EQ(2, HostUnderTest::livingConnections());
}

TEST_F(PlaybackDispatchContract, SessionsAreApart)
{
    ASSERT_EQ(0, setUp(session, video));
    ASSERT_EQ(0, setUp(other, video));
    EXPECT_NE(ssrcOf(session, video), ssrcOf(other, video));
    EXPECT_EQ(0, dispatcher()->stop(session, video));
    EXPECT_FALSE(isKnown(session, video));
    EXPECT_TRUE(isKnown(other, video));
}

TEST_F(PlaybackDispatchContract, ConnectionIsKeptUntilTheTrackEnds)
{
    ASSERT_EQ(0, setUp(session, video));
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    dispatcher()->pause(session, video);
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    bool connected = false;
    EXPECT_EQ(0, dispatcher()->getConnectionState(session, video, connected));
    EXPECT_TRUE(connected);
    EXPECT_EQ(0, dispatcher()->stop(session, video));
    EXPECT_EQ(0, HostUnderTest::livingConnections());
}

TEST_F(PlaybackDispatchContract, SetupAgainReplacesTheConnection)
{
    ASSERT_EQ(0, setUp(session, video));
    ASSERT_EQ(0, setUp(session, video));
    EXPECT_EQ(1, HostUnderTest::livingConnections());
}

TEST_F(PlaybackDispatchContract, SessionEndsWithItsLastTrack)
{
    ASSERT_EQ(0, setUp(session, video));
    ASSERT_EQ(0, setUp(session, audio));
    EXPECT_EQ(0, dispatcher()->stop(session, audio));
    EXPECT_EQ(0, dispatcher()->pause(session, video));
    EXPECT_EQ(0, dispatcher()->stop(session, video));
    EXPECT_NE(0, dispatcher()->setup(session, video, HostUnderTest::makeConnection()))
        << "there is no session until the next initDispatcher()";
}

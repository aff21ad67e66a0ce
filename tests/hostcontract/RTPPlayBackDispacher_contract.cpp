#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "hostapi/playback/OVAVPlayBackSource.h"
#include "hostapi/playback/RTPPlayBackDispacher.h"
#include "tests/SampleTracks.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

const std::string session = "12345678";
const std::string other = "87654321";
const std::string video = "trackID=0";
const std::string audio = "trackID=1";
constexpr int payloadSize = 1364;
constexpr int untouched = 4711;

/// The contract that holds with and without recorded media.
class PlaybackDispatcherContract : public testing::Test
{
protected:
    ~PlaybackDispatcherContract() noexcept override {}

    void SetUp() override
    {
        HostUnderTest::prepareStreams();
        dispatcher_.reset(new RTPPlayBackDispacher);
    }
    void TearDown() override
    {
        dispatcher_.reset();
        EXPECT_EQ(0, HostUnderTest::livingConnections());
        HostUnderTest::dropStreams();
    }

    int start()
    {
        RecordInfo record;
        record.setCameraId(1);
        record.setRecordBeginTime(100);
        record.setRecordEndTime(3700);
        const SafePointer<OVAVPlayBackSource> source(new OVAVPlayBackSource);
        source->setRecordInfo(record);
        dispatcher_->setMediaSource(SafePointer<IMediaSource>(source));
        dispatcher_->setTransferMixStreamFlag(false);
        dispatcher_->setRTCPTimeout(60);
        dispatcher_->setRTCPFrequence(5);
        dispatcher_->setFramePacketMode(false);
        return dispatcher_->start();
    }

    int initBuilder(const std::string& sessionId, const SubMediaInfo& track)
    {
        return dispatcher_->initRTPBuilder(sessionId, track.trackId, track, payloadSize);
    }

    int connect(const std::string& sessionId, const std::string& track)
    {
        return dispatcher_->addSessionConnection(sessionId, track, HostUnderTest::makeConnection());
    }

    int setUp(const std::string& sessionId, const SubMediaInfo& track)
    {
        const int result = initBuilder(sessionId, track);
        return result != 0 ? result : connect(sessionId, track.trackId);
    }

    int ssrcOf(const std::string& sessionId, const std::string& track)
    {
        int ssrc = untouched;
        EXPECT_EQ(0, dispatcher_->getTrackSSRC(sessionId, track, ssrc));
        return ssrc;
    }

    std::unique_ptr<RTPPlayBackDispacher> dispatcher_;
};

}  // namespace

TEST_F(PlaybackDispatcherContract, MtuLeavesRoomForTheUsualPacketsAndCanBeChanged)
{
    EXPECT_EQ(payloadSize, dispatcher_->getMTUParam().getMTUValue() - 76);
}

TEST_F(PlaybackDispatcherContract, DoesNotStartWithoutASourceAndRefusesTracksThen)
{
    EXPECT_NE(0, dispatcher_->start());
    EXPECT_NE(0, initBuilder(session, SampleTracks::video()));
    EXPECT_EQ(0, start());
    EXPECT_EQ(0, initBuilder(session, SampleTracks::video()));
}

TEST_F(PlaybackDispatcherContract, RefusesTracksUntilItIsStarted)
{
    EXPECT_NE(0, initBuilder(session, SampleTracks::video()));
}

TEST_F(PlaybackDispatcherContract, UnknownTrackIsRefusedByEveryOperationAndOutputsAreUnchanged)
{
    ASSERT_EQ(0, start());
    const auto refuses = [this](const std::string& sessionId, const std::string& track)
    {
        EXPECT_NE(0, connect(sessionId, track));
        EXPECT_NE(0, dispatcher_->play(sessionId, track));
        EXPECT_NE(0, dispatcher_->pause(sessionId, track));
        EXPECT_NE(0, dispatcher_->setSpeed(sessionId, track, 1, 1));
        EXPECT_NE(0, dispatcher_->deleteSessionConnection(sessionId, track));
        double start = untouched;
        double end = untouched;
        EXPECT_NE(0, dispatcher_->getCurPlayRange(sessionId, track, start, end));
        EXPECT_EQ(untouched, start);
        EXPECT_EQ(untouched, end);
        int ssrc = untouched;
        EXPECT_NE(0, dispatcher_->getTrackSSRC(sessionId, track, ssrc));
        EXPECT_EQ(untouched, ssrc);
        bool connected = true;
        EXPECT_NE(0, dispatcher_->getConnectionState(sessionId, track, connected));
        EXPECT_TRUE(connected);
    };
    refuses(session, video);
    EXPECT_NE(0, dispatcher_->setPauseRange(video, 1)) << "no session has it";
    ASSERT_EQ(0, setUp(session, SampleTracks::video()));
    EXPECT_EQ(0, dispatcher_->setPauseRange(video, 1));
    refuses(session, audio);
    refuses(session, "");
    refuses(other, video);
}

TEST_F(PlaybackDispatcherContract, TracksHaveSsrcsOfTheirOwn)
{
    ASSERT_EQ(0, start());
    ASSERT_EQ(0, setUp(session, SampleTracks::video()));
    ASSERT_EQ(0, setUp(session, SampleTracks::audio()));
    ASSERT_EQ(0, setUp(other, SampleTracks::video()));
    EXPECT_NE(ssrcOf(session, video), ssrcOf(session, audio));
    EXPECT_NE(ssrcOf(session, video), ssrcOf(other, video));
}

TEST_F(PlaybackDispatcherContract, ConnectionIsKeptUntilTheTrackEnds)
{
    ASSERT_EQ(0, start());
    ASSERT_EQ(0, setUp(session, SampleTracks::video()));
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    dispatcher_->pause(session, video);
    bool connected = false;
    EXPECT_EQ(0, dispatcher_->getConnectionState(session, video, connected));
    EXPECT_TRUE(connected);
    EXPECT_EQ(1, HostUnderTest::livingConnections());
    EXPECT_EQ(0, dispatcher_->deleteSessionConnection(session, video));
    EXPECT_EQ(0, HostUnderTest::livingConnections());
    EXPECT_NE(0, dispatcher_->deleteSessionConnection(session, video));
}

TEST_F(PlaybackDispatcherContract, NewPacketiserReplacesWhatTheSameIdsHad)
{
    ASSERT_EQ(0, start());
    ASSERT_EQ(0, setUp(session, SampleTracks::video()));
    ASSERT_EQ(0, initBuilder(session, SampleTracks::video()));
    EXPECT_EQ(0, HostUnderTest::livingConnections());
}

TEST_F(PlaybackDispatcherContract, EndOfTheDispatcherEndsEveryTrack)
{
    ASSERT_EQ(0, start());
    ASSERT_EQ(0, setUp(session, SampleTracks::video()));
    ASSERT_EQ(0, setUp(other, SampleTracks::audio()));
    EXPECT_EQ(2, HostUnderTest::livingConnections());
    dispatcher_.reset();
    EXPECT_EQ(0, HostUnderTest::livingConnections());
}

TEST_F(PlaybackDispatcherContract, DispatchersAreApart)
{
    ASSERT_EQ(0, start());
    ASSERT_EQ(0, setUp(session, SampleTracks::video()));
    RTPPlayBackDispacher another;
    int ssrc = 0;
    EXPECT_NE(0, another.getTrackSSRC(session, video, ssrc));
}

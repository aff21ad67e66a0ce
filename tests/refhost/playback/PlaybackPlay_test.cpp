#include <gtest/gtest.h>

#include "tests/refhost/playback/PlaybackFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using PlaybackPlay = PlaybackFixture;

TEST_F(PlaybackPlay, NothingIsSentBeforePlay)
{
    const auto wire = setUp(video);
    pass(500);
    EXPECT_TRUE(wire->units().empty());
}

TEST_F(PlaybackPlay, TracksThatWereNotSetUpAreUnknown)
{
    EXPECT_EQ(session->play(video), hostTrackUnknown);
    EXPECT_EQ(session->pause(video), hostTrackUnknown);
    bool empty = false;
    EXPECT_EQ(session->remove(video, empty), hostTrackUnknown);
}

TEST_F(PlaybackPlay, NeedsAnOpenTransport)
{
    session->addTrack(trackInfo(video), 1364);
    EXPECT_EQ(session->play(video), hostConnectionUnusable);
    setUp(video);
    transports.at(video)->close();
    EXPECT_EQ(session->play(video), hostConnectionUnusable);
}

TEST_F(PlaybackPlay, PlayIsNotReadyUntilTheWorkerFoundThePlace)
{
    setUp(video);
    EXPECT_EQ(session->play(video), hostStreamNotReady);
    EXPECT_EQ(session->play(video), hostStreamNotReady);
    runWorkers();
    EXPECT_EQ(session->play(video), 0);
}

TEST_F(PlaybackPlay, SendsTheFirstKeyFrameAtOnceAndTheRestAtItsPace)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    runWorkers();
    EXPECT_EQ(wire->units().size(), 1U);
    EXPECT_TRUE(wire->units().front()->keyFrame);
    pass(1000);
    EXPECT_EQ(wire->units().size(), 26U);
}

TEST_F(PlaybackPlay, StartsAtTheKeyFrameAtOrBeforeAndReportsIt)
{
    const auto wire = setUp(video);
    ASSERT_EQ(playFrom(video, 5.5), 0);
    double begin = 0;
    double end = 0;
    ASSERT_EQ(session->range(video, begin, end), 0);
    EXPECT_DOUBLE_EQ(begin, 5);
    EXPECT_DOUBLE_EQ(end, 20);
    runWorkers();
    EXPECT_EQ(secondsOf(*wire), std::vector<double>{5});
}

TEST_F(PlaybackPlay, RtpInfoNamesTheFirstPacketOfEachTrack)
{
    const auto frames = setUp(video);
    const auto audioWire = setUp(audio);
    ASSERT_EQ(play(video), 0);
    ASSERT_EQ(play(audio), 0);
    RTPPacketInfo first;
    RTPPacketInfo firstAudio;
    ASSERT_EQ(session->firstPacket(video, first), 0);
    ASSERT_EQ(session->firstPacket(audio, firstAudio), 0);
    pass(100);
    EXPECT_EQ(first.sequenceNumber, frames->packets.front().sequence);
    EXPECT_EQ(first.rtpTimestamp, frames->packets.front().timestamp);
    EXPECT_EQ(firstAudio.sequenceNumber, audioWire->packets.front().sequence);
    EXPECT_EQ(firstAudio.rtpTimestamp, audioWire->packets.front().timestamp);
}

TEST_F(PlaybackPlay, TimestampsFollowTheRecordedMedia)
{
    const auto frames = setUp(video);
    const auto audioWire = setUp(audio);
    ASSERT_EQ(play(video), 0);
    ASSERT_EQ(play(audio), 0);
    pass(2000);
    for (std::size_t i = 3; i < frames->packets.size(); ++i)
    {
        ASSERT_EQ(frames->packets[i].timestamp - frames->packets[i - 3].timestamp, 3600U);
    }
    for (std::size_t i = 1; i < audioWire->packets.size(); ++i)
    {
        ASSERT_EQ(audioWire->packets[i].timestamp - audioWire->packets[i - 1].timestamp, 160U);
    }
    EXPECT_TRUE(frames->contiguous());
    EXPECT_TRUE(audioWire->contiguous());
}

TEST_F(PlaybackPlay, EndsExactlyAtTheEndAndSendsBye)
{
    const auto frames = setUp(video);
    const auto audioWire = setUp(audio);
    ASSERT_EQ(playFrom(video, 17, 19), 0);
    ASSERT_EQ(play(audio), 0);
    pass(1995);
    EXPECT_FALSE(sentBye(*frames));
    EXPECT_FALSE(session->ended());
    pass(10);
    EXPECT_EQ(frames->units().size(), 50U);
    EXPECT_DOUBLE_EQ(secondsOf(*frames).back(), 18.96);
    EXPECT_EQ(audioWire->units().size(), 100U);
    EXPECT_TRUE(sentBye(*frames));
    EXPECT_TRUE(sentBye(*audioWire));
    EXPECT_TRUE(session->ended());
    EXPECT_EQ(pool.size(), 0U);
}

TEST_F(PlaybackPlay, PlaysAgainAfterTheEnd)
{
    const auto wire = setUp(video);
    ASSERT_EQ(playFrom(video, 19, 20), 0);
    pass(1100);
    ASSERT_TRUE(session->ended());
    ASSERT_EQ(playFrom(video, 3, 20), 0);
    EXPECT_FALSE(session->ended());
    pass(0);
    EXPECT_DOUBLE_EQ(secondsOf(*wire).back(), 3);
    EXPECT_TRUE(wire->contiguous());
    pass(17100);
    ASSERT_TRUE(session->ended());
    ASSERT_EQ(play(video), 0);
    pass(0);
    EXPECT_DOUBLE_EQ(secondsOf(*wire).back(), 0);
}

TEST_F(PlaybackPlay, PauseLosesNothingAndLeavesNoGap)
{
    const auto frames = setUp(video);
    const auto audioWire = setUp(audio);
    ASSERT_EQ(play(video), 0);
    ASSERT_EQ(play(audio), 0);
    pass(1010);
    ASSERT_EQ(session->pause(video), 0);
    ASSERT_EQ(session->pause(audio), 0);
    const auto before = frames->units().size();
    pass(60000);
    EXPECT_EQ(frames->units().size(), before);
    ASSERT_EQ(play(video), 0);
    ASSERT_EQ(play(audio), 0);
    double begin = 0;
    double end = 0;
    ASSERT_EQ(session->range(video, begin, end), 0);
    RTPPacketInfo first;
    ASSERT_EQ(session->firstPacket(video, first), 0);
    pass(1000);
    const auto seconds = secondsOf(*frames);
    ASSERT_GT(seconds.size(), before + 20);
    for (std::size_t i = 0; i < seconds.size(); ++i)
    {
        ASSERT_NEAR(seconds[i], 0.04 * static_cast<double>(i), 1e-6);
    }
    EXPECT_TRUE(frames->contiguous());
    EXPECT_TRUE(audioWire->contiguous());
    EXPECT_EQ(frames->packets[3 * before].timestamp - frames->packets[0].timestamp, before * 3600);
    EXPECT_EQ(first.sequenceNumber, frames->packets[3 * before].sequence);
    EXPECT_NEAR(begin, seconds[before], 0.021);
}

TEST_F(PlaybackPlay, NothingLeavesAfterPause)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(500);
    const auto before = wire->units().size();
    ASSERT_EQ(session->pause(video), 0);
    EXPECT_EQ(session->pause(video), 0);
    clock.advance(std::chrono::milliseconds(1000));
    runWorkers();
    EXPECT_EQ(wire->units().size(), before);
}

TEST_F(PlaybackPlay, PausesByItselfAtAPosition)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(500);
    ASSERT_EQ(session->setPausePosition(video, 2), 0);
    pass(5000);
    EXPECT_DOUBLE_EQ(secondsOf(*wire).back(), 1.96);
    EXPECT_FALSE(sentBye(*wire));
    ASSERT_EQ(play(video), 0);
    pass(0);
    EXPECT_DOUBLE_EQ(secondsOf(*wire).back(), 2);
}

TEST_F(PlaybackPlay, PlayOfAPlayingTrackChangesNothing)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(1010);
    EXPECT_EQ(play(video), 0);
    double begin = 0;
    double end = 0;
    ASSERT_EQ(session->range(video, begin, end), 0);
    EXPECT_NEAR(begin, 1.04, 1e-6);
    RTPPacketInfo next;
    ASSERT_EQ(session->firstPacket(video, next), 0);
    pass(1000);
    EXPECT_EQ(wire->units().size(), 51U);
    EXPECT_EQ(next.sequenceNumber, wire->packets[78].sequence);
    EXPECT_EQ(next.rtpTimestamp, wire->packets[78].timestamp);
}

TEST_F(PlaybackPlay, WithoutRecordedMediaThereIsNoPlay)
{
    recordings->set({});
    setUp(video);
    EXPECT_EQ(play(video), hostRangeInvalid);
    recordings->set({{at(0), at(20)}});
    EXPECT_EQ(play(video), 0);
}

TEST_F(PlaybackPlay, ATrackThatDoesNotPlayIsLeftOut)
{
    const auto frames = setUp(video);
    const auto audioWire = setUp(audio);
    ASSERT_EQ(play(video), 0);
    pass(3000);
    EXPECT_TRUE(audioWire->units().empty());
    EXPECT_GE(frames->units().size(), 70U);
    EXPECT_TRUE(frames->contiguous());
}

TEST_F(PlaybackPlay, ATrackSetUpLaterJoins)
{
    const auto frames = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(1000);
    const auto audioWire = setUp(audio);
    ASSERT_EQ(play(audio), 0);
    pass(1000);
    EXPECT_GE(audioWire->units().size(), 48U);
    EXPECT_TRUE(frames->contiguous());
}

TEST_F(PlaybackPlay, NothingIsLeftOfARemovedSession)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(100);
    bool empty = false;
    ASSERT_EQ(session->remove(video, empty), 0);
    EXPECT_TRUE(empty);
    EXPECT_TRUE(sentBye(*wire));
    const auto before = wire->units().size();
    const std::weak_ptr<PlaybackSession> gone = session;
    session.reset();
    pass(1000);
    EXPECT_TRUE(gone.expired());
    EXPECT_EQ(pool.size(), 0U);
    EXPECT_EQ(wire->units().size(), before);
}

TEST_F(PlaybackPlay, AClosedTransportEndsTheWork)
{
    setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(100);
    transports.at(video)->close();
    pass(1000);
    EXPECT_EQ(pool.size(), 0U);
    bool connected = true;
    ASSERT_EQ(session->connectionState(video, connected), 0);
    EXPECT_FALSE(connected);
}

}  // namespace
}  // namespace test
}  // namespace refhost

#include "refhost/live/LiveSessionDispatcher.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "refhost/base/HostStatus.h"
#include "tests/refhost/live/LiveFixture.h"

namespace refhost
{
namespace test
{
namespace
{

class LiveSessionDispatcherTest : public LiveFixture
{
protected:
    LiveSessionDispatcherTest()
    {
        for (const char* track : {video, audio})
        {
            info.addSubMediaInfo(trackInfo(track));
        }
    }

    /// Makes a transport for a track of a session that was initialised. \returns what its client sees
    std::shared_ptr<Wire> connect(const std::string& session, const std::string& track)
    {
        auto wire = std::make_shared<Wire>();
        EXPECT_EQ(
            0, sessions.addConnection(session, track, SafePointer<FakeTransport>(new FakeTransport(wire))));
        return wire;
    }

    std::shared_ptr<Wire> open(const std::string& session, const std::string& track = video)
    {
        if (!sessions.has(session))
        {
            EXPECT_EQ(0, sessions.initSession(session, 1, 0, info, 1364));
        }
        return connect(session, track);
    }

    MediaInfo info;
    LiveSessionDispatcher sessions{dispatcher->streams()};
};

TEST_F(LiveSessionDispatcherTest, UnknownStreamsAreRefused)
{
    EXPECT_EQ(hostStreamUnknown, sessions.initSession("s", 2, 0, info, 1364));
    EXPECT_EQ(hostStreamUnknown, sessions.initSession("s", 1, -1, info, 1364));
    EXPECT_FALSE(sessions.has("s"));
    EXPECT_EQ(0U, sessions.sessionCount());
}

TEST_F(LiveSessionDispatcherTest, UnknownSessionsAndTracksAreRefusedByEveryOperation)
{
    const auto wire = open("s");
    const SafePointer<FakeTransport> transport(new FakeTransport(wire));
    int ssrc = 7;
    RTPPacketInfo first;
    TrackStatistics statistics;
    for (const auto& [session, track] : {std::pair<std::string, std::string>{"t", video}, {"s", "trackID=9"}})
    {
        EXPECT_EQ(hostTrackUnknown, sessions.addConnection(session, track, transport));
        EXPECT_EQ(hostTrackUnknown, sessions.play(session, track));
        EXPECT_EQ(hostTrackUnknown, sessions.pause(session, track));
        EXPECT_EQ(hostTrackUnknown, sessions.remove(session, track));
        EXPECT_EQ(hostTrackUnknown, sessions.getSsrc(session, track, ssrc));
        EXPECT_FALSE(sessions.firstPacketOfPlay(session, track, first));
        EXPECT_FALSE(sessions.statistics(session, track, statistics));
    }
    EXPECT_EQ(7, ssrc);
    EXPECT_TRUE(sessions.has("s"));
}

TEST_F(LiveSessionDispatcherTest, StartsWithTheLastKeyFrameAndReportsItsFirstPacket)
{
    const auto viewer = open("early");
    ASSERT_EQ(0, sessions.play("early", video));
    ticks(gop + 3);
    const auto wire = open("s");
    ASSERT_EQ(0, sessions.play("s", video));
    RTPPacketInfo first;
    ASSERT_TRUE(sessions.firstPacketOfPlay("s", video, first));
    ASSERT_EQ(3U, wire->units().size());
    EXPECT_TRUE(wire->units().front()->keyFrame);
    EXPECT_EQ(wire->packets.front().sequence, first.sequenceNumber);
    EXPECT_EQ(wire->packets.front().timestamp, first.rtpTimestamp);
    int ssrc = 0;
    ASSERT_EQ(0, sessions.getSsrc("s", video, ssrc));
    EXPECT_EQ(wire->packets.front().ssrc, static_cast<std::uint32_t>(ssrc));
    EXPECT_NE(wire->packets.front().ssrc, viewer->packets.front().ssrc);
}

TEST_F(LiveSessionDispatcherTest, AudioStartsWithTheVideo)
{
    const auto frames = open("s", video);
    const auto audioWire = open("s", audio);
    EXPECT_EQ(0, sessions.play("s", video));
    EXPECT_EQ(0, sessions.play("s", audio));
    tickAudio();
    EXPECT_TRUE(audioWire->units().empty());
    const auto key = tickVideo();
    tickAudio();
    ASSERT_EQ(1U, frames->units().size());
    EXPECT_EQ(key, frames->units().front());
    ASSERT_FALSE(audioWire->units().empty());
    EXPECT_LE(key->captureTime, audioWire->units().front()->captureTime);
}

TEST_F(LiveSessionDispatcherTest, APauseKeepsSsrcAndSequence)
{
    const auto wire = open("s");
    sessions.play("s", video);
    ticks(3);
    ASSERT_EQ(0, sessions.pause("s", video));
    const std::size_t before = wire->packets.size();
    ticks(gop);
    EXPECT_EQ(before, wire->packets.size());
    EXPECT_EQ(0, source->viewers.load());
    ASSERT_EQ(0, sessions.play("s", video));
    ticks(gop);
    EXPECT_LT(before, wire->packets.size());
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(LiveSessionDispatcherTest, ASessionEndsWithItsLastConnectedTrack)
{
    const auto frames = open("s", video);
    const auto audioWire = open("s", audio);
    EXPECT_EQ(0, sessions.remove("s", video));
    EXPECT_TRUE(sessions.has("s"));
    EXPECT_EQ(0, sessions.remove("s", audio));
    EXPECT_FALSE(sessions.has("s"));
    EXPECT_EQ(0U, sessions.sessionCount());
    EXPECT_EQ(hostTrackUnknown, sessions.remove("s", audio));
}

TEST_F(LiveSessionDispatcherTest, ATrackThatEndedStartsAgainWhileAnotherOneKeepsTheSession)
{
    const auto audioWire = open("s", audio);
    const auto former = open("s", video);
    int before = 0;
    int after = 0;
    ASSERT_EQ(0, sessions.getSsrc("s", video, before));
    sessions.play("s", audio);
    sessions.play("s", video);
    ticks(2);
    ASSERT_EQ(0, sessions.remove("s", video));
    const auto frames = connect("s", video);
    EXPECT_EQ(0, sessions.play("s", video));
    ticks(gop);
    EXPECT_EQ(2U, former->units().size());
    EXPECT_LT(0U, frames->units().size());
    ASSERT_EQ(0, sessions.getSsrc("s", video, after));
    EXPECT_NE(before, after) << "the former sent BYE";
    EXPECT_TRUE(audioWire->contiguous());
    EXPECT_EQ(0, sessions.remove("s", video));
    EXPECT_EQ(0, sessions.remove("s", audio));
    EXPECT_EQ(0U, sessions.sessionCount());
    EXPECT_EQ(0, source->viewers.load());
}

TEST_F(LiveSessionDispatcherTest, ATrackThatEndedIsUnknownUntilItHasAConnectionAgain)
{
    const auto audioWire = open("s", audio);
    const auto frames = open("s", video);
    sessions.play("s", video);
    ticks(1);
    ASSERT_EQ(0, sessions.remove("s", video));
    int ssrc = 7;
    RTPPacketInfo first;
    TrackStatistics statistics;
    EXPECT_EQ(hostTrackUnknown, sessions.play("s", video));
    EXPECT_EQ(hostTrackUnknown, sessions.pause("s", video));
    EXPECT_EQ(hostTrackUnknown, sessions.remove("s", video));
    EXPECT_EQ(hostTrackUnknown, sessions.getSsrc("s", video, ssrc));
    EXPECT_EQ(7, ssrc);
    EXPECT_FALSE(sessions.firstPacketOfPlay("s", video, first));
    EXPECT_FALSE(sessions.statistics("s", video, statistics));
}

TEST_F(LiveSessionDispatcherTest, ATrackWithoutConnectionDoesNotKeepASession)
{
    const auto frames = open("s", video);
    sessions.play("s", video);
    EXPECT_EQ(0, sessions.remove("s", video));
    EXPECT_FALSE(sessions.has("s"));
    EXPECT_EQ(0, source->viewers.load());
}

TEST_F(LiveSessionDispatcherTest, ASessionThatGetsNoUsableConnectionEnds)
{
    struct Foreign : IConnection
    {
        Foreign() : IConnection(interleavedTcp) {}
    };
    ASSERT_EQ(0, sessions.initSession("s", 1, 0, info, 1364));
    EXPECT_EQ(hostConnectionUnusable,
              sessions.addConnection("s", video, SafePointer<IConnection>(new Foreign)));
    EXPECT_FALSE(sessions.has("s"));
}

TEST_F(LiveSessionDispatcherTest, AFailedConnectionLeavesASessionThatHasOne)
{
    const auto wire = open("s", video);
    EXPECT_EQ(hostTrackUnknown,
              sessions.addConnection("s", "trackID=9", SafePointer<FakeTransport>(new FakeTransport(wire))));
    EXPECT_TRUE(sessions.has("s"));
}

TEST_F(LiveSessionDispatcherTest, ASecondInitLeavesTheSessionAsItIs)
{
    const auto wire = open("s");
    int before = 0;
    int after = 0;
    ASSERT_EQ(0, sessions.getSsrc("s", video, before));
    EXPECT_EQ(0, sessions.initSession("s", 1, 0, info, 1364));
    ASSERT_EQ(0, sessions.getSsrc("s", video, after));
    EXPECT_EQ(before, after);
    EXPECT_EQ(1U, sessions.sessionCount());
}

TEST_F(LiveSessionDispatcherTest, AnotherConnectionGoesOnWithoutAGap)
{
    const auto first = open("group");
    sessions.play("group", video);
    ticks(3);
    const auto second = connect("group", video);
    EXPECT_EQ(0, sessions.play("group", video));
    ticks(3);
    ASSERT_EQ(3U, first->units().size());
    ASSERT_EQ(3U, second->units().size());
    EXPECT_EQ(first->packets.back().ssrc, second->packets.front().ssrc);
    EXPECT_EQ(static_cast<std::uint16_t>(first->packets.back().sequence + 1),
              second->packets.front().sequence);
    EXPECT_EQ(1, source->viewers.load());
}

TEST_F(LiveSessionDispatcherTest, JoiningViewerLearnsNextPacket)
{
    const auto first = open("group");
    sessions.play("group", video);
    ticks(3);
    const auto second = connect("group", video);
    sessions.play("group", video);
    RTPPacketInfo next;
    ASSERT_TRUE(sessions.firstPacketOfPlay("group", video, next));
    ticks(1);
    EXPECT_EQ(second->packets.front().sequence, next.sequenceNumber);
}

TEST_F(LiveSessionDispatcherTest, BothDispatchersShareTheSourcesTaps)
{
    const auto here = open("s");
    const auto there = setUp("t", video);
    sessions.play("s", video);
    play("t", video);
    ticks(2);
    EXPECT_EQ(2U, here->units().size());
    EXPECT_EQ(here->units(), there->units());
    EXPECT_EQ(1U, source->sinks(video).size());
    EXPECT_NE(here->packets.front().ssrc, there->packets.front().ssrc);
    sessions.remove("s", video);
    remove("t", video);
    EXPECT_EQ(0, source->viewers.load());
}

TEST_F(LiveSessionDispatcherTest, ABackChannelIsNotSent)
{
    SubMediaInfo back = trackInfo(audio);
    back.trackId = "trackID=2";
    back.setAudioBackInfoFlag(true);
    info.addSubMediaInfo(back);
    const auto wire = open("s");
    int ssrc = 0;
    EXPECT_EQ(hostTrackUnknown, sessions.getSsrc("s", "trackID=2", ssrc));
    EXPECT_TRUE(source->sinks("trackID=2").empty());
}

TEST_F(LiveSessionDispatcherTest, SessionsComeAndGoWhileTheSourceRuns)
{
    std::thread client(
        [this]
        {
            for (int i = 0; i < 200; ++i)
            {
                const std::string id = "s" + std::to_string(i % 7);
                const auto wire = open(id);
                sessions.play(id, video);
                sessions.remove(id, video);
                EXPECT_TRUE(wire->contiguous());
            }
        });
    for (int i = 0; i < 200; ++i)
    {
        tickVideo();
        clock.advance(std::chrono::milliseconds(1));
    }
    client.join();
    EXPECT_EQ(0U, sessions.sessionCount());
    EXPECT_EQ(0, source->viewers.load());
}

}  // namespace
}  // namespace test
}  // namespace refhost

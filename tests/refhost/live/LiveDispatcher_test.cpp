#include "refhost/live/LiveDispatcher.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "refhost/base/HostStatus.h"
#include "tests/refhost/live/LiveFixture.h"

namespace refhost
{
namespace test
{
namespace
{

using LiveDispatcherTest = LiveFixture;

TEST_F(LiveDispatcherTest, UnknownStreamsAreRefused)
{
    for (const char* key : {"1/1", "2/0", "", "1", "1/", "/0", "1/0x", "x/0", "1/0/0", "99999999999/0"})
    {
        EXPECT_EQ(hostStreamUnknown, dispatcher->initTrack(key, "s", video, trackInfo(video), 1364)) << key;
    }
    EXPECT_EQ(0U, dispatcher->trackCount());
}

TEST_F(LiveDispatcherTest, UnknownTracksAreRefusedByEveryOperation)
{
    const auto wire = setUp("s", video);
    int ssrc = 7;
    RTPPacketInfo info;
    for (const auto& [key, session, track] : std::vector<std::tuple<std::string, std::string, std::string>>{
             {"1/1", "s", video}, {"1/0", "t", video}, {"1/0", "s", audio}})
    {
        EXPECT_EQ(hostTrackUnknown, dispatcher->addConnection(key, session, track, transport("s", video)));
        EXPECT_EQ(hostTrackUnknown, dispatcher->play(key, session, track));
        EXPECT_EQ(hostTrackUnknown, dispatcher->pause(key, session, track));
        EXPECT_EQ(hostTrackUnknown, dispatcher->remove(key, session, track));
        EXPECT_EQ(hostTrackUnknown, dispatcher->getSsrc(key, session, track, ssrc));
    }
    EXPECT_EQ(7, ssrc);
    EXPECT_FALSE(dispatcher->firstPacketOfPlay("t", video, info));
    EXPECT_FALSE(dispatcher->firstPacketOfPlay("s", audio, info));
    EXPECT_EQ(1U, dispatcher->trackCount());
}

TEST_F(LiveDispatcherTest, PlayNeedsAnOpenConnection)
{
    EXPECT_EQ(0, dispatcher->initTrack(stream, "s", video, trackInfo(video), 1364));
    EXPECT_EQ(hostConnectionUnusable, play("s", video));
    const auto wire = setUp("s", video);
    transport("s", video)->close();
    EXPECT_EQ(hostConnectionUnusable, play("s", video));
    EXPECT_EQ(0, source->acquired.load());
}

TEST_F(LiveDispatcherTest, ForeignConnectionsAreRefused)
{
    struct Foreign : IConnection
    {
        Foreign() : IConnection(interleavedTcp) {}
    };
    EXPECT_EQ(0, dispatcher->initTrack(stream, "s", video, trackInfo(video), 1364));
    EXPECT_EQ(hostConnectionUnusable,
              dispatcher->addConnection(stream, "s", video, SafePointer<IConnection>(new Foreign)));
}

TEST_F(LiveDispatcherTest, PlayFailsWhenTheSourceIsGone)
{
    const auto wire = setUp("s", video);
    Device::setStreams(nullptr);
    source.reset();
    EXPECT_EQ(hostStreamFailed, play("s", video));
    EXPECT_EQ(0, remove("s", video));
}

TEST_F(LiveDispatcherTest, StartsWithTheLastKeyFrameAndGoesOnToTheHead)
{
    setUp("first", video);
    ticks(30);
    const auto wire = setUp("s", video);
    EXPECT_EQ(0, play("s", video));
    const auto units = wire->units();
    ASSERT_EQ(5U, units.size());
    EXPECT_TRUE(units.front()->keyFrame);
    tick();
    EXPECT_EQ(6U, wire->units().size());
    EXPECT_TRUE(wire->contiguous());
    EXPECT_EQ(0, source->keyRequests.load());
}

TEST_F(LiveDispatcherTest, WaitsForAKeyFrameAndAsksForItWhenThereIsNone)
{
    const auto wire = setUp("s", video);
    frame = 3;
    ticks(2);
    EXPECT_EQ(0, play("s", video));
    EXPECT_EQ(1, source->keyRequests.load());
    ticks(2);
    EXPECT_TRUE(wire->packets.empty());
    frame = gop;
    tick();
    ASSERT_EQ(1U, wire->units().size());
    EXPECT_TRUE(wire->units().front()->keyFrame);
}

TEST_F(LiveDispatcherTest, WithAStartAtAKeyFrameEachOneAsksForANewKeyFrame)
{
    settings.start.mode = LiveStart::Mode::keyFrame;
    make();
    const auto wire = setUp("s", video);
    ticks(3);
    play("s", video);
    EXPECT_EQ(1, source->keyRequests.load());
    tick();
    EXPECT_TRUE(wire->packets.empty());
    frame = gop;
    tick();
    ASSERT_EQ(1U, wire->units().size());
    const auto other = setUp("t", video);
    play("t", video);
    EXPECT_EQ(2, source->keyRequests.load());
}

TEST_F(LiveDispatcherTest, HeadersAreTheSessionsOwn)
{
    const auto wire = setUp("s", video);
    const auto other = setUp("t", video);
    play("s", video);
    play("t", video);
    ticks(2);
    int ssrc = 0;
    EXPECT_EQ(0, dispatcher->getSsrc(stream, "s", video, ssrc));
    for (const SentPacket& packet : wire->packets)
    {
        EXPECT_EQ(static_cast<std::uint32_t>(ssrc), packet.ssrc);
        EXPECT_EQ(96, packet.payloadType);
    }
    EXPECT_NE(wire->packets.front().ssrc, other->packets.front().ssrc);
    EXPECT_NE(std::make_pair(wire->packets.front().sequence, wire->packets.front().timestamp),
              std::make_pair(other->packets.front().sequence, other->packets.front().timestamp));
}

TEST_F(LiveDispatcherTest, SequenceGoesOnOverAPause)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    EXPECT_EQ(0, pause("s", video));
    const std::size_t before = wire->packets.size();
    ticks(30);
    EXPECT_EQ(before, wire->packets.size());
    play("s", video);
    ticks(3);
    ASSERT_GT(wire->packets.size(), before);
    EXPECT_TRUE(wire->packets[before].unit->keyFrame);
    EXPECT_TRUE(wire->contiguous());
    // Same mapping: timestamps are as far apart as in the source.
    EXPECT_EQ(25U * 3600U, wire->packets[before].timestamp - wire->packets[0].timestamp);
    EXPECT_EQ(wire->packets[before].ssrc, wire->packets[0].ssrc);
}

TEST_F(LiveDispatcherTest, AShortPauseEndsWithTheNextKeyFrame)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    pause("s", video);
    ticks(2);
    const std::size_t before = wire->packets.size();
    source->keyRequests = 0;
    play("s", video);
    EXPECT_EQ(1, source->keyRequests.load());
    ticks(5);
    EXPECT_EQ(before, wire->packets.size());
    frame = gop;
    tick();
    EXPECT_GT(wire->packets.size(), before);
    EXPECT_TRUE(wire->packets[before].unit->keyFrame);
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(LiveDispatcherTest, PlayOfAPlayingTrackGoesOn)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(3);
    EXPECT_EQ(0, play("s", video));
    ticks(3);
    EXPECT_EQ(6U, wire->units().size());
    EXPECT_EQ(1, source->viewers.load());
    EXPECT_EQ(0, pause("s", video));
    EXPECT_EQ(0, source->viewers.load());
}

TEST_F(LiveDispatcherTest, ViewersAreCountedExactlyOnce)
{
    const auto wire = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    EXPECT_EQ(0, source->viewers.load());
    play("s", video);
    play("s", audio);
    play("s", video);
    EXPECT_EQ(2, source->viewers.load());
    pause("s", video);
    pause("s", video);
    EXPECT_EQ(1, source->viewers.load());
    remove("s", video);
    EXPECT_EQ(1, source->viewers.load());
    remove("s", audio);
    EXPECT_EQ(0, source->viewers.load());
    EXPECT_EQ(hostTrackUnknown, remove("s", audio));
    EXPECT_EQ(0, source->viewers.load());
    EXPECT_EQ(0U, dispatcher->trackCount());
}

TEST_F(LiveDispatcherTest, OnlyPlayingTracksSitInTheFanOut)
{
    setUp("s", video);
    setUp("t", video);
    const auto track = std::dynamic_pointer_cast<LiveTrack>(source->sinks(video).front());
    EXPECT_EQ(0U, track->viewers());
    play("s", video);
    play("s", video);
    play("t", video);
    EXPECT_EQ(2U, track->viewers());
    pause("s", video);
    EXPECT_EQ(1U, track->viewers());
    play("s", video);
    remove("s", video);
    remove("t", video);
    EXPECT_EQ(0U, track->viewers());
}

TEST_F(LiveDispatcherTest, InitReplacesTheTrackWithTheSameKeys)
{
    const auto former = setUp("s", video);
    play("s", video);
    ticks(2);
    const auto wire = setUp("s", video);
    EXPECT_EQ(0, source->viewers.load());
    EXPECT_EQ(1U, dispatcher->trackCount());
    play("s", video);
    const std::size_t before = former->packets.size();
    ticks(2);
    EXPECT_EQ(before, former->packets.size());
    EXPECT_NE(former->packets.front().ssrc, wire->packets.front().ssrc);
    EXPECT_EQ(0, remove("s", video));
    EXPECT_EQ(0U, dispatcher->trackCount());
}

TEST_F(LiveDispatcherTest, TapsStayForTheNextViewer)
{
    setUp("s", video);
    play("s", video);
    ticks(3);
    remove("s", video);
    EXPECT_EQ(0, source->detached.load());
    ticks(2);
    const auto wire = setUp("t", video);
    play("t", video);
    EXPECT_EQ(5U, wire->units().size());
    EXPECT_EQ(1, source->attached.load());
}

TEST_F(LiveDispatcherTest, OneIdleTapOfATrackStaysAttached)
{
    EXPECT_EQ(0, dispatcher->initTrack(stream, "s", video, trackInfo(video), 1364));
    EXPECT_EQ(0, dispatcher->initTrack(stream, "t", video, trackInfo(video), 1000));
    EXPECT_EQ(2, source->attached.load());
    remove("s", video);
    EXPECT_EQ(0, source->detached.load());
    remove("t", video);
    EXPECT_EQ(1, source->detached.load());
    ASSERT_EQ(1U, source->sinks(video).size());
}

TEST_F(LiveDispatcherTest, NothingLeavesAfterRemoveButTheBye)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(3);
    remove("s", video);
    const std::size_t packets = wire->packets.size();
    ASSERT_FALSE(wire->rtcp.empty());
    const std::vector<std::uint8_t> last = wire->rtcp.back();
    ASSERT_GE(last.size(), 8U);
    EXPECT_EQ(203, last[last.size() - 7]);
    const std::size_t reports = wire->rtcp.size();
    ticks(30);
    wire->ready();
    EXPECT_EQ(packets, wire->packets.size());
    EXPECT_EQ(reports, wire->rtcp.size());
    EXPECT_TRUE(wire->listener.expired());
}

TEST_F(LiveDispatcherTest, HeldTracksStartAtTheReleaseWithWhatIsNewThen)
{
    setUp("first", video);
    ticks(gop - 1);
    const auto wire = setUp("s", video);
    transport("s", video)->hold();
    play("s", video);
    EXPECT_TRUE(wire->packets.empty());
    ticks(3);
    EXPECT_TRUE(wire->packets.empty());
    transport("s", video)->release();
    EXPECT_EQ(2U, wire->units().size());
    EXPECT_TRUE(wire->units().front()->keyFrame);
}

TEST_F(LiveDispatcherTest, PacedTransportsCatchUpAFewUnitsAtATime)
{
    setUp("first", video);
    ticks(20);
    const auto wire = setUp("s", video, 4);
    play("s", video);
    EXPECT_EQ(1U, wire->units().size());
    tick();
    EXPECT_EQ(5U, wire->units().size());
    ticks(4);
    EXPECT_EQ(21U, wire->units().size());
    // A key frame that arrives meanwhile does not end the catch-up.
    ticks(3);
    EXPECT_EQ(28U, wire->units().size());
    EXPECT_EQ(0U, statistics("s", video).unitsSkipped);
    EXPECT_TRUE(wire->contiguous());
}

}  // namespace
}  // namespace test
}  // namespace refhost

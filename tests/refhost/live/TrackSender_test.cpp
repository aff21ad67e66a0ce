#include "refhost/live/TrackSender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/live/TrackSenderFixture.h"

namespace refhost
{
namespace test
{
namespace
{

// ---- The first packet

TEST_F(TrackSenderTest, RtpInfoNamesTheCachedKeyFrame)
{
    setUp("first", video);
    ticks(12);
    const auto wire = setUp("s", video);
    transport("s", video)->hold();
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    ticks(20);  // a newer key frame arrives before the response is sent
    transport("s", video)->release();
    expectFirst(info, wire->packets.front());
    EXPECT_TRUE(wire->contiguous());
    EXPECT_TRUE(ascending(*wire));
}

TEST_F(TrackSenderTest, RtpInfoNamesAFuturePacket)
{
    const auto wire = setUp("s", video);
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    EXPECT_TRUE(wire->packets.empty());
    clock.advance(std::chrono::milliseconds(900));
    tick();
    expectFirst(info, wire->packets.front());
    const RTPPacketInfo again = rtpInfo("s", video);
    expectFirst(again, wire->packets.front());
}

TEST_F(TrackSenderTest, RtpInfoAfterAPauseKeepsTheMapping)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    const SentPacket before = wire->packets.front();
    pause("s", video);
    ticks(20);
    const std::size_t sent = wire->packets.size();
    transport("s", video)->hold();
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    transport("s", video)->release();
    expectFirst(info, wire->packets[sent]);
    EXPECT_EQ(before.timestamp + 25 * 3600, info.rtpTimestamp);
}

TEST_F(TrackSenderTest, RtpInfoAfterAPauseIsKeptWhereTheKeyFrameComesLater)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    pause("s", video);
    ticks(5);
    const std::size_t sent = wire->packets.size();
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    ticks(20);
    ASSERT_GT(wire->packets.size(), sent);
    EXPECT_TRUE(wire->packets[sent].unit->keyFrame);
    expectFirst(info, wire->packets[sent]);
    EXPECT_TRUE(ascending(*wire));
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(TrackSenderTest, RtpInfoAfterARestartOfTheSourceDuringAPause)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    const std::uint32_t last = wire->packets.back().timestamp;
    pause("s", video);
    restartSource();
    clock.advance(std::chrono::milliseconds(60000));
    ticks(3);
    const std::size_t sent = wire->packets.size();
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    expectFirst(info, wire->packets[sent]);
    // The key frame was taken 60.04 seconds after the last one sent.
    EXPECT_EQ(last + 5'403'600, info.rtpTimestamp);
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(TrackSenderTest, RtpInfoOfPlayWhilePlayingNamesTheNextPacket)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    clock.advance(std::chrono::milliseconds(40));
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    EXPECT_EQ(static_cast<std::uint16_t>(wire->packets.back().sequence + 1), info.sequenceNumber);
    EXPECT_EQ(wire->packets.back().timestamp + 3600, info.rtpTimestamp);
}

TEST_F(TrackSenderTest, RtpInfoBeforePlayIsRefused)
{
    setUp("s", video);
    RTPPacketInfo info;
    EXPECT_FALSE(dispatcher->firstPacketOfPlay("s", video, info));
}

// ---- Audio with its frame

TEST_F(TrackSenderTest, AudioStartsAtTheKeyFrameWhicheverIsPlayedFirst)
{
    setUp("first", video);
    setUp("first", audio);
    ticks(40);
    int number = 0;
    for (const bool audioFirst : {false, true})
    {
        for (const bool asked : {false, true})
        {
            const std::string session = "s" + std::to_string(++number);
            const auto frames = setUp(session, video);
            const auto audioWire = setUp(session, audio);
            hold(session);
            play(session, audioFirst ? audio : video);
            tick();
            play(session, audioFirst ? video : audio);
            if (asked)
            {
                const RTPPacketInfo audioInfo = rtpInfo(session, audio);
                const RTPPacketInfo frameInfo = rtpInfo(session, video);
                release(session);
                expectFirst(audioInfo, audioWire->packets.front());
                expectFirst(frameInfo, frames->packets.front());
            }
            else
            {
                release(session);
            }
            const AccessUnitPtr key = frames->units().front();
            EXPECT_TRUE(key->keyFrame);
            EXPECT_EQ(key->captureTime, audioWire->units().front()->captureTime);
            EXPECT_TRUE(audioWire->contiguous());
            remove(session, video);
            remove(session, audio);
        }
    }
}

TEST_F(TrackSenderTest, AudioAskedFirstKeepsItsMappingOverAPause)
{
    const auto frames = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    hold("s");
    play("s", video);
    play("s", audio);
    release("s");
    ticks(10);
    const SentPacket before = audioWire->packets.front();
    pause("s", video);
    pause("s", audio);
    ticks(20);
    const std::size_t sent = audioWire->packets.size();
    hold("s");
    play("s", video);
    play("s", audio);
    const RTPPacketInfo info = rtpInfo("s", audio);
    release("s");
    const SentPacket& after = audioWire->packets[sent];
    expectFirst(info, after);
    EXPECT_EQ(after.unit->rtpTimestamp - before.unit->rtpTimestamp, after.timestamp - before.timestamp);
}

TEST_F(TrackSenderTest, AudioWaitsForAFrameThatIsStillToCome)
{
    const auto frames = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    hold("s");
    frame = 5;
    ticks(3);
    play("s", audio);
    play("s", video);
    const RTPPacketInfo audioInfo = rtpInfo("s", audio);
    const RTPPacketInfo frameInfo = rtpInfo("s", video);
    release("s");
    ticks(5);
    EXPECT_TRUE(audioWire->packets.empty());
    frame = gop;
    tick();
    ASSERT_FALSE(frames->packets.empty());
    tick();
    ASSERT_FALSE(audioWire->packets.empty());
    expectFirst(audioInfo, audioWire->packets.front());
    expectFirst(frameInfo, frames->packets.front());
    EXPECT_EQ(frames->units().front()->captureTime, audioWire->units().front()->captureTime);
}

TEST_F(TrackSenderTest, AudioDoesNotWaitForEverForAFrame)
{
    setUp("s", video);
    const auto audioWire = setUp("s", audio);
    play("s", video);
    play("s", audio);
    for (int i = 0; i < 240; ++i)
    {
        tickAudio();
    }
    EXPECT_TRUE(audioWire->packets.empty());
    for (int i = 0; i < 20; ++i)
    {
        tickAudio();
    }
    EXPECT_FALSE(audioWire->packets.empty());
}

TEST_F(TrackSenderTest, AudioAloneStartsWithTheNewestBlock)
{
    setUp("first", audio);
    ticks(10);
    const auto audioWire = setUp("s", audio);
    play("s", audio);
    ASSERT_EQ(1U, audioWire->units().size());
    EXPECT_EQ(nsOf(clock.now()), nsOf(audioWire->units().front()->captureTime));
    EXPECT_EQ(0, source->keyRequests.load());
}

TEST_F(TrackSenderTest, AudioThatJoinsRunningVideoStartsWhereItIs)
{
    const auto frames = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    play("s", video);
    ticks(60);
    play("s", audio);
    ASSERT_FALSE(audioWire->packets.empty());
    EXPECT_EQ(frames->units().back()->captureTime, audioWire->units().front()->captureTime);
}

TEST_F(TrackSenderTest, AudioKeepsWhatLongGopsNeed)
{
    setUp("first", video);
    setUp("first", audio);
    tick();
    for (std::uint32_t i = 1; i < 200; ++i)  // a single GOP of eight seconds
    {
        tickAudio();
        tickAudio();
        source->feed(video, makeUnit(videoBase + i * 3600U, nsOf(clock.now()), false, 1));
    }
    const auto frames = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    hold("s");
    play("s", video);
    play("s", audio);
    release("s");
    EXPECT_EQ(200U, frames->units().size());
    EXPECT_EQ(frames->units().front()->captureTime, audioWire->units().front()->captureTime);
}

// ---- Audio that is sent with the frame

class AudioJoiningTest : public TrackSenderTest
{
protected:
    /// Starts a session on a transport that joins units, both tracks at the head.
    void begin()
    {
        frames = setUp("s", video);
        audioWire = setUp("s", audio);
        frames->traits.joinsUnits = true;
        audioWire->traits.joinsUnits = true;
        hold("s");
        play("s", video);
        play("s", audio);
        release("s");
        ticks(2);
        frames->packets.clear();
        audioWire->packets.clear();
    }

    std::shared_ptr<Wire> frames;
    std::shared_ptr<Wire> audioWire;
};

TEST_F(AudioJoiningTest, AudioGoesInFrontOfTheFrameThatFollows)
{
    begin();
    tickAudio();
    tickAudio();
    EXPECT_TRUE(audioWire->packets.empty());
    tickVideo();
    ASSERT_EQ(2U, audioWire->packets.size());
    EXPECT_TRUE(audioWire->packets[0].more);
    EXPECT_TRUE(audioWire->packets[1].more);
    ASSERT_FALSE(frames->packets.empty());
    EXPECT_FALSE(frames->packets.back().more);
    EXPECT_TRUE(audioWire->contiguous());
}

TEST_F(AudioJoiningTest, AudioWaitsForALateFrameOnlyUpToTheLimit)
{
    begin();
    tickAudio();
    tickAudio();
    EXPECT_TRUE(audioWire->packets.empty());
    tickAudio();  // the first of the three waits for 40 ms now
    ASSERT_EQ(3U, audioWire->packets.size());
    EXPECT_TRUE(audioWire->packets[0].more);
    EXPECT_FALSE(audioWire->packets[2].more);
    tickAudio();
    EXPECT_EQ(3U, audioWire->packets.size());
}

TEST_F(AudioJoiningTest, AudioDoesNotWaitForAFrameThatIsStuckOrPaused)
{
    begin();
    frames->capacity = 0;
    tickVideo();
    tickAudio();
    EXPECT_EQ(1U, audioWire->packets.size());
    frames->capacity = SIZE_MAX;
    frames->ready();
    pause("s", video);
    tickAudio();
    EXPECT_EQ(2U, audioWire->packets.size());
}

TEST_F(AudioJoiningTest, AudioDoesNotWaitWhereItSavesNothing)
{
    begin();
    frames->traits.joinsUnits = false;
    audioWire->traits.joinsUnits = false;
    tickAudio();
    ASSERT_EQ(1U, audioWire->packets.size());
    EXPECT_FALSE(audioWire->packets[0].more);
}

TEST_F(AudioJoiningTest, UnitsThatCatchUpAreJoinedUpToTheLast)
{
    begin();
    ticks(20);
    const auto wire = setUp("t", video);
    wire->traits.joinsUnits = true;
    play("t", video);
    const auto& packets = wire->packets;
    ASSERT_GT(packets.size(), 3U);
    for (const SentPacket& packet : packets)
    {
        EXPECT_EQ(packet.unit != packets.back().unit, packet.more);
    }
}

TEST_F(AudioJoiningTest, UnpacedTransportCatchesUpInOneRunWithTheNextUnit)
{
    begin();
    ticks(20);
    const auto wire = setUp("t", video, std::numeric_limits<unsigned>::max());
    wire->traits.joinsUnits = true;
    play("t", video);
    EXPECT_EQ(1U, wire->units().size());
    const std::size_t ofTheKeyFrame = wire->packets.size();
    tick();
    EXPECT_EQ(23U, wire->units().size());
    for (std::size_t i = ofTheKeyFrame; i < wire->packets.size(); ++i)
    {
        const SentPacket& packet = wire->packets[i];
        EXPECT_EQ(packet.unit != wire->packets.back().unit, packet.more);
    }
}

// ---- Restart of the source

TEST_F(TrackSenderTest, TimestampsGoOnByTheElapsedTimeOverARestartOfTheSource)
{
    const auto frames = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    hold("s");
    play("s", video);
    play("s", audio);
    release("s");
    ticks(7);
    const SentPacket lastFrame = frames->packets.back();
    const SentPacket lastAudio = audioWire->packets.back();
    const std::size_t sentFrames = frames->packets.size();
    const std::size_t sentAudio = audioWire->packets.size();
    restartSource();
    clock.advance(std::chrono::milliseconds(2000));
    tick();
    EXPECT_EQ(lastFrame.timestamp + 90 * 2040, frames->packets[sentFrames].timestamp);
    EXPECT_EQ(lastAudio.timestamp + 8 * 2020, audioWire->packets[sentAudio].timestamp);
    ticks(3);
    EXPECT_EQ(lastFrame.timestamp + 90 * 2160, frames->packets.back().timestamp);
    EXPECT_TRUE(frames->contiguous());
    EXPECT_TRUE(audioWire->contiguous());
}

TEST_F(TrackSenderTest, NewViewersGetNothingFromBeforeARestart)
{
    setUp("first", video);
    ticks(7);
    source->breakOff();
    const auto wire = setUp("s", video);
    play("s", video);
    EXPECT_TRUE(wire->packets.empty());
    EXPECT_EQ(1, source->keyRequests.load());
}

TEST_F(TrackSenderTest, AfterARestartFramesWaitForAKeyFrame)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(3);
    source->breakOff();
    ticks(3);
    EXPECT_EQ(3U, wire->units().size());
    frame = gop;
    tick();
    ASSERT_EQ(4U, wire->units().size());
    EXPECT_TRUE(wire->units().back()->keyFrame);
}

}  // namespace
}  // namespace test
}  // namespace refhost

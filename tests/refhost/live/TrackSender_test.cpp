#include "refhost/live/TrackSender.h"

#include <gst/rtp/gstrtcpbuffer.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/refhost/live/LiveFixture.h"

namespace refhost
{
namespace test
{
namespace
{

/// The sender report at the head of a compound packet, and the name behind it.
struct ReadReport
{
    explicit ReadReport(const std::vector<std::uint8_t>& packet)
    {
        GstBuffer* buffer = gst_buffer_new_memdup(packet.data(), packet.size());
        GstRTCPBuffer rtcp = GST_RTCP_BUFFER_INIT;
        gst_rtcp_buffer_map(buffer, GST_MAP_READ, &rtcp);
        GstRTCPPacket part;
        EXPECT_TRUE(gst_rtcp_buffer_get_first_packet(&rtcp, &part));
        gst_rtcp_packet_sr_get_sender_info(&part, &ssrc, &ntp, &timestamp, &packets, &octets);
        EXPECT_TRUE(gst_rtcp_packet_move_to_next(&part));
        GstRTCPSDESType type = GST_RTCP_SDES_INVALID;
        guint8 length = 0;
        guint8* text = nullptr;
        EXPECT_TRUE(gst_rtcp_packet_sdes_get_entry(&part, &type, &length, &text));
        name.assign(reinterpret_cast<const char*>(text), length);
        gst_rtcp_buffer_unmap(&rtcp);
        gst_buffer_unref(buffer);
    }

    std::int64_t wallMs() const
    {
        const std::uint64_t ms = ((ntp & 0xffffffffU) * 1000 + (1ULL << 31U)) >> 32U;
        return (static_cast<std::int64_t>(ntp >> 32U) - 2'208'988'800) * 1000 + static_cast<std::int64_t>(ms);
    }

    guint32 ssrc = 0;
    guint64 ntp = 0;
    guint32 timestamp = 0;
    guint32 packets = 0;
    guint32 octets = 0;
    std::string name;
};

class TrackSenderTest : public LiveFixture
{
protected:
    static void SetUpTestSuite()
    {
        gst_init(nullptr, nullptr);
    }

    void hold(const std::string& session)
    {
        transport(session, video)->hold();
        transport(session, audio)->hold();
    }

    void release(const std::string& session)
    {
        transport(session, video)->release();
        transport(session, audio)->release();
    }

    static void expectFirst(const RTPPacketInfo& info, const SentPacket& packet)
    {
        EXPECT_EQ(info.sequenceNumber, packet.sequence);
        EXPECT_EQ(info.rtpTimestamp, packet.timestamp);
    }

    static bool ascending(const Wire& wire)
    {
        return std::is_sorted(wire.packets.begin(), wire.packets.end(),
                              [](const SentPacket& left, const SentPacket& right)
                              { return static_cast<std::int32_t>(left.timestamp - right.timestamp) < 0; });
    }
};

// ---- The first packet

TEST_F(TrackSenderTest, RtpInfoNamesTheCachedKeyPicture)
{
    setUp("first", video);
    ticks(12);
    const auto wire = setUp("s", video);
    transport("s", video)->hold();
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    ticks(20);  // a newer key picture comes before the answer is out
    transport("s", video)->release();
    expectFirst(info, wire->packets.front());
    EXPECT_TRUE(wire->contiguous());
    EXPECT_TRUE(ascending(*wire));
}

TEST_F(TrackSenderTest, RtpInfoNamesAPacketThatDoesNotExistYet)
{
    const auto wire = setUp("s", video);
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    EXPECT_TRUE(wire->packets.empty());
    clock.advanceMs(900);
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

TEST_F(TrackSenderTest, RtpInfoAfterAPauseIsKeptWhereTheKeyPictureComesLater)
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
    clock.advanceMs(60000);
    ticks(3);
    const std::size_t sent = wire->packets.size();
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    expectFirst(info, wire->packets[sent]);
    // The key picture was taken 60.04 seconds after the last one sent.
    EXPECT_EQ(last + 5'403'600, info.rtpTimestamp);
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(TrackSenderTest, RtpInfoOfPlayWhilePlayingNamesTheNextPacket)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    clock.advanceMs(40);
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

// ---- Sound with its picture

TEST_F(TrackSenderTest, SoundStartsAtTheKeyPictureWhicheverIsPlayedFirst)
{
    setUp("first", video);
    setUp("first", audio);
    ticks(40);
    int number = 0;
    for (const bool soundFirst : {false, true})
    {
        for (const bool asked : {false, true})
        {
            const std::string session = "s" + std::to_string(++number);
            const auto pictures = setUp(session, video);
            const auto sound = setUp(session, audio);
            hold(session);
            play(session, soundFirst ? audio : video);
            tick();
            play(session, soundFirst ? video : audio);
            if (asked)
            {
                const RTPPacketInfo soundInfo = rtpInfo(session, audio);
                const RTPPacketInfo pictureInfo = rtpInfo(session, video);
                release(session);
                expectFirst(soundInfo, sound->packets.front());
                expectFirst(pictureInfo, pictures->packets.front());
            }
            else
            {
                release(session);
            }
            const AccessUnitPtr key = pictures->units().front();
            EXPECT_TRUE(key->keyFrame);
            EXPECT_EQ(key->captureTimeNs, sound->units().front()->captureTimeNs);
            EXPECT_TRUE(sound->contiguous());
            remove(session, video);
            remove(session, audio);
        }
    }
}

TEST_F(TrackSenderTest, SoundAskedFirstKeepsItsMappingOverAPause)
{
    const auto pictures = setUp("s", video);
    const auto sound = setUp("s", audio);
    hold("s");
    play("s", video);
    play("s", audio);
    release("s");
    ticks(10);
    const SentPacket before = sound->packets.front();
    pause("s", video);
    pause("s", audio);
    ticks(20);
    const std::size_t sent = sound->packets.size();
    hold("s");
    play("s", video);
    play("s", audio);
    const RTPPacketInfo info = rtpInfo("s", audio);
    release("s");
    const SentPacket& after = sound->packets[sent];
    expectFirst(info, after);
    EXPECT_EQ(after.unit->rtpTimestamp - before.unit->rtpTimestamp, after.timestamp - before.timestamp);
}

TEST_F(TrackSenderTest, SoundWaitsForAPictureThatIsStillToCome)
{
    const auto pictures = setUp("s", video);
    const auto sound = setUp("s", audio);
    hold("s");
    picture = 5;
    ticks(3);
    play("s", audio);
    play("s", video);
    const RTPPacketInfo soundInfo = rtpInfo("s", audio);
    const RTPPacketInfo pictureInfo = rtpInfo("s", video);
    release("s");
    ticks(5);
    EXPECT_TRUE(sound->packets.empty());
    picture = gop;
    tick();
    ASSERT_FALSE(pictures->packets.empty());
    tick();
    ASSERT_FALSE(sound->packets.empty());
    expectFirst(soundInfo, sound->packets.front());
    expectFirst(pictureInfo, pictures->packets.front());
    EXPECT_EQ(pictures->units().front()->captureTimeNs, sound->units().front()->captureTimeNs);
}

TEST_F(TrackSenderTest, SoundDoesNotWaitForEverForAPicture)
{
    setUp("s", video);
    const auto sound = setUp("s", audio);
    play("s", video);
    play("s", audio);
    for (int i = 0; i < 240; ++i)
    {
        tickAudio();
    }
    EXPECT_TRUE(sound->packets.empty());
    for (int i = 0; i < 20; ++i)
    {
        tickAudio();
    }
    EXPECT_FALSE(sound->packets.empty());
}

TEST_F(TrackSenderTest, SoundAloneStartsWithTheNewestBlock)
{
    setUp("first", audio);
    ticks(10);
    const auto sound = setUp("s", audio);
    play("s", audio);
    ASSERT_EQ(1U, sound->units().size());
    EXPECT_EQ(clock.wallNs(), sound->units().front()->captureTimeNs);
    EXPECT_EQ(0, source->keyRequests.load());
}

TEST_F(TrackSenderTest, SoundThatJoinsARunningPictureStartsWhereItIs)
{
    const auto pictures = setUp("s", video);
    const auto sound = setUp("s", audio);
    play("s", video);
    ticks(60);
    play("s", audio);
    ASSERT_FALSE(sound->packets.empty());
    EXPECT_EQ(pictures->units().back()->captureTimeNs, sound->units().front()->captureTimeNs);
}

TEST_F(TrackSenderTest, SoundKeepsWhatLongGroupsOfPicturesNeed)
{
    setUp("first", video);
    setUp("first", audio);
    tick();
    for (std::uint32_t i = 1; i < 200; ++i)  // a single group of eight seconds
    {
        tickAudio();
        tickAudio();
        source->feed(video, makeUnit(videoBase + i * 3600U, clock.wallNs(), false, 1));
    }
    const auto pictures = setUp("s", video);
    const auto sound = setUp("s", audio);
    hold("s");
    play("s", video);
    play("s", audio);
    release("s");
    EXPECT_EQ(200U, pictures->units().size());
    EXPECT_EQ(pictures->units().front()->captureTimeNs, sound->units().front()->captureTimeNs);
}

// ---- Sound that travels with the picture

class SoundRideTest : public TrackSenderTest
{
protected:
    /// Starts a session whose way joins units, both tracks up to date.
    void begin()
    {
        pictures = setUp("s", video);
        sound = setUp("s", audio);
        pictures->joins = true;
        sound->joins = true;
        hold("s");
        play("s", video);
        play("s", audio);
        release("s");
        ticks(2);
        pictures->packets.clear();
        sound->packets.clear();
    }

    std::shared_ptr<Wire> pictures;
    std::shared_ptr<Wire> sound;
};

TEST_F(SoundRideTest, SoundGoesInFrontOfThePictureThatFollows)
{
    begin();
    tickAudio();
    tickAudio();
    EXPECT_TRUE(sound->packets.empty());
    tickVideo();
    ASSERT_EQ(2U, sound->packets.size());
    EXPECT_TRUE(sound->packets[0].more);
    EXPECT_TRUE(sound->packets[1].more);
    ASSERT_FALSE(pictures->packets.empty());
    EXPECT_FALSE(pictures->packets.back().more);
    EXPECT_TRUE(sound->contiguous());
}

TEST_F(SoundRideTest, SoundDoesNotWaitLongerThanToldForALatePicture)
{
    begin();
    tickAudio();
    tickAudio();
    EXPECT_TRUE(sound->packets.empty());
    tickAudio();  // the first of the three waits for 40 ms now
    ASSERT_EQ(3U, sound->packets.size());
    EXPECT_TRUE(sound->packets[0].more);
    EXPECT_FALSE(sound->packets[2].more);
    tickAudio();
    EXPECT_EQ(3U, sound->packets.size());
}

TEST_F(SoundRideTest, SoundDoesNotWaitForAPictureThatIsStuckOrPaused)
{
    begin();
    pictures->capacity = 0;
    tickVideo();
    tickAudio();
    EXPECT_EQ(1U, sound->packets.size());
    pictures->capacity = SIZE_MAX;
    pictures->ready();
    pause("s", video);
    tickAudio();
    EXPECT_EQ(2U, sound->packets.size());
}

TEST_F(SoundRideTest, SoundDoesNotWaitWhereItSavesNothing)
{
    begin();
    pictures->joins = false;
    sound->joins = false;
    tickAudio();
    ASSERT_EQ(1U, sound->packets.size());
    EXPECT_FALSE(sound->packets[0].more);
}

TEST_F(SoundRideTest, UnitsThatCatchUpAreJoinedUpToTheLast)
{
    begin();
    ticks(20);
    const auto wire = setUp("t", video);
    wire->joins = true;
    play("t", video);
    const auto& packets = wire->packets;
    ASSERT_GT(packets.size(), 3U);
    for (const SentPacket& packet : packets)
    {
        EXPECT_EQ(packet.unit != packets.back().unit, packet.more);
    }
}

// ---- Restart of the source

TEST_F(TrackSenderTest, TimestampsGoOnByTheElapsedTimeOverARestartOfTheSource)
{
    const auto pictures = setUp("s", video);
    const auto sound = setUp("s", audio);
    hold("s");
    play("s", video);
    play("s", audio);
    release("s");
    ticks(7);
    const SentPacket lastPicture = pictures->packets.back();
    const SentPacket lastSound = sound->packets.back();
    const std::size_t sentPictures = pictures->packets.size();
    const std::size_t sentSound = sound->packets.size();
    restartSource();
    clock.advanceMs(2000);
    tick();
    EXPECT_EQ(lastPicture.timestamp + 90 * 2040, pictures->packets[sentPictures].timestamp);
    EXPECT_EQ(lastSound.timestamp + 8 * 2020, sound->packets[sentSound].timestamp);
    ticks(3);
    EXPECT_EQ(lastPicture.timestamp + 90 * 2160, pictures->packets.back().timestamp);
    EXPECT_TRUE(pictures->contiguous());
    EXPECT_TRUE(sound->contiguous());
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

TEST_F(TrackSenderTest, AfterARestartPicturesWaitForAKeyPicture)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(3);
    source->breakOff();
    ticks(3);
    EXPECT_EQ(3U, wire->units().size());
    picture = gop;
    tick();
    ASSERT_EQ(4U, wire->units().size());
    EXPECT_TRUE(wire->units().back()->keyFrame);
}

// ---- Congestion

TEST_F(TrackSenderTest, ACongestedUnitGoesOnWhereItStopped)
{
    const auto wire = setUp("s", video);
    wire->capacity = 4;
    play("s", video);
    tick();
    EXPECT_EQ(4U, wire->packets.size());
    wire->capacity = 2;
    wire->ready();
    EXPECT_EQ(6U, wire->packets.size());
    wire->capacity = SIZE_MAX;
    tick();
    EXPECT_EQ(12U, wire->packets.size());
    for (std::size_t i = 0; i < 9; ++i)
    {
        EXPECT_EQ(i, wire->packets[i].index);
        EXPECT_EQ(wire->packets[0].timestamp, wire->packets[i].timestamp);
    }
    EXPECT_TRUE(wire->contiguous());
    EXPECT_EQ(12U, statistics("s", video).packets);
    EXPECT_EQ(0U, statistics("s", video).unitsSkipped);
}

TEST_F(TrackSenderTest, AShortCongestionLosesNothing)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(20);
    wire->capacity = 0;
    ticks(10);
    EXPECT_EQ(20U, wire->units().size());
    wire->capacity = SIZE_MAX;
    wire->ready();
    EXPECT_EQ(30U, wire->units().size());
    EXPECT_EQ(0U, statistics("s", video).unitsSkipped);
}

TEST_F(TrackSenderTest, ALongCongestionLosesWholeUnitsUpToTheNewestKeyPicture)
{
    const auto wire = setUp("s", video);
    const auto other = setUp("t", video);
    play("s", video);
    play("t", video);
    ticks(10);
    wire->capacity = 1;  // tears the next unit apart
    ticks(60);
    const std::size_t torn = wire->packets.size();
    EXPECT_EQ(70U, other->units().size());
    wire->capacity = SIZE_MAX;
    wire->ready();
    // The torn unit is finished; what follows is the key picture of unit 50 and all behind it.
    EXPECT_TRUE(wire->packets[torn + 1].last);
    EXPECT_TRUE(wire->packets[torn + 2].unit->keyFrame);
    EXPECT_EQ(11U + 20U, wire->units().size());
    EXPECT_EQ(39U, statistics("s", video).unitsSkipped);
    EXPECT_TRUE(wire->contiguous());
    EXPECT_TRUE(ascending(*wire));
    EXPECT_EQ(40U * 3600U, wire->packets[torn + 2].timestamp - wire->packets[torn + 1].timestamp);
}

TEST_F(TrackSenderTest, WhoFellOutOfTheRingWaitsForAKeyPicture)
{
    settings.ringUnits = 8;
    make();
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(2);
    wire->capacity = 0;
    ticks(15);
    wire->capacity = SIZE_MAX;
    wire->ready();
    EXPECT_EQ(2U, wire->units().size());
    ticks(8);
    EXPECT_EQ(2U, wire->units().size());
    tick();
    ASSERT_EQ(3U, wire->units().size());
    EXPECT_TRUE(wire->units().back()->keyFrame);
    ticks(3);
    EXPECT_EQ(6U, wire->units().size());
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(TrackSenderTest, LateSoundLosesWhatIsOlderThanASecond)
{
    const auto sound = setUp("s", audio);
    play("s", audio);
    ticks(5);
    sound->capacity = 0;
    ticks(20);
    sound->capacity = 5;
    sound->ready();
    EXPECT_EQ(15U, sound->units().size());  // 800 ms late: nothing is lost
    ticks(20);
    sound->capacity = SIZE_MAX;
    sound->ready();
    EXPECT_EQ(0, (clock.wallNs() - sound->units().back()->captureTimeNs));
    EXPECT_GE(sound->units()[15]->captureTimeNs, clock.wallNs() - 1'000'000'000);
    EXPECT_GT(statistics("s", audio).unitsSkipped, 10U);
    EXPECT_TRUE(sound->contiguous());
}

TEST_F(TrackSenderTest, TheAnnouncedFirstUnitSurvivesACongestion)
{
    const auto wire = setUp("s", video);
    ticks(2);
    wire->capacity = 0;
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    ticks(100);
    wire->capacity = SIZE_MAX;
    wire->ready();
    expectFirst(info, wire->packets.front());
    EXPECT_TRUE(wire->packets.front().unit->keyFrame);
    EXPECT_TRUE(wire->packets[9].unit->keyFrame);
}

TEST_F(TrackSenderTest, AClosedWayIsLeftAlone)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(2);
    transport("s", video)->close();
    ticks(30);
    EXPECT_EQ(2U, wire->units().size());
    EXPECT_EQ(1, source->viewers.load());
    EXPECT_EQ(0, remove("s", video));
    EXPECT_EQ(0, source->viewers.load());
}

TEST_F(TrackSenderTest, APauseInTheMiddleOfAUnitDropsItsRest)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    wire->capacity = 1;
    tick();
    const std::size_t torn = wire->packets.size();
    pause("s", video);
    wire->capacity = SIZE_MAX;
    wire->ready();
    EXPECT_EQ(torn, wire->packets.size());
    ticks(20);
    play("s", video);
    EXPECT_TRUE(wire->packets[torn].unit->keyFrame);
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(TrackSenderTest, AKeyPictureTornByAPauseIsNotSentAgain)
{
    const auto wire = setUp("s", video);
    wire->capacity = 4;
    play("s", video);
    tick();
    EXPECT_EQ(4U, wire->packets.size());
    pause("s", video);
    wire->capacity = SIZE_MAX;
    play("s", video);
    EXPECT_EQ(4U, wire->packets.size());
    EXPECT_EQ(2, source->keyRequests.load());
    picture = gop;
    tick();
    EXPECT_TRUE(wire->packets[4].unit->keyFrame);
    EXPECT_TRUE(wire->contiguous());
}

// ---- Reports

TEST_F(TrackSenderTest, TheFirstReportComesBeforeTheFirstPacket)
{
    setUp("first", video);
    ticks(12);
    const auto wire = setUp("s", video);
    play("s", video);
    ASSERT_EQ('r', wire->order.front());
    EXPECT_EQ(1, std::count(wire->order.begin(), wire->order.end(), 'r'));
    const ReadReport report(wire->rtcp.front());
    const SentPacket& first = wire->packets.front();
    EXPECT_EQ(first.ssrc, report.ssrc);
    EXPECT_EQ(0U, report.packets);
    // The instant of the report in RTP time, by the first picture's capture time.
    const std::int64_t sinceMs = clock.monotonicMs() - first.unit->captureTimeNs / 1'000'000;
    EXPECT_EQ(11 * 40, sinceMs);
    EXPECT_EQ(first.timestamp + static_cast<std::uint32_t>(sinceMs * 90), report.timestamp);
    EXPECT_EQ(clock.monotonicMs(), report.wallMs());
}

TEST_F(TrackSenderTest, ReportsComeEveryFewSecondsWithExactCounts)
{
    const auto wire = setUp("s", video);
    play("s", video);
    std::size_t seen = 0;
    std::int64_t lastMs = 0;
    std::vector<std::int64_t> gaps;
    for (int i = 0; i < 2000; ++i)
    {
        const std::size_t packets = wire->packets.size();
        tick();
        if (wire->rtcp.size() == seen)
        {
            continue;
        }
        ASSERT_EQ(seen + 1, wire->rtcp.size());
        const ReadReport report(wire->rtcp[seen++]);
        EXPECT_EQ(packets, report.packets);
        std::uint32_t octets = 0;
        for (std::size_t at = 0; at < packets; ++at)
        {
            const SentPacket& packet = wire->packets[at];
            octets += packet.unit->packets[packet.index].size - 12U;
        }
        EXPECT_EQ(octets, report.octets);
        if (lastMs != 0)
        {
            gaps.push_back(report.wallMs() - lastMs);
        }
        lastMs = report.wallMs();
    }
    ASSERT_GE(gaps.size(), 10U);
    std::int64_t sum = 0;
    for (const std::int64_t gap : gaps)
    {
        EXPECT_GE(gap, 2500);
        EXPECT_LE(gap, 7540);
        sum += gap;
    }
    EXPECT_NEAR(5000, static_cast<double>(sum) / static_cast<double>(gaps.size()), 1500);
}

TEST_F(TrackSenderTest, PictureAndSoundReportUnderOneName)
{
    const auto pictures = setUp("s", video);
    const auto sound = setUp("s", audio);
    const auto other = setUp("t", video);
    for (const char* track : {video, audio})
    {
        play("s", track);
    }
    play("t", video);
    ticks(2);
    const ReadReport report(pictures->rtcp.front());
    EXPECT_EQ(16U, report.name.size());
    EXPECT_EQ(report.name, ReadReport(sound->rtcp.front()).name);
    EXPECT_NE(report.name, ReadReport(other->rtcp.front()).name);
}

TEST_F(TrackSenderTest, AChangedMappingIsReportedAtOnce)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(3);
    ASSERT_EQ(1U, wire->rtcp.size());
    restartSource();
    clock.advanceMs(1000);
    tick();
    ASSERT_EQ(2U, wire->rtcp.size());
    EXPECT_EQ(wire->packets.back().timestamp, ReadReport(wire->rtcp[1]).timestamp);
}

TEST_F(TrackSenderTest, APauseIsFollowedByAReport)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(3);
    pause("s", video);
    ticks(30);
    EXPECT_EQ(1U, wire->rtcp.size());
    play("s", video);
    EXPECT_EQ(2U, wire->rtcp.size());
}

TEST_F(TrackSenderTest, WhoNeverSentSaysNoGoodbye)
{
    const auto wire = setUp("s", video);
    play("s", video);
    remove("s", video);
    EXPECT_TRUE(wire->rtcp.empty());
}

TEST_F(TrackSenderTest, ReceptionReportsAreKept)
{
    const auto wire = setUp("s", video);
    play("s", video);
    tick();
    const std::uint32_t ssrc = wire->packets.front().ssrc;
    const std::uint32_t sentAt = RtcpWriter::compactNtp(clock.wallNs());
    clock.advanceMs(250);
    std::vector<std::uint8_t> report = {0x81, 201, 0, 7, 1, 1, 1, 1};
    for (const std::uint32_t word : {ssrc, 0x40000003U, 77U, 55U, sentAt, 65536U / 10U})
    {
        for (unsigned shift = 32; shift > 0; shift -= 8)
        {
            report.push_back(static_cast<std::uint8_t>(word >> (shift - 8)));
        }
    }
    const auto listener = wire->listener.lock();
    listener->onRtcp(report.data(), report.size());
    listener->onRtcp(report.data(), report.size() - 1);
    listener->onRtcp(report.data(), 0);
    const TrackStatistics found = statistics("s", video);
    EXPECT_EQ(1U, found.reportsRead);
    EXPECT_EQ(2U, found.reportsRefused);
    EXPECT_EQ(64, found.reception.fractionLost);
    EXPECT_EQ(3, found.reception.cumulativeLost);
    EXPECT_EQ(55U, found.reception.jitter);
    EXPECT_NEAR(150, static_cast<double>(found.roundTripMs), 2);
}

}  // namespace
}  // namespace test
}  // namespace refhost

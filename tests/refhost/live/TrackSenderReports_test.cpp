#include <gst/gst.h>
#include <gst/rtp/gstrtcpbuffer.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "refhost/live/TrackSender.h"
#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/live/TrackSenderFixture.h"

namespace refhost
{
namespace test
{
namespace
{

/// The sender report at the start of a compound packet, and the CNAME after it.
struct ReadReport
{
    explicit ReadReport(const std::vector<std::uint8_t>& packet)
    {
        gst_init(nullptr, nullptr);
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
    // The instant of the report in RTP time, by the first frame's capture time.
    const std::int64_t sinceMs = msOf(clock.now()) - nsOf(first.unit->captureTime) / 1'000'000;
    EXPECT_EQ(11 * 40, sinceMs);
    EXPECT_EQ(first.timestamp + static_cast<std::uint32_t>(sinceMs * 90), report.timestamp);
    EXPECT_EQ(msOf(clock.now()), report.wallMs());
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

TEST_F(TrackSenderTest, VideoAndAudioReportUnderOneName)
{
    const auto frames = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    const auto other = setUp("t", video);
    for (const char* track : {video, audio})
    {
        play("s", track);
    }
    play("t", video);
    ticks(2);
    const ReadReport report(frames->rtcp.front());
    EXPECT_EQ(16U, report.name.size());
    EXPECT_EQ(report.name, ReadReport(audioWire->rtcp.front()).name);
    EXPECT_NE(report.name, ReadReport(other->rtcp.front()).name);
}

TEST_F(TrackSenderTest, AChangedMappingIsReportedAtOnce)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(3);
    ASSERT_EQ(1U, wire->rtcp.size());
    restartSource();
    clock.advance(std::chrono::milliseconds(1000));
    tick();
    ASSERT_EQ(2U, wire->rtcp.size());
    EXPECT_EQ(wire->packets.back().timestamp, ReadReport(wire->rtcp[1]).timestamp);
}

TEST_F(TrackSenderTest, AClockThatIsSetIsReportedAtOnceByAllTracksWhileRtpTimeGoesOn)
{
    const auto frames = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    for (const char* track : {video, audio})
    {
        play("s", track);
    }
    ticks(5);
    for (const std::int64_t byMs : {-7'200'000LL, 10 * 365 * 86'400'000LL, -3'600'000LL})
    {
        const std::size_t before[] = {frames->rtcp.size(), audioWire->rtcp.size()};
        const std::size_t sent = frames->packets.size();
        clock.setWall(std::chrono::milliseconds(byMs));
        ticks(6);
        ASSERT_EQ(before[0] + 1, frames->rtcp.size()) << byMs;
        ASSERT_EQ(before[1] + 1, audioWire->rtcp.size()) << byMs;
        const ReadReport report(frames->rtcp.back());
        // Sent with one of the last frames, dated by the clock as set now.
        const std::int64_t agoMs = nsOf(clock.wallNow()) / 1'000'000 - report.wallMs();
        EXPECT_GE(agoMs, 0) << byMs;
        EXPECT_LE(agoMs, 240) << byMs;
        const auto behind = static_cast<std::int32_t>(frames->packets.back().timestamp - report.timestamp);
        EXPECT_NEAR(static_cast<double>(agoMs * 90), behind, 90) << byMs;
        for (std::size_t i = sent; i < frames->packets.size(); ++i)
        {
            const std::uint32_t step = frames->packets[i].timestamp - frames->packets[i - 1].timestamp;
            ASSERT_TRUE(step == 0 || step == 3600U) << step;
        }
    }
}

TEST_F(TrackSenderTest, ASmallCorrectionOfTheClockChangesNoReport)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(3);
    clock.setWall(std::chrono::milliseconds(-100));
    ticks(10);
    EXPECT_EQ(1U, wire->rtcp.size());
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

TEST_F(TrackSenderTest, SenderWithoutPacketsSendsNoBye)
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
    const std::uint32_t sentAt = NtpTime(clock.wallNow()).compact();
    clock.advance(std::chrono::milliseconds(250));
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
    ASSERT_TRUE(found.roundTrip.has_value());
    EXPECT_NEAR(0.150, secondsOf(*found.roundTrip), 0.002);
}

}  // namespace
}  // namespace test
}  // namespace refhost

#include "refhost/rtp/RtcpWriter.h"

#include <gst/rtp/gstrtcpbuffer.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace refhost
{
namespace
{

constexpr RtcpWriter::Name name = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h',
                                   'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p'};

/// Reads a packet with GStreamer's parser.
class ForeignReader
{
public:
    explicit ForeignReader(const RtcpWriter& writer)
        : valid(gst_rtcp_buffer_validate_data(const_cast<guint8*>(writer.data()),
                                              static_cast<guint>(writer.size()))),
          buffer_(gst_buffer_new_memdup(writer.data(), writer.size()))
    {
        gst_rtcp_buffer_map(buffer_, GST_MAP_READ, &rtcp_);
    }

    ~ForeignReader()
    {
        gst_rtcp_buffer_unmap(&rtcp_);
        gst_buffer_unref(buffer_);
    }

    ForeignReader(const ForeignReader&) = delete;
    ForeignReader& operator=(const ForeignReader&) = delete;

    GstRTCPPacket first()
    {
        GstRTCPPacket packet;
        EXPECT_TRUE(gst_rtcp_buffer_get_first_packet(&rtcp_, &packet));
        return packet;
    }

    const bool valid;

private:
    GstBuffer* const buffer_;
    GstRTCPBuffer rtcp_ = GST_RTCP_BUFFER_INIT;
};

class RtcpWriterTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        gst_init(nullptr, nullptr);
    }
};

TEST_F(RtcpWriterTest, ReportAndNameReadBack)
{
    ForeignReader reader(
        RtcpWriter({0x12345678U, WallTime(std::chrono::milliseconds(1500)), 99U, 7U, 4000U}, name, false));
    ASSERT_TRUE(reader.valid);
    GstRTCPPacket packet = reader.first();
    ASSERT_EQ(GST_RTCP_TYPE_SR, gst_rtcp_packet_get_type(&packet));
    guint32 ssrc = 0;
    guint32 timestamp = 0;
    guint32 packets = 0;
    guint32 octets = 0;
    guint64 ntp = 0;
    gst_rtcp_packet_sr_get_sender_info(&packet, &ssrc, &ntp, &timestamp, &packets, &octets);
    EXPECT_EQ(0x12345678U, ssrc);
    EXPECT_EQ((2'208'988'801ULL << 32U) + (1ULL << 31U), ntp);
    EXPECT_EQ(99U, timestamp);
    EXPECT_EQ(7U, packets);
    EXPECT_EQ(4000U, octets);

    ASSERT_TRUE(gst_rtcp_packet_move_to_next(&packet));
    ASSERT_EQ(GST_RTCP_TYPE_SDES, gst_rtcp_packet_get_type(&packet));
    EXPECT_EQ(1U, gst_rtcp_packet_sdes_get_item_count(&packet));
    EXPECT_EQ(0x12345678U, gst_rtcp_packet_sdes_get_ssrc(&packet));
    GstRTCPSDESType type = GST_RTCP_SDES_INVALID;
    guint8 length = 0;
    guint8* text = nullptr;
    ASSERT_TRUE(gst_rtcp_packet_sdes_get_entry(&packet, &type, &length, &text));
    EXPECT_EQ(GST_RTCP_SDES_CNAME, type);
    EXPECT_EQ("abcdefghijklmnop", std::string(reinterpret_cast<const char*>(text), length));
    EXPECT_FALSE(gst_rtcp_packet_sdes_next_entry(&packet));
    EXPECT_FALSE(gst_rtcp_packet_move_to_next(&packet));
}

TEST_F(RtcpWriterTest, ByeIsLast)
{
    ForeignReader reader(RtcpWriter({5U, WallTime(), 0U, 0U, 0U}, name, true));
    ASSERT_TRUE(reader.valid);
    GstRTCPPacket packet = reader.first();
    ASSERT_TRUE(gst_rtcp_packet_move_to_next(&packet));
    ASSERT_TRUE(gst_rtcp_packet_move_to_next(&packet));
    ASSERT_EQ(GST_RTCP_TYPE_BYE, gst_rtcp_packet_get_type(&packet));
    EXPECT_EQ(1U, gst_rtcp_packet_bye_get_ssrc_count(&packet));
    EXPECT_EQ(5U, gst_rtcp_packet_bye_get_nth_ssrc(&packet, 0));
    EXPECT_FALSE(gst_rtcp_packet_move_to_next(&packet));
}

TEST_F(RtcpWriterTest, ReceiverReportReadsBack)
{
    RtcpWriter::ReceiverReport report;
    report.ssrc = 0x12345678U;
    report.hasBlock = true;
    report.source = 0xaabbccddU;
    report.reception.fractionLost = 77;
    report.reception.cumulativeLost = -3;
    report.reception.highestSequence = 0x00010007U;
    report.reception.jitter = 33;
    report.reception.lastReport = 0x11223344U;
    report.reception.delaySinceReport = 65536;
    ForeignReader reader(RtcpWriter::ofReceiver(report, name, true));
    ASSERT_TRUE(reader.valid);
    GstRTCPPacket packet = reader.first();
    ASSERT_EQ(GST_RTCP_TYPE_RR, gst_rtcp_packet_get_type(&packet));
    EXPECT_EQ(0x12345678U, gst_rtcp_packet_rr_get_ssrc(&packet));
    ASSERT_EQ(1U, gst_rtcp_packet_get_rb_count(&packet));
    guint32 source = 0;
    guint8 fraction = 0;
    gint32 lost = 0;
    guint32 highest = 0;
    guint32 jitter = 0;
    guint32 last = 0;
    guint32 delay = 0;
    gst_rtcp_packet_get_rb(&packet, 0, &source, &fraction, &lost, &highest, &jitter, &last, &delay);
    EXPECT_EQ(0xaabbccddU, source);
    EXPECT_EQ(77, fraction);
    EXPECT_EQ(-3, lost);
    EXPECT_EQ(0x00010007U, highest);
    EXPECT_EQ(33U, jitter);
    EXPECT_EQ(0x11223344U, last);
    EXPECT_EQ(65536U, delay);
    ASSERT_TRUE(gst_rtcp_packet_move_to_next(&packet));
    EXPECT_EQ(GST_RTCP_TYPE_SDES, gst_rtcp_packet_get_type(&packet));
    EXPECT_EQ(0x12345678U, gst_rtcp_packet_sdes_get_ssrc(&packet));
    ASSERT_TRUE(gst_rtcp_packet_move_to_next(&packet));
    EXPECT_EQ(GST_RTCP_TYPE_BYE, gst_rtcp_packet_get_type(&packet));
    EXPECT_EQ(0x12345678U, gst_rtcp_packet_bye_get_nth_ssrc(&packet, 0));
    EXPECT_FALSE(gst_rtcp_packet_move_to_next(&packet));
}

TEST_F(RtcpWriterTest, ReceiverReportOfNothingHasNoBlock)
{
    RtcpWriter::ReceiverReport report;
    report.ssrc = 5;
    ForeignReader reader(RtcpWriter::ofReceiver(report, name, false));
    ASSERT_TRUE(reader.valid);
    GstRTCPPacket packet = reader.first();
    ASSERT_EQ(GST_RTCP_TYPE_RR, gst_rtcp_packet_get_type(&packet));
    EXPECT_EQ(0U, gst_rtcp_packet_get_rb_count(&packet));
    ASSERT_TRUE(gst_rtcp_packet_move_to_next(&packet));
    EXPECT_EQ(GST_RTCP_TYPE_SDES, gst_rtcp_packet_get_type(&packet));
    EXPECT_FALSE(gst_rtcp_packet_move_to_next(&packet));
}

}  // namespace
}  // namespace refhost

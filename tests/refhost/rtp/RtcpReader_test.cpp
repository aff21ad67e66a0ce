#include "refhost/rtp/RtcpReader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "refhost/rtp/RtcpWriter.h"

namespace refhost
{
namespace
{

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t ssrc = 0xaabbccdd;

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const Bytes blockAboutUs = {0xaa, 0xbb, 0xcc, 0xdd, 64,   0xff, 0xff, 0xfe, 0, 1, 0, 7,
                            0,    0,    0,    33,   0x11, 0x22, 0x33, 0x44, 0, 1, 0, 0};
const Bytes blockAboutOthers = {1, 2, 3, 4, 9, 0, 0, 9, 0, 0, 0, 9, 0, 0, 0, 9, 0, 0, 0, 9, 0, 0, 0, 9};
const Bytes emptyReport = {0x80, 201, 0, 1, 1, 1, 1, 1};
const Bytes name = {0x81, 202, 0, 3, 1, 1, 1, 1, 1, 2, 'h', 'i', 0, 0, 0, 0};
const Bytes bye = {0x81, 203, 0, 1, 1, 1, 1, 1};

Bytes reportOf(unsigned count, const Bytes& blocks)
{
    return Bytes{static_cast<std::uint8_t>(0x80 | count),
                 201,
                 0,
                 static_cast<std::uint8_t>(1 + blocks.size() / 4),
                 1,
                 1,
                 1,
                 1} +
           blocks;
}

/// Reads from memory of exactly that size, so that a sanitizer catches every read beyond it.
bool readExactly(const Bytes& packet, RtcpFindings& findings)
{
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[packet.size()]);
    std::copy(packet.begin(), packet.end(), exact.get());
    return RtcpReader::read(exact.get(), packet.size(), ssrc, findings);
}

TEST(RtcpReader, FindsTheTimeOfASenderReport)
{
    const RtcpWriter::Name cname{};
    const RtcpWriter sender({0x01020304U, WallTime(std::chrono::milliseconds(1500)), 9U, 9U, 9U}, cname,
                            false);
    RtcpFindings findings;
    ASSERT_TRUE(readExactly(Bytes(sender.data(), sender.data() + sender.size()), findings));
    EXPECT_TRUE(findings.sent);
    EXPECT_EQ(0x01020304U, findings.reporter);
    EXPECT_EQ(NtpTime(WallTime(std::chrono::milliseconds(1500))).compact(), findings.sentNtp);
    ASSERT_TRUE(readExactly(emptyReport, findings));
    EXPECT_FALSE(findings.sent);
    EXPECT_EQ(0x01010101U, findings.reporter);
}

TEST(RtcpReader, FindsTheReportOnTheSender)
{
    RtcpFindings findings;
    ASSERT_TRUE(readExactly(reportOf(2, blockAboutOthers + blockAboutUs) + name, findings));
    EXPECT_TRUE(findings.reported);
    EXPECT_FALSE(findings.bye);
    EXPECT_EQ(64, findings.report.fractionLost);
    EXPECT_EQ(-2, findings.report.cumulativeLost);
    EXPECT_EQ(0x10007U, findings.report.highestSequence);
    EXPECT_EQ(33U, findings.report.jitter);
    EXPECT_EQ(0x11223344U, findings.report.lastReport);
    EXPECT_EQ(0x10000U, findings.report.delaySinceReport);
}

TEST(RtcpReader, AcceptsWhatClientsSend)
{
    const Bytes sender = Bytes{0x81, 200, 0, 12, 1, 1, 1, 1} + Bytes(20, 0) + blockAboutUs;
    const Bytes feedback = {0x81, 206, 0, 2, 1, 1, 1, 1, 0xaa, 0xbb, 0xcc, 0xdd};
    const Bytes padded = {0xa0, 202, 0, 1, 0, 0, 0, 4};
    const struct
    {
        const char* what;
        Bytes packet;
        bool reported;
        bool bye;
    } cases[] = {
        {"an empty receiver report", emptyReport, false, false},
        {"a report with a name", emptyReport + name, false, false},
        {"a BYE", emptyReport + name + bye, false, true},
        {"a sender's report with a block", sender + name, true, false},
        {"feedback behind a report", reportOf(1, blockAboutUs) + feedback, true, false},
        {"padding in the last packet", emptyReport + padded, false, false},
        {"a profile's extension behind the blocks", reportOf(1, blockAboutUs + Bytes(8, 1)), true, false},
    };
    for (const auto& each : cases)
    {
        RtcpFindings findings;
        EXPECT_TRUE(readExactly(each.packet, findings)) << each.what;
        EXPECT_EQ(each.reported, findings.reported) << each.what;
        EXPECT_EQ(each.bye, findings.bye) << each.what;
    }
}

TEST(RtcpReader, RefusesMalformedPackets)
{
    const Bytes padded = {0xa0, 202, 0, 1, 0, 0, 0, 4};
    const struct
    {
        const char* what;
        Bytes packet;
    } cases[] = {
        {"nothing", {}},
        {"version 1", {0x40, 201, 0, 1, 1, 1, 1, 1}},
        {"an RTP packet", {0x80, 96, 0, 1, 1, 1, 1, 1}},
        {"no report at the start", name + emptyReport},
        {"a length beyond the end", {0x80, 201, 0, 2, 1, 1, 1, 1}},
        {"the greatest length", {0x80, 201, 0xff, 0xff, 1, 1, 1, 1}},
        {"more blocks than there is room for", reportOf(2, blockAboutUs)},
        {"31 blocks in an empty report", {0x9f, 201, 0, 1, 1, 1, 1, 1}},
        {"no room for the SSRC", {0x80, 201, 0, 0}},
        {"a sender report without its numbers", {0x80, 200, 0, 1, 1, 1, 1, 1}},
        {"padding in the first packet", {0xa0, 201, 0, 2, 1, 1, 1, 1, 0, 0, 0, 4}},
        {"padding before the last packet", emptyReport + padded + name},
        {"a torn second packet", emptyReport + Bytes{0x81, 203}},
        {"a second packet of version 0", emptyReport + Bytes{0x01, 203, 0, 1, 1, 1, 1, 1}},
    };
    for (const auto& each : cases)
    {
        RtcpFindings findings;
        findings.report.jitter = 5;
        EXPECT_FALSE(readExactly(each.packet, findings)) << each.what;
        EXPECT_EQ(5U, findings.report.jitter) << each.what;
    }
}

TEST(RtcpReader, EveryPrefixIsRefusedUnlessItEndsWithAPacket)
{
    const Bytes first = reportOf(2, blockAboutOthers + blockAboutUs);
    const Bytes whole = first + name + bye;
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        const bool complete =
            size == first.size() || size == first.size() + name.size() || size == whole.size();
        RtcpFindings findings;
        EXPECT_EQ(
            complete,
            readExactly(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)), findings))
            << size;
    }
}

TEST(RtcpReader, ReadsWhatTheWriterWrites)
{
    const RtcpWriter writer({1U, WallTime(), 0U, 0U, 0U}, RtcpWriter::Name{}, true);
    RtcpFindings findings;
    EXPECT_TRUE(readExactly(Bytes(writer.data(), writer.data() + writer.size()), findings));
    EXPECT_TRUE(findings.bye);
}

}  // namespace
}  // namespace refhost

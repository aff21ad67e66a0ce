#include "refhost/media/AccessUnitBuilder.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/refhost/base/Nanoseconds.h"

namespace refhost
{
namespace
{

using Bytes = std::vector<std::uint8_t>;

Bytes packet(std::uint32_t timestamp, bool marker, const std::vector<int>& payload)
{
    Bytes bytes = {0x80, static_cast<std::uint8_t>(96 | (marker ? 0x80 : 0)), 0, 1, 0, 0, 0, 0, 1, 2, 3, 4};
    for (int i = 0; i < 4; ++i)
    {
        bytes[4 + i] = static_cast<std::uint8_t>(timestamp >> (24 - 8 * i));
    }
    for (const int byte : payload)
    {
        bytes.push_back(static_cast<std::uint8_t>(byte));
    }
    return bytes;
}

class AccessUnitBuilderTest : public testing::Test
{
protected:
    AccessUnitBuilder make(Codec codec)
    {
        return AccessUnitBuilder(codec, [this](AccessUnitPtr unit) { units.push_back(std::move(unit)); });
    }

    static bool give(AccessUnitBuilder& builder, const Bytes& bytes, std::int64_t time = 0)
    {
        return builder.add(bytes.data(), bytes.size(), test::instantOf(time));
    }

    /// The single unit of these payloads.
    AccessUnitPtr unitOf(Codec codec, const std::vector<std::vector<int>>& payloads)
    {
        AccessUnitBuilder builder = make(codec);
        units.clear();
        for (std::size_t i = 0; i < payloads.size(); ++i)
        {
            EXPECT_TRUE(give(builder, packet(1, i + 1 == payloads.size(), payloads[i])));
        }
        EXPECT_EQ(units.size(), 1U);
        return units.empty() ? nullptr : units[0];
    }

    std::vector<AccessUnitPtr> units;
};

TEST_F(AccessUnitBuilderTest, MarkerEndsAUnit)
{
    AccessUnitBuilder builder = make(Codec::h264);
    give(builder, packet(9000, false, {0x61, 1, 2}), 77);
    EXPECT_TRUE(units.empty());
    give(builder, packet(9000, true, {0x61, 3}), 78);
    ASSERT_EQ(units.size(), 1U);
    EXPECT_EQ(units[0]->packets.size(), 2U);
    EXPECT_EQ(units[0]->payloadBytes, 5U);
    EXPECT_EQ(units[0]->rtpTimestamp, 9000U);
    EXPECT_EQ(test::nsOf(units[0]->captureTime), 77);
}

TEST_F(AccessUnitBuilderTest, UnitWithoutEndIsDroppedAndTheNextIsDelivered)
{
    AccessUnitBuilder builder = make(Codec::h264);
    const Bytes large = packet(9000, false, std::vector<int>(1U << 20U, 0x61));
    for (std::size_t i = 0; i < 2 * AccessUnitBuilder::maxUnitBytes / large.size(); ++i)
    {
        EXPECT_TRUE(give(builder, large));
    }
    EXPECT_TRUE(give(builder, packet(9000, true, {0x61, 1})));
    EXPECT_TRUE(units.empty());
    give(builder, packet(12600, true, {0x61, 2}));
    ASSERT_EQ(units.size(), 1U);
    EXPECT_EQ(units[0]->rtpTimestamp, 12600U);
}

TEST_F(AccessUnitBuilderTest, ChangedTimestampEndsAUnit)
{
    AccessUnitBuilder builder = make(Codec::h264);
    give(builder, packet(9000, false, {0x61, 1}));
    give(builder, packet(12600, true, {0x61, 2}));
    ASSERT_EQ(units.size(), 2U);
    EXPECT_EQ(units[0]->rtpTimestamp, 9000U);
    EXPECT_EQ(units[1]->rtpTimestamp, 12600U);
}

TEST_F(AccessUnitBuilderTest, EachPacketOfPlainAudioIsAUnit)
{
    AccessUnitBuilder builder = make(Codec::pcmu);
    give(builder, packet(160, false, {1}));
    give(builder, packet(320, false, {2}));
    ASSERT_EQ(units.size(), 2U);
    EXPECT_TRUE(units[1]->keyFrame);
}

TEST_F(AccessUnitBuilderTest, FramedAudioEndsAtTheMarker)
{
    AccessUnitBuilder builder = make(Codec::aac);
    give(builder, packet(1024, false, {0, 16, 1}));
    EXPECT_TRUE(units.empty());
    give(builder, packet(1024, true, {0, 16, 2}));
    ASSERT_EQ(units.size(), 1U);
    EXPECT_TRUE(units[0]->keyFrame);
}

TEST_F(AccessUnitBuilderTest, KeyFrameOfH264NeedsParameterSetAndIdr)
{
    struct Case
    {
        const char* name;
        std::vector<std::vector<int>> payloads;
        bool key;
    };
    const std::vector<Case> cases = {
        {"STAP-A of SPS and PPS, then IDR", {{24, 0, 2, 0x67, 1, 0, 2, 0x68, 1}, {0x65, 1}}, true},
        {"STAP-A of SPS and PPS, then IDR in fragments",
         {{24, 0, 2, 0x67, 1, 0, 2, 0x68, 1}, {0x7c, 0x85, 1}, {0x7c, 0x45, 2}},
         true},
        {"all in one STAP-A", {{24, 0, 2, 0x67, 1, 0, 2, 0x68, 1, 0, 2, 0x65, 1}}, true},
        {"single units", {{0x67, 1}, {0x68, 1}, {0x65, 1}}, true},
        {"IDR alone", {{0x65, 1}}, false},
        {"parameter sets alone", {{24, 0, 2, 0x67, 1, 0, 2, 0x68, 1}}, false},
        {"another frame", {{0x61, 1}}, false},
        {"parameter sets and another frame", {{0x67, 1}, {0x68, 1}, {0x61, 1}}, false},
        {"STAP-A whose size lies", {{24, 9, 9, 0x67, 1}, {0x65, 1}}, false},
        {"STAP-A of nothing", {{24}, {0x65, 1}}, false},
        {"FU-A of one byte", {{0x67, 1}, {0x7c}}, false},
    };
    for (const Case& one : cases)
    {
        const AccessUnitPtr unit = unitOf(Codec::h264, one.payloads);
        ASSERT_TRUE(unit) << one.name;
        EXPECT_EQ(unit->keyFrame, one.key) << one.name;
    }
}

TEST_F(AccessUnitBuilderTest, KeyFrameOfH265NeedsParameterSetAndRandomAccess)
{
    constexpr int sps = 33 << 1;
    constexpr int idr = 19 << 1;
    constexpr int cra = 21 << 1;
    constexpr int trail = 1 << 1;
    constexpr int aggregation = 48 << 1;
    constexpr int fragment = 49 << 1;
    struct Case
    {
        const char* name;
        std::vector<std::vector<int>> payloads;
        bool key;
    };
    const std::vector<Case> cases = {
        {"single units", {{sps, 1, 0}, {idr, 1, 0}}, true},
        {"aggregation, then fragments",
         {{aggregation, 1, 0, 3, sps, 1, 0}, {fragment, 1, 0x80 | 19, 0}},
         true},
        {"clean random access", {{sps, 1, 0}, {cra, 1, 0}}, true},
        {"IDR alone", {{idr, 1, 0}}, false},
        {"another frame", {{sps, 1, 0}, {trail, 1, 0}}, false},
        {"fragments cut short", {{sps, 1, 0}, {fragment, 1}}, false},
    };
    for (const Case& one : cases)
    {
        const AccessUnitPtr unit = unitOf(Codec::h265, one.payloads);
        ASSERT_TRUE(unit) << one.name;
        EXPECT_EQ(unit->keyFrame, one.key) << one.name;
    }
}

TEST_F(AccessUnitBuilderTest, KeyFrameDoesNotMarkTheNextUnit)
{
    AccessUnitBuilder builder = make(Codec::h264);
    give(builder, packet(1, false, {0x67, 1}));
    give(builder, packet(1, true, {0x65, 1}));
    give(builder, packet(2, true, {0x61, 1}));
    ASSERT_EQ(units.size(), 2U);
    EXPECT_TRUE(units[0]->keyFrame);
    EXPECT_FALSE(units[1]->keyFrame);
}

TEST_F(AccessUnitBuilderTest, PacketsWithMoreThanAPlainHeaderAreRejected)
{
    AccessUnitBuilder builder = make(Codec::pcmu);
    for (const int first : {0x90, 0xa0, 0x81, 0x40, 0x00})
    {
        Bytes bytes = packet(1, true, {1, 2, 3, 4, 5, 6, 7, 8});
        bytes[0] = static_cast<std::uint8_t>(first);
        EXPECT_FALSE(give(builder, bytes)) << first;
    }
    for (std::size_t size = 0; size <= 12; ++size)
    {
        const Bytes bytes = packet(1, true, {1});
        EXPECT_FALSE(builder.add(bytes.data(), size, MonotonicTime())) << size;
    }
    EXPECT_TRUE(units.empty());
}

TEST_F(AccessUnitBuilderTest, ResetDropsAnIncompleteUnit)
{
    AccessUnitBuilder builder = make(Codec::h264);
    give(builder, packet(1, false, {0x67, 1}));
    builder.reset();
    give(builder, packet(1, true, {0x65, 1}));
    ASSERT_EQ(units.size(), 1U);
    EXPECT_EQ(units[0]->packets.size(), 1U);
    EXPECT_FALSE(units[0]->keyFrame);
}

}  // namespace
}  // namespace refhost

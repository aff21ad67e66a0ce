#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "refhost/rtp/payload/NalDepacketizer.h"
#include "tests/refhost/rtp/payload/H264Reception.h"
#include "tests/refhost/rtp/payload/H264Units.h"
#include "tests/refhost/rtp/payload/WholeUnits.h"

namespace refhost
{
namespace
{

using namespace test::h264;
using test::aggregate;
using test::Bytes;
using test::payloadsOf;
using test::prefixed;

/// A stream of frames as packets with their marks.
struct Packet
{
    Bytes payload;
    std::uint32_t timestamp;
    bool marker;
};

std::vector<Packet> stream()
{
    std::vector<Packet> packets;
    const auto add = [&packets](std::uint32_t timestamp, const std::vector<Bytes>& payloads)
    {
        for (std::size_t i = 0; i < payloads.size(); ++i)
        {
            packets.push_back({payloads[i], timestamp, i + 1 == payloads.size()});
        }
    };
    std::vector<Bytes> large = fragments(idr(90), 30);
    large.insert(large.begin(), aggregate({0x78}, {sps, pps}));
    add(6000, {p(10, 1)});
    add(9000, fragments(p(70), 30));
    add(12000, large);
    add(15000, {p(10, 2), more(p(10, 3))});
    add(18000, {sps, pps, idr(10, 4)});
    return packets;
}

TEST(H264DepacketizerLoss, WithoutLossNothingIsDamaged)
{
    Believed reception;
    for (const Packet& packet : stream())
    {
        EXPECT_EQ(reception.push(packet.payload, packet.timestamp, packet.marker), "");
    }
    ASSERT_EQ(reception.units.size(), 5U);
    for (const DepacketizedUnit& unit : reception.units)
    {
        EXPECT_FALSE(unit.damaged);
        EXPECT_FALSE(unit.bytes.empty());
    }
    EXPECT_EQ(reception.units[1].bytes, prefixed({p(70)}));
}

TEST(H264DepacketizerLoss, EachLostPacketDamagesItsFrameOrTheNext)
{
    Believed whole;
    for (const Packet& packet : stream())
    {
        whole.push(packet.payload, packet.timestamp, packet.marker);
    }
    const std::vector<Packet> packets = stream();
    for (std::size_t lost = 0; lost < packets.size(); ++lost)
    {
        Believed reception;
        for (std::size_t i = 0; i < packets.size(); ++i)
        {
            if (i != lost)
            {
                EXPECT_EQ(reception.push(packets[i].payload, packets[i].timestamp, packets[i].marker,
                                         i == lost + 1 ? 1 : 0),
                          "");
            }
        }
        reception.depacketizer->flush();
        const bool known = lost + 1 < packets.size();    // a loss at the end is not noticed
        const bool setsAlone = lost == 4 || lost == 10;  // in front of a key frame: they are described
        bool seen = reception.units.size() < whole.units.size();
        for (const DepacketizedUnit& unit : reception.units)
        {
            seen = seen || unit.damaged;
            const auto same =
                std::find_if(whole.units.begin(), whole.units.end(),
                             [&](const auto& sent) { return sent.timestamp == unit.timestamp; });
            ASSERT_NE(same, whole.units.end());
            EXPECT_TRUE(!known || setsAlone || unit.damaged || unit.bytes == same->bytes) << lost;
        }
        EXPECT_EQ(seen, !setsAlone) << lost;
    }
}

TEST(H264DepacketizerLoss, AKeyFrameBehindALossIsWhole)
{
    Believed reception;
    reception.push(sps, 6000, false, 3);
    reception.push(pps, 6000, false);
    reception.push(idr(), 6000, true);
    reception.push(p(), 9000, true, 1);
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_FALSE(reception.units[0].damaged);
    EXPECT_TRUE(reception.units[1].damaged);
}

TEST(H264DepacketizerLoss, PacketsHoldWholeUnitsWhateverIsLost)
{
    // With slices in fragments between others, too.
    std::vector<Packet> packets = stream();
    std::uint32_t timestamp = 21000;
    for (const bool marked : {true, false})
    {
        for (const Bytes& slice : {p(70, 1), more(p(80, 2)), more(p(90, 3))})
        {
            for (Bytes& fragment : fragments(slice, 30))
            {
                fragment[1] &= marked ? 0xffU : 0xbfU;
                packets.push_back({fragment, timestamp, false});
            }
        }
        packets.back().marker = true;
        timestamp += 3000;
    }
    packets.push_back({p(10, 5), timestamp, true});
    const std::vector<Bytes> sent{
        sps,        pps,      p(10, 1),       p(70),          idr(90), p(10, 2), more(p(10, 3)),
        idr(10, 4), p(70, 1), more(p(80, 2)), more(p(90, 3)), p(10, 5)};
    std::size_t delivered = 0;
    for (std::size_t one = 0; one + 1 < packets.size(); ++one)
    {
        for (std::size_t other = one; other + 1 < packets.size(); ++other)
        {
            Believed reception;
            std::uint32_t lost = 0;
            for (std::size_t i = 0; i < packets.size(); ++i)
            {
                if (i == one || i == other)
                {
                    ++lost;
                    continue;
                }
                reception.push(packets[i].payload, packets[i].timestamp, packets[i].marker,
                               std::exchange(lost, 0));
            }
            reception.depacketizer->flush();
            for (const DepacketizedUnit& unit : reception.units)
            {
                ASSERT_EQ(unit.packets == nullptr, unit.bytes.empty()) << one << " " << other;
                if (!unit.packets)
                {
                    continue;
                }
                const auto whole = test::wholeUnitsOf(Codec::h264, payloadsOf(*unit.packets));
                ASSERT_TRUE(whole) << one << " " << other;
                for (const Bytes& each : *whole)
                {
                    EXPECT_EQ(std::count(sent.begin(), sent.end(), each), 1) << one << " " << other;
                }
                EXPECT_EQ(unit.bytes, prefixed(*whole)) << one << " " << other;
                ++delivered;
            }
        }
    }
    EXPECT_GT(delivered, 1000U);
}

TEST(H264DepacketizerLoss, OfAFrameWithoutAWholeSliceNothingRemains)
{
    Believed reception;
    const std::vector<Bytes> packets = fragments(p(100), 30);
    reception.push(packets[1], 6000, false, 1);
    reception.push(packets[2], 6000, false);
    reception.push(packets[3], 6000, true);
    reception.push(packets[0], 9000, false);
    reception.push(packets[2], 9000, false, 1);
    reception.push(packets[3], 9000, true);
    reception.push(p(), 12000, true);
    ASSERT_EQ(reception.units.size(), 3U);
    for (std::size_t i = 0; i < 2; ++i)
    {
        EXPECT_TRUE(reception.units[i].damaged);
        EXPECT_TRUE(reception.units[i].bytes.empty());
        EXPECT_EQ(reception.units[i].packets, nullptr);
        EXPECT_EQ(reception.units[i].maxPayload, 0U);
    }
    EXPECT_FALSE(reception.units[2].damaged);
}

TEST(H264DepacketizerLoss, EveryPrefixOfAPacketIsTakenOrRefused)
{
    for (const Packet& packet : stream())
    {
        for (std::size_t size = 1; size <= packet.payload.size(); ++size)
        {
            Believed reception;
            const Bytes prefix(packet.payload.begin(),
                               packet.payload.begin() + static_cast<std::ptrdiff_t>(size));
            reception.push(prefix, 6000, true);
            reception.push(p(), 9000, true);
            ASSERT_FALSE(reception.units.empty());
            const Bytes& bytes = reception.units.back().bytes;
            const Bytes end = prefixed({p()});
            ASSERT_GE(bytes.size(), end.size());
            EXPECT_TRUE(std::equal(end.rbegin(), end.rend(), bytes.rbegin()));
            EXPECT_EQ(reception.units.back().timestamp, 9000U);
        }
    }
}

}  // namespace
}  // namespace refhost

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/HostClock.h"
#include "refhost/ingest/IngestTrack.h"
#include "refhost/rtp/ReorderWindow.h"
#include "tests/refhost/capture/CollectingSink.h"
#include "tests/refhost/ingest/CollectedUnits.h"
#include "tests/refhost/rtp/payload/H264Units.h"
#include "tests/refhost/rtp/payload/WholeUnits.h"

namespace refhost
{
namespace
{

using namespace test::h264;
using test::Bytes;
using test::prefixed;

constexpr int payloadType = 96;
constexpr int frames = 1000;
constexpr std::uint32_t frameTicks = 3600;
constexpr Duration frameLength = std::chrono::milliseconds(40);
constexpr std::uint32_t firstTimestamp = 0xffff0000U;
constexpr std::uint16_t firstSequence = 0xff00;

/// What a network does to packets: of 100.
struct Network
{
    const char* name;
    unsigned lost;
    unsigned reordered;
    unsigned repeated;
};

/// A frame as it is sent.
struct Frame
{
    std::vector<Bytes> units;
    std::vector<Bytes> payloads;
};

/// Every tenth is a key frame; others are a packet, fragments, or slices in both.
Frame frameOf(int number)
{
    const auto unique = [number](Bytes unit)
    {
        writeBig32(unit.data() + 2, 0x01020304U + static_cast<std::uint32_t>(number));
        return unit;
    };
    Frame frame;
    std::vector<Bytes> slices;
    if (number % 10 == 0)
    {
        frame.units = {sps, pps};
        frame.payloads = {test::aggregate({0x78}, {sps, pps})};
        slices = {unique(idr(400))};
    }
    else if (number % 3 == 0)
    {
        slices = {unique(p(30))};
    }
    else if (number % 3 == 1)
    {
        slices = {unique(p(350))};
    }
    else
    {
        slices = {unique(p(250)), unique(more(p(40))), unique(more(p(120)))};
    }
    for (const Bytes& slice : slices)
    {
        frame.units.push_back(slice);
        const std::vector<Bytes> packets =
            slice.size() <= 100 ? std::vector<Bytes>{slice} : fragments(slice, 100);
        frame.payloads.insert(frame.payloads.end(), packets.begin(), packets.end());
    }
    return frame;
}

class IngestTrackLoss : public testing::TestWithParam<Network>
{
protected:
    struct Packet
    {
        std::size_t number;
        int frame;
        Bytes bytes;
    };

    IngestTrackLoss()
    {
        for (int i = 0; i < frames; ++i)
        {
            sent_.push_back(frameOf(i));
            const std::vector<Bytes>& payloads = sent_.back().payloads;
            for (std::size_t part = 0; part < payloads.size(); ++part)
            {
                Bytes packet(12);
                packet[0] = 0x80;
                packet[1] = payloadType | (part + 1 == payloads.size() ? 0x80 : 0);
                writeBig16(packet.data() + 2, static_cast<std::uint16_t>(firstSequence + packets_.size()));
                writeBig32(packet.data() + 4, timestampOf(i));
                writeBig32(packet.data() + 8, 7);
                packet.insert(packet.end(), payloads[part].begin(), payloads[part].end());
                packets_.push_back({packets_.size(), i, packet});
            }
        }
        std::string error;
        track_ = IngestTrack::make(
            {Codec::h264, track(true), payloadType, IngestTrack::Clock::server, epoch_, "camera 7/2"},
            mediaTap_, error);
        mediaTap_->add(recording_);
        IngestTrack::Taps taps;
        for (const auto& [size, sink] : {std::make_pair(1400, passed_), std::make_pair(90, packedAgain_)})
        {
            taps[size] = std::make_shared<PacketTap>();
            taps[size]->add(sink);
        }
        track_->setTaps(taps);
    }

    static std::uint32_t timestampOf(int frame)
    {
        return firstTimestamp + static_cast<std::uint32_t>(frame) * frameTicks;
    }

    /// The frame with that timestamp.
    static int frameAt(std::uint32_t timestamp)
    {
        return static_cast<int>((timestamp - firstTimestamp) / frameTicks);
    }

    /// What arrives, in that order. \param[out] whole  the frames of which nothing is lost
    std::vector<const Packet*> arriving(std::vector<bool>& whole) const
    {
        std::mt19937 random(17);
        const auto happens = [&random](unsigned ofHundred) { return random() % 100 < ofHundred; };
        std::multimap<std::size_t, const Packet*> order;
        whole.assign(frames, true);
        for (const Packet& packet : packets_)
        {
            if (happens(GetParam().lost))
            {
                whole[static_cast<std::size_t>(packet.frame)] = false;
                continue;
            }
            order.emplace(packet.number + (happens(GetParam().reordered) ? 2 + random() % 5 : 0), &packet);
            if (happens(GetParam().repeated))
            {
                order.emplace(packet.number + random() % 5, &packet);
            }
        }
        std::vector<const Packet*> arriving;
        for (const auto& [place, packet] : order)
        {
            arriving.push_back(packet);
        }
        return arriving;
    }

    void take(const Bytes& packet, int frame)
    {
        track_->onPacket(packet.data(), packet.size(), epoch_ + (frame + 1) * frameLength);
    }

    /// The slices and sets that were recorded and given to viewers are those that the camera sent for that frame,
    /// in that order and without a part missing; frames and times never go back.
    void judge(const CollectingSink& viewer) const
    {
        int last = -1;
        for (const AccessUnitPtr& unit : viewer.units())
        {
            const int frame = frameAt(unit->rtpTimestamp);
            ASSERT_GT(frame, last);
            last = frame;
            const auto units = test::wholeUnitsOf(Codec::h264, test::payloadsOf(*unit));
            ASSERT_TRUE(units) << frame;
            judge(frame, *units);
        }
    }

    void judgeRecording(const std::vector<bool>& whole) const
    {
        std::vector<bool> recorded(frames, false);
        int last = -1;
        MonotonicTime lastDecoded;
        for (const EncodedUnitPtr& unit : recording_->units)
        {
            const int frame = static_cast<int>((unit->captureTime - epoch_) / frameLength) - 1;
            ASSERT_GT(frame, last);
            last = frame;
            recorded[static_cast<std::size_t>(frame)] = true;
            EXPECT_GT(unit->decodeTime, lastDecoded) << frame;
            lastDecoded = unit->decodeTime;
            const Bytes expected = prefixed(sent_[static_cast<std::size_t>(frame)].units);
            if (!unit->damaged || whole[static_cast<std::size_t>(frame)])
            {
                EXPECT_EQ(unit->bytes, expected) << frame;
            }
            else
            {
                judge(frame, unitsOf(unit->bytes));
            }
        }
        // The last ones may still wait for packets.
        for (std::size_t i = 0; i + 10 < frames; ++i)
        {
            EXPECT_TRUE(recorded[i] || !whole[i]) << i;
        }
    }

    std::size_t damagedFrames() const
    {
        return static_cast<std::size_t>(std::count_if(recording_->units.begin(), recording_->units.end(),
                                                      [](const EncodedUnitPtr& unit)
                                                      { return unit->damaged; }));
    }

    const MonotonicTime epoch_ = HostClock::system().now();
    const std::shared_ptr<MediaTap> mediaTap_ = std::make_shared<MediaTap>();
    const std::shared_ptr<test::CollectedUnits> recording_ = std::make_shared<test::CollectedUnits>();
    const std::shared_ptr<CollectingSink> passed_ = std::make_shared<CollectingSink>();
    const std::shared_ptr<CollectingSink> packedAgain_ = std::make_shared<CollectingSink>();
    std::vector<Frame> sent_;
    std::vector<Packet> packets_;
    std::unique_ptr<IngestTrack> track_;

private:
    static std::vector<Bytes> unitsOf(const Bytes& bytes)
    {
        std::vector<Bytes> units;
        for (std::size_t at = 0; at + 4 <= bytes.size();)
        {
            const std::size_t size = readBig32(bytes.data() + at);
            const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at) + 4;
            units.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
            at += 4 + size;
        }
        return units;
    }

    /// The units are a part of what the frame was sent with; parameter sets may have been added.
    void judge(int frame, const std::vector<Bytes>& units) const
    {
        const std::vector<Bytes>& all = sent_[static_cast<std::size_t>(frame)].units;
        auto next = all.begin();
        EXPECT_FALSE(units.empty());
        for (const Bytes& unit : units)
        {
            const auto found = std::find(next, all.end(), unit);
            ASSERT_NE(found, all.end()) << frame;
            next = std::next(found);
        }
    }
};

TEST_P(IngestTrackLoss, WhatComesWholeInOrderIsDeliveredWholeAndTheRestWithoutTornUnits)
{
    std::vector<bool> whole;
    ReorderWindow window(10 * frameLength);
    for (const Packet* const packet : arriving(whole))
    {
        ReorderWindow::Packet held;
        held.sequence = static_cast<std::uint32_t>(packet->number) + 1;
        held.timestamp = static_cast<std::uint32_t>(packet->frame);
        held.arrival = epoch_ + packet->frame * frameLength;
        held.payload = packet->bytes;
        window.add(std::move(held));
        ReorderWindow::Packet next;
        std::uint32_t lost = 0;
        while (window.take(epoch_ + packet->frame * frameLength, next, lost) == ReorderWindow::Next::packet)
        {
            take(next.payload, static_cast<int>(next.timestamp));
        }
    }
    judgeRecording(whole);
    judge(*passed_);
    judge(*packedAgain_);
    EXPECT_EQ(damagedFrames() > 0, GetParam().lost > 0);
}

TEST_P(IngestTrackLoss, WhatComesOutOfOrderIsLeftOutAndTearsNothing)
{
    std::vector<bool> whole;
    for (const Packet* const packet : arriving(whole))
    {
        take(packet->bytes, packet->frame);
    }
    if (GetParam().reordered > 0)
    {
        whole.assign(frames, false);
    }
    judgeRecording(whole);
    judge(*passed_);
    judge(*packedAgain_);
    EXPECT_EQ(damagedFrames() > 0, GetParam().lost + GetParam().reordered > 0);
    EXPECT_GT(recording_->units.size(), frames / 10);
}

/// A camera with two frames between each and its reference, which stand behind it and are presented before it.
TEST(IngestTrackReordering, LostFrameLeavesDecodeTimesInOrder)
{
    const Bytes reorderingSps = test::fromHex("674d400be88146d808800000030080000019078a1489");
    const Bytes itsPps = test::fromHex("68ebe3cb20");
    const auto mediaTap = std::make_shared<MediaTap>();
    const auto recording = std::make_shared<test::CollectedUnits>();
    mediaTap->add(recording);
    const MonotonicTime epoch = HostClock::system().now();
    std::string error;
    const auto reading = IngestTrack::make(
        {Codec::h264, track(false), payloadType, IngestTrack::Clock::server, epoch, "camera 7/2"}, mediaTap,
        error);
    ASSERT_TRUE(reading) << error;
    std::uint16_t sequence = 0;
    const auto give = [&](const Bytes& payload, int presented, int sent, bool marker)
    {
        Bytes packet(12);
        packet[0] = 0x80;
        packet[1] = payloadType | (marker ? 0x80 : 0);
        writeBig16(packet.data() + 2, sequence++);
        writeBig32(packet.data() + 4, firstTimestamp + static_cast<std::uint32_t>(presented) * frameTicks);
        packet.insert(packet.end(), payload.begin(), payload.end());
        reading->onPacket(packet.data(), packet.size(), epoch + (sent + 1) * frameLength);
    };
    give(reorderingSps, 0, 0, false);
    give(itsPps, 0, 0, false);
    give(idr(), 0, 0, true);
    constexpr int lost = 4;
    for (int group = 0; group < 10; ++group)
    {
        const int first = group * 3 + 1;
        for (const int place : {2, 0, 1})
        {
            const std::vector<Bytes> packets = fragments(p(200), 150);
            const int sent = first + (place == 2 ? 0 : place + 1);
            // Of one frame the first part is missing.
            if (group == lost && place == 1)
            {
                ++sequence;
            }
            else
            {
                give(packets[0], first + place, sent, false);
            }
            give(packets[1], first + place, sent, true);
        }
    }
    ASSERT_EQ(recording->units.size(), 30U);
    EXPECT_LT(recording->units[2]->captureTime, recording->units[1]->captureTime);
    for (std::size_t i = 1; i < recording->units.size(); ++i)
    {
        EXPECT_GT(recording->units[i]->decodeTime, recording->units[i - 1]->decodeTime) << i;
        EXPECT_LE(recording->units[i]->decodeTime, recording->units[i]->captureTime) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Networks, IngestTrackLoss,
                         testing::Values(Network{"Perfect", 0, 0, 0}, Network{"Loss1", 1, 0, 0},
                                         Network{"Loss5", 5, 0, 0}, Network{"Loss20", 20, 0, 0},
                                         Network{"Reorder1", 0, 1, 0}, Network{"Reorder20", 0, 20, 0},
                                         Network{"Repeat1", 0, 0, 1}, Network{"Repeat20", 0, 0, 20},
                                         Network{"All1", 1, 1, 1}, Network{"All5", 5, 5, 5},
                                         Network{"All20", 20, 20, 20}),
                         [](const auto& network) { return std::string(network.param.name); });

}  // namespace
}  // namespace refhost

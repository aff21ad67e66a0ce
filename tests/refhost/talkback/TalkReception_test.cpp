#include "refhost/talkback/TalkReception.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/Instants.h"
#include "tests/refhost/talkback/TalkFakes.h"

namespace refhost
{
namespace test
{
namespace
{

class TalkReceptionTest : public testing::Test
{
protected:
    /// Adds a packet of 20 ms whose payload starts with its number.
    bool bring(std::uint16_t number, std::int64_t ms)
    {
        RtpPacket packet;
        packet.sequence = number;
        packet.timestamp = number * 160U;
        packet.payload[0] = static_cast<std::uint8_t>(number);
        return bring(packet, ms);
    }

    bool bring(const RtpPacket& packet, std::int64_t ms)
    {
        return reception.add({packet.bytes(), atMs(ms)});
    }

    bool takeAt(std::int64_t ms, bool audible = true)
    {
        return reception.take(atMs(ms), audible, samples);
    }

    const std::shared_ptr<std::vector<Decoded>> calls = std::make_shared<std::vector<Decoded>>();
    TalkReception reception{*backChannelOf(Codec::pcmu), TalkSettings(),
                            TalkDepayloader::make(*backChannelOf(Codec::pcmu)),
                            [made = calls] { return std::make_unique<FakeDecoder>(made); }};
    std::vector<std::int16_t> samples;
};

TEST_F(TalkReceptionTest, AudioInOrderIsDecodedInOrder)
{
    EXPECT_FALSE(reception.hasSource());
    EXPECT_TRUE(bring(10, 0));
    EXPECT_TRUE(bring(11, 20));
    EXPECT_FALSE(takeAt(20));
    EXPECT_EQ((std::vector<std::int16_t>{10, 11}), samples);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(10), frame(11)}), *calls);
    EXPECT_TRUE(reception.hasSource());
    EXPECT_EQ(0x01020304U, reception.source());
    EXPECT_EQ(2U, reception.statistics().packets);
}

TEST_F(TalkReceptionTest, LossIsConcealedForAsLongAsItWas)
{
    bring(10, 0);
    bring(13, 60);
    EXPECT_TRUE(takeAt(60)) << "two packets may still come";
    EXPECT_FALSE(takeAt(100));
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(10), concealed(320), frame(13)}), *calls);
    EXPECT_EQ(2U, reception.statistics().lost);
    EXPECT_EQ(2, reception.report(atMs(100)).cumulativeLost);
    EXPECT_TRUE(bring(11, 110));
    EXPECT_FALSE(takeAt(110));
    EXPECT_EQ(1U, reception.statistics().late);
    EXPECT_EQ(4U, calls->size());
}

TEST_F(TalkReceptionTest, ALongHoleIsConcealedForAFifthOfASecond)
{
    bring(10, 0);
    bring(100, 1800);
    takeAt(0);
    EXPECT_FALSE(takeAt(1840));
    EXPECT_EQ(concealed(1600), (*calls)[2]);
}

TEST_F(TalkReceptionTest, TimestampJumpOfASilentSenderIsNoLoss)
{
    bring(10, 0);
    RtpPacket later;
    later.sequence = 11;
    later.timestamp = 80000;
    later.payload[0] = 11;
    later.marker = true;
    bring(later, 10000);
    takeAt(0);
    takeAt(10000);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(10), frame(11)}), *calls);
}

TEST_F(TalkReceptionTest, ExchangedPacketsAreDecodedInOrder)
{
    bring(10, 0);
    bring(12, 20);
    bring(11, 21);
    EXPECT_FALSE(takeAt(21));
    EXPECT_EQ((std::vector<std::int16_t>{10, 11, 12}), samples);
    EXPECT_TRUE(bring(12, 22));
    EXPECT_EQ(1U, reception.statistics().late);
    bring(14, 30);
    bring(14, 31);
    EXPECT_EQ(1U, reception.statistics().duplicates);
}

TEST_F(TalkReceptionTest, PacketsOfOtherKindsAreCountedAndDropped)
{
    EXPECT_FALSE(reception.add({{}, atMs(0)}));
    EXPECT_FALSE(reception.add({{1, 2, 3}, atMs(0)}));
    RtpPacket other;
    other.payloadType = 8;
    EXPECT_FALSE(bring(other, 0));
    EXPECT_FALSE(reception.hasSource());
    EXPECT_EQ(2U, reception.statistics().malformed);
    EXPECT_EQ(1U, reception.statistics().wrongType);
    bring(10, 0);
    EXPECT_FALSE(bring(40000, 1));
    EXPECT_EQ(1U, reception.statistics().outOfSequence);
    takeAt(1);
    EXPECT_EQ(1U, samples.size());
}

TEST_F(TalkReceptionTest, AnotherSourceIsAudibleWhenTheFirstWasSilentForHalfASecond)
{
    bring(10, 0);
    RtpPacket other;
    other.ssrc = 0x99;
    other.sequence = 5;
    other.payload[0] = 99;
    EXPECT_FALSE(bring(other, 499));
    EXPECT_EQ(1U, reception.statistics().foreign);
    EXPECT_EQ(0x01020304U, reception.source());
    EXPECT_TRUE(bring(other, 500));
    EXPECT_EQ(0x99U, reception.source());
    EXPECT_EQ(5U, reception.report(atMs(0)).highestSequence);
    EXPECT_FALSE(bring(11, 501));
    takeAt(501);
    EXPECT_EQ(frame(99), calls->back());
}

TEST_F(TalkReceptionTest, RestartOfTheSourceIsNoLoss)
{
    bring(10, 0);
    takeAt(0);
    bring(30000, 20);
    bring(30001, 40);
    takeAt(40);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(10), reset(), frame(30001 & 0xff)}), *calls);
    EXPECT_EQ(0U, reception.statistics().lost);
}

TEST_F(TalkReceptionTest, AudioThatCannotBeDecodedIsCountedAndConcealed)
{
    bring(10, 0);
    RtpPacket broken;
    broken.sequence = 11;
    broken.timestamp = 11 * 160;
    broken.payload[0] = 0xff;
    bring(broken, 20);
    bring(12, 40);
    takeAt(40);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(10), concealed(160), frame(12)}), *calls);
    EXPECT_EQ(1U, reception.statistics().malformed);
}

TEST_F(TalkReceptionTest, APayloadThatBreaksItsCodecsRulesIsConcealedLater)
{
    const SubMediaInfo track = *backChannelOf(Codec::aac);
    TalkReception aac(track, TalkSettings(), TalkDepayloader::make(track),
                      [this] { return std::make_unique<FakeDecoder>(calls); });
    RtpPacket packet;
    packet.payloadType = static_cast<std::uint8_t>(track.payloadType);
    packet.marker = true;
    for (const Bytes& payload : {Bytes{0, 16, 0, 8, 10}, Bytes{0, 16, 0, 8}, Bytes{0, 16, 0, 8, 12}})
    {
        packet.payload = payload;
        aac.add({packet.bytes(), atMs(0)});
        aac.take(atMs(0), true, samples);
        ++packet.sequence;
        packet.timestamp += 1024;
    }
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(10), concealed(1024), frame(12)}), *calls);
    EXPECT_EQ(1U, aac.statistics().malformed);
}

TEST_F(TalkReceptionTest, APacketOfCountlessUnitsIsDecodedOnlyAsFarAsAnOutputTakesIt)
{
    const SubMediaInfo track = *backChannelOf(Codec::aac);
    TalkReception aac(track, TalkSettings(), TalkDepayloader::make(track),
                      [this] { return std::make_unique<FakeDecoder>(calls); });
    constexpr unsigned units = 1300;
    RtpPacket packet;
    packet.payloadType = static_cast<std::uint8_t>(track.payloadType);
    packet.marker = true;
    packet.payload = {units * 16 >> 8U, units * 16 & 0xffU};
    for (unsigned i = 0; i < units; ++i)
    {
        packet.payload.insert(packet.payload.end(), {0, 8});
    }
    packet.payload.resize(packet.payload.size() + units, 7);
    for (packet.sequence = 0; packet.sequence < 3; ++packet.sequence)
    {
        aac.add({packet.bytes(), atMs(0)});
    }
    aac.take(atMs(0), true, samples);
    EXPECT_EQ(7U, samples.size()) << "of 64 ms each";
    EXPECT_EQ(3U, aac.statistics().overrun);
}

TEST_F(TalkReceptionTest, AFloodIsDecodedOnlyAsFarAsAnOutputTakesIt)
{
    RtpPacket packet;
    packet.payload.resize(800);
    for (packet.sequence = 0; packet.sequence < 10; ++packet.sequence)
    {
        bring(packet, 0);
    }
    takeAt(0);
    EXPECT_EQ(4U, samples.size()) << "of 100 ms each";
    EXPECT_EQ(6U, reception.statistics().overrun);
    bring(packet, 0);
    takeAt(0);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(0x55)}),
              (std::vector<Decoded>(calls->end() - 2, calls->end())))
        << "the next turn starts again";
}

TEST_F(TalkReceptionTest, ConcealedHolesCountAsAudio)
{
    for (std::uint16_t number = 0; number < 20; number += 2)
    {
        RtpPacket packet;
        packet.sequence = number;
        packet.timestamp = number * 80000U;
        bring(packet, 0);
    }
    takeAt(50);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(0x55), concealed(1600), frame(0x55), concealed(1600)}),
              *calls);
}

TEST_F(TalkReceptionTest, InaudibleSenderIsNotDecodedAndStartsAgainLater)
{
    bring(10, 0);
    takeAt(0, false);
    EXPECT_TRUE(calls->empty());
    bring(11, 20);
    takeAt(20);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(11)}), *calls);
}

TEST_F(TalkReceptionTest, AudioThatWaitedTooLongForTheOutputIsNotPlayed)
{
    bring(10, 0);
    bring(11, 20);
    bring(12, 120);
    takeAt(125);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(12)}), *calls);
    EXPECT_EQ(2U, reception.statistics().stale);
}

TEST_F(TalkReceptionTest, SenderReportsAreAnsweredAlsoWhenTheyComeFirst)
{
    reception.noteSenderReport(0x01020304, 0xaabbccdd, atMs(1000));
    bring(10, 1500);
    ReceptionReport report = reception.report(atMs(2000));
    EXPECT_EQ(0xaabbccddU, report.lastReport);
    EXPECT_EQ(65536U, report.delaySinceReport);
    reception.noteSenderReport(0x99, 0x11111111, atMs(2000));
    EXPECT_EQ(0xaabbccddU, reception.report(atMs(2000)).lastReport) << "that is another source";
    reception.noteSenderReport(0x01020304, 0x22222222, atMs(2000));
    EXPECT_EQ(0x22222222U, reception.report(atMs(2000)).lastReport);
}

TEST_F(TalkReceptionTest, AfterAResetAnythingMayComeFirst)
{
    bring(10, 0);
    bring(30, 1);
    reception.reset();
    EXPECT_FALSE(reception.hasSource());
    EXPECT_EQ(0U, reception.statistics().packets);
    RtpPacket other;
    other.ssrc = 0x99;
    other.sequence = 5;
    other.payload[0] = 1;
    EXPECT_TRUE(bring(other, 2));
    takeAt(2);
    EXPECT_EQ((std::vector<Decoded>{reset(), frame(1)}), *calls);
    EXPECT_EQ(0, reception.report(atMs(0)).cumulativeLost);
}

}  // namespace
}  // namespace test
}  // namespace refhost

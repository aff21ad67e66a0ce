#include "refhost/ingest/IngestTrack.h"

#include <gtest/gtest.h>

#include <vector>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/HostClock.h"
#include "tests/refhost/capture/CollectingSink.h"
#include "tests/refhost/ingest/CollectedUnits.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

constexpr std::uint8_t payloadType = 0;
constexpr std::uint32_t blockTicks = 160;
constexpr Duration blockLength = 20ms;
constexpr int largePayload = 1364;

/// A track of PCMU whose camera sends blocks of 20 milliseconds.
class IngestTrackTest : public testing::Test
{
protected:
    void open(IngestTrack::Clock clock = IngestTrack::Clock::camera)
    {
        PayloadDescription description;
        description.encodingName = "PCMU";
        description.clockRate = 8000;
        std::string error;
        track = IngestTrack::make({Codec::pcmu, description, payloadType, clock, epoch, "camera 7/2"},
                                  mediaTap, error);
        ASSERT_TRUE(track) << error;
    }

    std::shared_ptr<CollectingSink> watch(int payloadSize)
    {
        auto sink = std::make_shared<CollectingSink>();
        auto tap = std::make_shared<PacketTap>();
        tap->add(sink);
        taps[payloadSize] = tap;
        track->setTaps(taps);
        return sink;
    }

    /// Has the next block arrive, `at` after the epoch.
    void give(Duration at, std::uint8_t type = payloadType)
    {
        std::vector<std::uint8_t> packet(12 + blockTicks, 0x55);
        packet[0] = 0x80;
        packet[1] = type;
        writeBig16(packet.data() + 2, sequence++);
        writeBig32(packet.data() + 4, timestamp);
        writeBig32(packet.data() + 8, ssrc);
        packet[12] = static_cast<std::uint8_t>(sequence);
        timestamp += blockTicks;
        track->onPacket(packet.data(), packet.size(), epoch + at);
    }

    /// A sender report: the camera's clock shows `wall` at the timestamp of the next block.
    IngestTrack::Report report(NtpTime wall, Duration at)
    {
        std::vector<std::uint8_t> packet(28, 0);
        packet[0] = 0x80;
        packet[1] = 200;
        packet[3] = 6;
        writeBig32(packet.data() + 4, ssrc);
        writeBig32(packet.data() + 8, wall.wholeSeconds());
        writeBig32(packet.data() + 12, wall.fraction());
        writeBig32(packet.data() + 16, timestamp);
        return track->onReport(packet.data(), packet.size(), epoch + at);
    }

    IngestTrack::Report bye(std::uint32_t source)
    {
        std::vector<std::uint8_t> packet(8, 0);
        packet[0] = 0x81;
        packet[1] = 203;
        packet[3] = 1;
        writeBig32(packet.data() + 4, source);
        return track->onReport(packet.data(), packet.size(), epoch);
    }

    const MonotonicTime epoch = HostClock::system().now();
    const std::shared_ptr<MediaTap> mediaTap = std::make_shared<MediaTap>();
    std::unique_ptr<IngestTrack> track;
    IngestTrack::Taps taps;
    std::uint16_t sequence = 0xfffe;
    std::uint32_t timestamp = 0xffffff00;
    std::uint32_t ssrc = 0x1234;
};

TEST_F(IngestTrackTest, CamerasPacketsThatFitArePassedOnWithTheirTimestamps)
{
    open();
    const auto viewer = watch(largePayload);
    const std::uint32_t first = timestamp;
    for (int i = 0; i < 10; ++i)
    {
        give(i * blockLength);
    }
    const std::vector<AccessUnitPtr> units = viewer->units();
    ASSERT_EQ(units.size(), 10U);
    for (std::size_t i = 0; i < units.size(); ++i)
    {
        EXPECT_EQ(units[i]->rtpTimestamp, first + static_cast<std::uint32_t>(i) * blockTicks);
        ASSERT_EQ(units[i]->packets.size(), 1U);
        EXPECT_EQ(units[i]->payloadBytes, blockTicks);
        const std::size_t payload = units[i]->packets[0].offset + AccessUnit::rtpHeaderSize;
        EXPECT_EQ(units[i]->bytes[payload], static_cast<std::uint8_t>(0xffff + i));
        EXPECT_TRUE(units[i]->keyFrame);
    }
}

TEST_F(IngestTrackTest, PacketsThatAreTooLargeForAViewerArePackedAgain)
{
    open();
    const auto small = watch(100);
    const auto large = watch(largePayload);
    const std::uint32_t first = timestamp;
    for (int i = 0; i < 3; ++i)
    {
        give(i * blockLength);
    }
    const std::vector<AccessUnitPtr> units = small->units();
    ASSERT_EQ(units.size(), 6U);
    for (std::size_t i = 0; i < units.size(); ++i)
    {
        EXPECT_LE(units[i]->payloadBytes, 100U);
        EXPECT_EQ((units[i]->rtpTimestamp - first) / blockTicks, i / 2);
    }
    EXPECT_EQ(large->units().size(), 3U);
}

TEST_F(IngestTrackTest, ViewersTimestampsGoOnWhereTheCameraStartsOver)
{
    open();
    const auto viewer = watch(largePayload);
    give(0s);
    give(blockLength);
    sequence = 7;
    timestamp = 1'000'000;
    ssrc = 0x9999;
    give(2 * blockLength);
    give(3 * blockLength);
    const std::vector<AccessUnitPtr> units = viewer->units();
    ASSERT_EQ(units.size(), 4U);
    EXPECT_NEAR(units[2]->rtpTimestamp - units[1]->rtpTimestamp, blockTicks, 160);
    EXPECT_EQ(units[3]->rtpTimestamp - units[2]->rtpTimestamp, blockTicks);
    EXPECT_GT(units[2]->captureTime, units[1]->captureTime);
}

TEST_F(IngestTrackTest, CaptureTimesAreWhatTheCameraReports)
{
    open();
    const auto recording = std::make_shared<test::CollectedUnits>();
    mediaTap->add(recording);
    // Captured 100 ms before it arrives.
    const WallTime captured = HostClock::system().wall().mapping().at(epoch - 100ms);
    give(0s);
    EXPECT_FALSE(track->hasCameraTime());
    EXPECT_FALSE(report(NtpTime(captured + blockLength), blockLength).clockWrong);
    EXPECT_TRUE(track->hasCameraTime());
    for (int i = 1; i < 200; ++i)
    {
        give(i * blockLength);
    }
    ASSERT_EQ(recording->units.size(), 200U);
    const Duration offset = recording->units.back()->captureTime - (epoch + 199 * blockLength);
    EXPECT_NEAR(static_cast<double>(offset.count()), -100e6, 2e6);
    EXPECT_EQ(recording->units.back()->decodeTime, recording->units.back()->captureTime);
    EXPECT_EQ(recording->units.back()->duration, blockLength);
}

TEST_F(IngestTrackTest, WithTheServersClockReportsAreNotHeeded)
{
    open(IngestTrack::Clock::server);
    const auto recording = std::make_shared<test::CollectedUnits>();
    mediaTap->add(recording);
    give(0s);
    EXPECT_FALSE(report(NtpTime(wallTimeOfUnix(86400)), blockLength).clockWrong);
    for (int i = 1; i < 50; ++i)
    {
        give(i * blockLength);
    }
    const Duration offset = recording->units.back()->captureTime - (epoch + 49 * blockLength);
    EXPECT_NEAR(static_cast<double>(offset.count()), 0, 1e6);
}

TEST_F(IngestTrackTest, ClockThatIsFarOffIsReported)
{
    open();
    give(0s);
    EXPECT_TRUE(report(NtpTime(wallTimeOfUnix(86400)), blockLength).clockWrong);
}

TEST_F(IngestTrackTest, OnlyTheTracksOwnByeEndsIt)
{
    open();
    EXPECT_FALSE(bye(ssrc).ended) << "nothing came yet";
    give(0s);
    EXPECT_FALSE(bye(ssrc + 1).ended);
    EXPECT_TRUE(bye(ssrc).ended);
}

TEST_F(IngestTrackTest, ReceiverReportsCountWhatWasLost)
{
    open();
    EXPECT_FALSE(track->receptionReport(epoch));
    give(0s);
    give(blockLength);
    sequence += 3;
    give(5 * blockLength);
    const std::optional<ReceptionReport> reception = track->receptionReport(epoch + 6 * blockLength);
    ASSERT_TRUE(reception);
    EXPECT_EQ(reception->cumulativeLost, 3);
    EXPECT_EQ(reception->highestSequence, 0x10003U);
}

TEST_F(IngestTrackTest, MalformedPacketsAndThoseOfAnotherPayloadTypeAreLeftOut)
{
    open();
    const auto viewer = watch(largePayload);
    give(0s, 96);
    const std::vector<std::uint8_t> broken{0x80, 0, 0};
    track->onPacket(broken.data(), broken.size(), epoch);
    EXPECT_EQ(track->ssrc(), 0U);
    give(blockLength);
    EXPECT_EQ(viewer->units().size(), 1U);
}

TEST_F(IngestTrackTest, RepeatedPacketIsLeftOut)
{
    open();
    const auto viewer = watch(largePayload);
    give(0s);
    --sequence;
    timestamp -= blockTicks;
    give(blockLength);
    EXPECT_EQ(viewer->units().size(), 1U);
}

TEST_F(IngestTrackTest, FormatIsKnownFromTheDescription)
{
    open();
    ASSERT_TRUE(track->format());
    EXPECT_EQ(track->format()->codec, Codec::pcmu);
    EXPECT_EQ(track->format()->sampleRate, 8000);
}

}  // namespace
}  // namespace refhost

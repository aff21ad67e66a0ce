#include "refhost/rtsp/session/InterleavedChannels.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

const std::string report("\x80\xc9\0\1\0\0\0\1", 8);
const std::string packet("\x80\0\0\1\0\0\0\1\0\0\0\1x", 13);

class RecordingListener : public TransportListener
{
public:
    void onTransportReady() override {}

    void onRtcp(const std::uint8_t* data, std::size_t size) override
    {
        received.emplace_back(reinterpret_cast<const char*>(data), size);
    }

    void onRtp(const std::uint8_t* data, std::size_t size) override
    {
        receivedRtp.emplace_back(reinterpret_cast<const char*>(data), size);
    }

    std::vector<std::string> received;
    std::vector<std::string> receivedRtp;
};

class InterleavedChannelsTest : public testing::Test
{
protected:
    void receive(int channel, const std::string& bytes)
    {
        channels_->received(channel, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }

    std::shared_ptr<InterleavedChannels> channels_ = std::make_shared<InterleavedChannels>();
};

TEST_F(InterleavedChannelsTest, GivesTheRequestedPair)
{
    const auto lease = channels_->lease(7, 12);
    ASSERT_NE(lease, nullptr);
    EXPECT_EQ(lease->rtpChannel(), 7);
    EXPECT_EQ(lease->rtcpChannel(), 12);
}

TEST_F(InterleavedChannelsTest, GivesTheLowestFreePairOtherwise)
{
    const auto first = channels_->lease(-1, -1);
    const auto odd = channels_->lease(3, 4);
    const auto taken = channels_->lease(4, 5);
    EXPECT_EQ(first->rtpChannel(), 0);
    EXPECT_EQ(taken->rtpChannel(), 6) << "2 and 4 have a channel in use beside them";
    EXPECT_EQ(taken->rtcpChannel(), 7);
}

TEST_F(InterleavedChannelsTest, APairIsFreeAgainWhenItsLeaseGoes)
{
    {
        const auto lease = channels_->lease(0, 1);
    }
    EXPECT_EQ(channels_->lease(0, 1)->rtpChannel(), 0);
}

TEST_F(InterleavedChannelsTest, RefusesWhenEveryPairIsInUse)
{
    std::vector<std::unique_ptr<InterleavedChannels::Lease>> leases;
    for (int i = 0; i < 128; ++i)
    {
        leases.push_back(channels_->lease(-1, -1));
        ASSERT_NE(leases.back(), nullptr);
    }
    EXPECT_EQ(channels_->lease(-1, -1), nullptr);
    EXPECT_EQ(channels_->lease(4, 5), nullptr);
    leases.pop_back();
    EXPECT_EQ(channels_->lease(4, 5)->rtpChannel(), 254);
}

TEST_F(InterleavedChannelsTest, RtcpReachesTheTransportOfItsChannelOnly)
{
    const auto listener = std::make_shared<RecordingListener>();
    const SafePointer<InterleavedTransport> transport(
        new InterleavedTransport(std::weak_ptr<FrameWriter>(), 0, 1, nullptr));
    transport->setListener(listener);
    auto lease = channels_->lease(0, 1);
    receive(1, report);
    lease->deliverTo(transport);
    receive(0, packet);
    receive(1, report);
    receive(2, "unknown");
    receive(-1, "unknown");
    EXPECT_EQ(listener->received, std::vector<std::string>{report});
    EXPECT_TRUE(listener->receivedRtp.empty());
    lease.reset();
    receive(1, report);
    EXPECT_EQ(listener->received.size(), 1u);
}

TEST_F(InterleavedChannelsTest, RtpReachesATransportThatTakesIt)
{
    const auto listener = std::make_shared<RecordingListener>();
    const SafePointer<InterleavedTransport> transport(
        new InterleavedTransport(std::weak_ptr<FrameWriter>(), 4, 5, nullptr));
    transport->setListener(listener);
    const auto lease = channels_->lease(4, 5);
    lease->deliverTo(transport);
    receive(4, report);
    transport->takeRtp();
    receive(4, packet);
    receive(5, report);
    EXPECT_EQ(listener->receivedRtp, std::vector<std::string>{packet});
    EXPECT_EQ(listener->received, std::vector<std::string>{report});
}

}  // namespace
}  // namespace refhost

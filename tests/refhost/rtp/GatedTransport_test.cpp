#include "refhost/rtp/GatedTransport.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "refhost/rtp/srtp/SrtpProtection.h"
#include "tests/refhost/rtp/srtp/SrtpPeer.h"

namespace refhost
{
namespace test
{
namespace
{

using Bytes = SrtpPeer::Bytes;

class Listener : public TransportListener
{
public:
    void onTransportReady() override {}

    void onRtcp(const std::uint8_t* data, std::size_t size) override
    {
        rtcp.emplace_back(data, data + size);
    }

    void onRtp(const std::uint8_t* data, std::size_t size) override
    {
        rtp.emplace_back(data, data + size);
    }

    std::vector<Bytes> rtcp;
    std::vector<Bytes> rtp;
};

class ProtectedReceiveQueueTest : public testing::Test
{
protected:
    ProtectedReceiveQueueTest()
    {
        queue_.setListener(listener_);
        queue_.protect(std::make_shared<SrtpProtection>(key_, key_));
    }

    bool active() const
    {
        return liveness_->lastActivity() != MonotonicTime();
    }

    const SrtpKey key_ = SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag80);
    SrtpPeer peer_{key_, key_};
    const std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
    const std::shared_ptr<SessionLiveness> liveness_ = std::make_shared<SessionLiveness>();
    TransportReceiveQueue queue_{liveness_};
};

TEST_F(ProtectedReceiveQueueTest, PlainPacketsAreDroppedAndNoActivity)
{
    const Bytes report = SrtpPeer::report(1);
    queue_.onRtcp(report.data(), report.size());
    const Bytes packet = SrtpPeer::packet(1, 1);
    queue_.onRtp(packet.data(), packet.size());
    EXPECT_TRUE(listener_->rtcp.empty());
    EXPECT_TRUE(listener_->rtp.empty());
    EXPECT_FALSE(active());
}

TEST_F(ProtectedReceiveQueueTest, AuthenticReportsArriveOpenAndAreActivity)
{
    const Bytes sealed = peer_.sealRtcp(SrtpPeer::report(1));
    queue_.onRtcp(sealed.data(), sealed.size());
    EXPECT_EQ(listener_->rtcp, std::vector<Bytes>{SrtpPeer::report(1)});
    EXPECT_TRUE(active());
}

TEST_F(ProtectedReceiveQueueTest, AuthenticPacketsArriveOpenAndOnce)
{
    const Bytes sealed = peer_.seal(SrtpPeer::packet(1, 1));
    queue_.onRtp(sealed.data(), sealed.size());
    queue_.onRtp(sealed.data(), sealed.size());
    EXPECT_EQ(listener_->rtp, (std::vector<Bytes>{SrtpPeer::packet(1, 1)}));
    EXPECT_TRUE(active());
}

}  // namespace
}  // namespace test
}  // namespace refhost

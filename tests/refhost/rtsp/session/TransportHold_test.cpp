#include "refhost/rtsp/session/TransportHold.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace
{

using test::FakeTransport;
using test::Wire;

class TransportHoldTest : public testing::Test
{
protected:
    SafePointer<RtpTransport> transport(const std::shared_ptr<Wire>& wire)
    {
        return SafePointer<RtpTransport>(SafePointer<FakeTransport>(new FakeTransport(wire)));
    }

    std::shared_ptr<Wire> wire_ = std::make_shared<Wire>();
    std::shared_ptr<Wire> other_ = std::make_shared<Wire>();
};

TEST_F(TransportHoldTest, HoldsUntilDestroyed)
{
    {
        TransportHold hold;
        hold.add(transport(wire_));
        EXPECT_EQ(wire_->status, SendStatus::held);
    }
    EXPECT_EQ(wire_->status, SendStatus::sent);
}

TEST_F(TransportHoldTest, KeepsHoldingWhenMoved)
{
    auto outer = std::make_unique<TransportHold>();
    {
        TransportHold hold;
        hold.add(transport(wire_));
        outer = std::make_unique<TransportHold>(std::move(hold));
    }
    EXPECT_EQ(wire_->status, SendStatus::held);
    outer.reset();
    EXPECT_EQ(wire_->status, SendStatus::sent);
}

TEST_F(TransportHoldTest, AbsorbedTransportsAreReleasedByTheAbsorber)
{
    TransportHold hold;
    hold.add(transport(wire_));
    {
        TransportHold earlier;
        earlier.add(transport(other_));
        hold.absorb(earlier);
    }
    EXPECT_EQ(other_->status, SendStatus::held);
}

}  // namespace
}  // namespace refhost

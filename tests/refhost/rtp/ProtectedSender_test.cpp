#include "refhost/rtp/ProtectedSender.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <vector>

#include "refhost/base/ByteOrder.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

/// Notes the sequence numbers that it seals, and refuses one that it sealed before.
class OnceOnly : public PacketProtection
{
public:
    AccessUnitPtr seal(const AccessUnit& unit, std::size_t firstPacket,
                       const RtpHeaderFields& header) override
    {
        auto sealed = std::make_shared<AccessUnit>();
        for (std::size_t i = firstPacket; i < unit.packets.size(); ++i)
        {
            const auto sequence = static_cast<std::uint16_t>(header.sequence + i - firstPacket);
            EXPECT_TRUE(numbers.insert(sequence).second) << sequence << " was sealed twice";
            std::vector<std::uint8_t> packet(AccessUnit::rtpHeaderSize + 3);
            writeBig16(packet.data() + 2, sequence);
            sealed->append(packet.data(), packet.size());
        }
        return usable ? sealed : nullptr;
    }

    bool sealRtcp(std::vector<std::uint8_t>&) override
    {
        return usable;
    }

    bool openRtp(std::uint8_t*, std::size_t&) override
    {
        return true;
    }

    bool openRtcp(std::uint8_t*, std::size_t&) override
    {
        return true;
    }

    bool usable = true;
    std::set<std::uint16_t> numbers;
};

class ProtectedSenderTest : public testing::Test
{
protected:
    /// Sends with room for `taken` packets.
    SendResult send(const AccessUnitPtr& unit, std::size_t first, std::uint16_t sequence, std::size_t taken)
    {
        return sender_.send(
            unit, first, {7, sequence, 1000, 96},
            [&](const AccessUnitPtr& sealed, std::size_t from, const RtpHeaderFields& header)
            {
                const std::size_t count = std::min(taken, sealed->packets.size() - from);
                for (std::size_t i = from; i < from + count; ++i)
                {
                    const std::uint8_t* packet = sealed->bytes.data() + sealed->packets[i].offset;
                    EXPECT_EQ(readBig16(packet + 2), static_cast<std::uint16_t>(header.sequence + i - from));
                    sent_.push_back(readBig16(packet + 2));
                }
                const bool all = from + count == sealed->packets.size();
                return SendResult{all ? SendStatus::sent : SendStatus::congested, count};
            });
    }

    static AccessUnitPtr unit(std::size_t packets)
    {
        return makeUnit(1000, 0, true, packets);
    }

    std::shared_ptr<OnceOnly> protection_ = std::make_shared<OnceOnly>();
    ProtectedSender sender_{protection_};
    std::vector<int> sent_;
};

TEST_F(ProtectedSenderTest, WholeUnitsKeepTheirSequenceNumbers)
{
    EXPECT_EQ(send(unit(2), 0, 10, 9).status, SendStatus::sent);
    EXPECT_EQ(send(unit(3), 0, 12, 9).packets, 3U);
    EXPECT_EQ(sent_, (std::vector<int>{10, 11, 12, 13, 14}));
}

TEST_F(ProtectedSenderTest, AContinuedUnitIsNotSealedAgain)
{
    const AccessUnitPtr first = unit(4);
    EXPECT_EQ(send(first, 0, 10, 1).packets, 1U);
    EXPECT_EQ(send(first, 1, 11, 0).packets, 0U);
    EXPECT_EQ(send(first, 1, 11, 2).packets, 2U);
    EXPECT_EQ(send(first, 3, 13, 2).status, SendStatus::sent);
    EXPECT_EQ(send(unit(1), 0, 14, 2).status, SendStatus::sent);
    EXPECT_EQ(sent_, (std::vector<int>{10, 11, 12, 13, 14}));
    EXPECT_EQ(protection_->numbers.size(), 5U);
}

TEST_F(ProtectedSenderTest, ASkippedRestLeavesItsSequenceNumbersUsed)
{
    EXPECT_EQ(send(unit(4), 0, 10, 1).packets, 1U);
    // The owner goes on with the number of the first packet not taken.
    EXPECT_EQ(send(unit(2), 0, 11, 9).status, SendStatus::sent);
    EXPECT_EQ(send(unit(2), 0, 13, 0).packets, 0U);
    EXPECT_EQ(send(unit(1), 0, 13, 9).status, SendStatus::sent);
    EXPECT_EQ(sent_, (std::vector<int>{10, 14, 15, 18}));
}

TEST_F(ProtectedSenderTest, AUnitSentFromItsMiddleIsSealedFromThere)
{
    EXPECT_EQ(send(unit(4), 2, 10, 9).packets, 2U);
    EXPECT_EQ(sent_, (std::vector<int>{10, 11}));
}

TEST_F(ProtectedSenderTest, SequenceNumbersStartOver)
{
    EXPECT_EQ(send(unit(4), 0, 65534, 1).packets, 1U);
    EXPECT_EQ(send(unit(1), 0, 65535, 9).status, SendStatus::sent);
    EXPECT_EQ(sent_, (std::vector<int>{65534, 2}));
}

TEST_F(ProtectedSenderTest, AKeyThatIsUsedUpClosesTheTransport)
{
    protection_->usable = false;
    EXPECT_EQ(send(unit(1), 0, 10, 9).status, SendStatus::closed);
    EXPECT_TRUE(sent_.empty());
}

}  // namespace
}  // namespace test
}  // namespace refhost

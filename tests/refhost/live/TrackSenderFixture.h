#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "tests/refhost/live/LiveFixture.h"

namespace refhost
{
namespace test
{

/// What the tests of TrackSender's parts share.
class TrackSenderTest : public LiveFixture
{
protected:
    void hold(const std::string& session)
    {
        transport(session, video)->hold();
        transport(session, audio)->hold();
    }

    void release(const std::string& session)
    {
        transport(session, video)->release();
        transport(session, audio)->release();
    }

    static void expectFirst(const RTPPacketInfo& info, const SentPacket& packet)
    {
        EXPECT_EQ(info.sequenceNumber, packet.sequence);
        EXPECT_EQ(info.rtpTimestamp, packet.timestamp);
    }

    static bool ascending(const Wire& wire)
    {
        return std::is_sorted(wire.packets.begin(), wire.packets.end(),
                              [](const SentPacket& left, const SentPacket& right)
                              { return static_cast<std::int32_t>(left.timestamp - right.timestamp) < 0; });
    }
};

}  // namespace test
}  // namespace refhost

#include "refhost/rtsp/session/GroupKeys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/rtp/srtp/SrtpPeer.h"

namespace refhost
{
namespace test
{
namespace
{

using Users = std::set<std::string, std::less<>>;

class GroupKeysTest : public testing::Test
{
protected:
    GroupKeys::Track hand(const GroupKeys::Stream& stream, int track, const std::string& user = "a")
    {
        return keys_.hand(stream, track, user, SrtpSuite::aesCm128HmacSha1Tag80, start_);
    }

    /// Seals so many packets of the track, from a sequence number on.
    static void seal(const GroupKeys::Track& track, std::uint16_t first, std::size_t packets)
    {
        constexpr std::size_t atOnce = 1000;
        for (std::size_t sealed = 0; sealed < packets; sealed += atOnce)
        {
            const auto sequence = static_cast<std::uint16_t>(first + sealed);
            const std::size_t count = std::min(atOnce, packets - sealed);
            ASSERT_TRUE(
                track.protection->seal(*makeUnit(5000, 0, true, count), 0, {ssrc, sequence, 777, 97}));
        }
    }

    static constexpr std::uint32_t ssrc = 0x11223344;
    const GroupKeys::Stream stream_{1, 0};
    const MonotonicTime start_{std::chrono::hours(1)};
    GroupKeys keys_;
};

TEST_F(GroupKeysTest, EveryMemberIsHandedTheSameKeyOfATrack)
{
    const GroupKeys::Track first = hand(stream_, 0, "a");
    const GroupKeys::Track second = hand(stream_, 0, "b");
    EXPECT_TRUE(first.key == second.key);
    EXPECT_EQ(first.sender, second.sender);
    EXPECT_FALSE(hand(stream_, 1).key == first.key);
    EXPECT_FALSE(hand({1, 1}, 0).key == first.key);
    EXPECT_TRUE(keys_.isCurrent(stream_, 0, first.key));
    EXPECT_FALSE(keys_.isCurrent(stream_, 1, first.key));
    EXPECT_FALSE(keys_.isCurrent({2, 0}, 0, first.key));
    EXPECT_EQ(keys_.size(), 2U);
}

TEST_F(GroupKeysTest, DroppedKeysAreReplacedAndTheirHoldersForgotten)
{
    const GroupKeys::Track first = hand(stream_, 0, "a");
    hand(stream_, 1, "b");
    const GroupKeys::Track other = hand({2, 0}, 0, "");
    const auto dropped =
        keys_.drop([](GroupKeys::Stream, const Users& users) { return users.count("b") != 0; });
    EXPECT_EQ(dropped, std::set<GroupKeys::Stream>{stream_});
    EXPECT_FALSE(keys_.isCurrent(stream_, 0, first.key));
    EXPECT_TRUE(keys_.isCurrent({2, 0}, 0, other.key));
    EXPECT_FALSE(hand(stream_, 0, "a").key == first.key);
    EXPECT_TRUE(
        keys_.drop([](GroupKeys::Stream, const Users& users) { return users.count("b") != 0; }).empty());
}

TEST_F(GroupKeysTest, ALateMemberGetsHowOftenTheNumbersStartedOver)
{
    const GroupKeys::Track track = hand(stream_, 0);
    EXPECT_EQ(track.joining(ssrc, start_).rolloverCounter, 0U) << "nothing was sent";
    seal(track, 60000, 10000);
    const auto joining = track.joining(ssrc, start_ + std::chrono::seconds(100));
    EXPECT_EQ(joining.ssrc, ssrc);
    EXPECT_EQ(joining.rolloverCounter, 1U);
    SrtpPeer late(track.key, track.key);
    late.join(track.key, joining.ssrc, joining.rolloverCounter);
    const AccessUnitPtr next = track.protection->seal(*makeUnit(5000, 0, true, 1), 0, {ssrc, 4464, 777, 97});
    EXPECT_FALSE(
        late.open(SrtpPeer::Bytes(next->bytes.begin() + AccessUnit::framingSize, next->bytes.end())).empty());
    EXPECT_EQ(track.joining(7, start_).rolloverCounter, 0U) << "another source starts at 0";
}

TEST_F(GroupKeysTest, AMemberThatJoinsShortlyBeforeTheyStartOverGetsTheNextCount)
{
    const GroupKeys::Track track = hand(stream_, 0);
    seal(track, 1, 60000);
    // 600 packets a second, and 5,536 left.
    const auto later = [this](int seconds) { return start_ + std::chrono::seconds(seconds); };
    EXPECT_EQ(track.joining(ssrc, later(100)).rolloverCounter, 0U);
    EXPECT_EQ(track.joining(ssrc, later(10)).rolloverCounter, 1U) << "6,000 a second";
}

}  // namespace
}  // namespace test
}  // namespace refhost

#include "refhost/rtp/srtp/SrtpOpener.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "tests/refhost/rtp/srtp/SrtpPeer.h"

namespace refhost
{
namespace
{

using test::SrtpPeer;
using Bytes = SrtpPeer::Bytes;

class SrtpOpenerTest : public testing::TestWithParam<SrtpSuite>
{
protected:
    Bytes open(Bytes packet)
    {
        std::size_t size = packet.size();
        packet.resize(opener_->open(packet.data(), size) ? size : 0);
        return packet;
    }

    Bytes openRtcp(Bytes packet)
    {
        std::size_t size = packet.size();
        packet.resize(opener_->openRtcp(packet.data(), size) ? size : 0);
        return packet;
    }

    const SrtpKey key_ = SrtpKey::random(GetParam());
    const std::unique_ptr<SrtpOpener> opener_ = SrtpOpener::make(key_);
    SrtpPeer peer_{key_, key_};
};

TEST_P(SrtpOpenerTest, OpensWhatThePeerSeals)
{
    ASSERT_TRUE(opener_);
    EXPECT_TRUE(SrtpOpener::supports(GetParam()));
    EXPECT_EQ(open(peer_.seal(SrtpPeer::packet(7, 1))), SrtpPeer::packet(7, 1));
    EXPECT_EQ(openRtcp(peer_.sealRtcp(SrtpPeer::report(7))), SrtpPeer::report(7));
}

TEST_P(SrtpOpenerTest, APacketIsTakenOnce)
{
    const Bytes packet = peer_.seal(SrtpPeer::packet(7, 1));
    EXPECT_FALSE(open(packet).empty());
    EXPECT_TRUE(open(packet).empty());
    const Bytes report = peer_.sealRtcp(SrtpPeer::report(7));
    EXPECT_FALSE(openRtcp(report).empty());
    EXPECT_TRUE(openRtcp(report).empty());
}

TEST_P(SrtpOpenerTest, PlainAndShortPacketsAreRefused)
{
    EXPECT_TRUE(open(SrtpPeer::packet(7, 1)).empty());
    EXPECT_TRUE(openRtcp(SrtpPeer::report(7)).empty());
    const Bytes packet = peer_.seal(SrtpPeer::packet(7, 1, 20));
    const Bytes report = peer_.sealRtcp(SrtpPeer::report(7));
    for (std::size_t size = 0; size < packet.size(); ++size)
    {
        EXPECT_TRUE(open(Bytes(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size))).empty());
    }
    for (std::size_t size = 0; size < report.size(); ++size)
    {
        EXPECT_TRUE(
            openRtcp(Bytes(report.begin(), report.begin() + static_cast<std::ptrdiff_t>(size))).empty());
    }
}

TEST_P(SrtpOpenerTest, AClientHasAFewSources)
{
    for (std::uint32_t ssrc = 0; ssrc < SrtpOpener::maxSources; ++ssrc)
    {
        EXPECT_FALSE(open(peer_.seal(SrtpPeer::packet(ssrc, 1))).empty());
    }
    EXPECT_TRUE(open(peer_.seal(SrtpPeer::packet(1000, 1))).empty());
    EXPECT_TRUE(openRtcp(peer_.sealRtcp(SrtpPeer::report(1000))).empty());
    EXPECT_FALSE(open(peer_.seal(SrtpPeer::packet(0, 2))).empty());
}

TEST_P(SrtpOpenerTest, ForgedPacketsTakeNoSource)
{
    for (std::uint32_t ssrc = 0; ssrc < 2 * SrtpOpener::maxSources; ++ssrc)
    {
        EXPECT_TRUE(open(SrtpPeer::packet(ssrc, 1)).empty());
    }
    EXPECT_FALSE(open(peer_.seal(SrtpPeer::packet(1000, 1))).empty());
}

INSTANTIATE_TEST_SUITE_P(Suites, SrtpOpenerTest,
                         testing::Values(SrtpSuite::aesCm128HmacSha1Tag80, SrtpSuite::aesCm128HmacSha1Tag32,
                                         SrtpSuite::aeadAes128Gcm),
                         [](const testing::TestParamInfo<SrtpSuite>& instance)
                         { return std::string(infoOf(instance.param).name); });

}  // namespace
}  // namespace refhost

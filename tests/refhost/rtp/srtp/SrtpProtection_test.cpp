#include "refhost/rtp/srtp/SrtpProtection.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/rtp/srtp/SrtpPeer.h"

namespace refhost
{
namespace test
{
namespace
{

using Bytes = SrtpPeer::Bytes;

class SrtpProtectionTest : public testing::Test
{
protected:
    const SrtpKey own_ = SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag80);
    const SrtpKey client_ = SrtpKey::random(SrtpSuite::aeadAes128Gcm);
    SrtpProtection protection_{own_, client_};
    SrtpPeer peer_{own_, client_};
};

TEST_F(SrtpProtectionTest, SealsTheRestOfAUnitWithTheSessionsHeaders)
{
    const AccessUnitPtr unit = makeUnit(5000, 0, true, 4);
    const AccessUnitPtr sealed = protection_.seal(*unit, 1, {0x11223344, 65535, 777, 97});
    ASSERT_TRUE(sealed);
    ASSERT_EQ(sealed->packets.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i)
    {
        const std::uint8_t* const at = sealed->bytes.data() + sealed->packets[i].offset;
        const Bytes packet = peer_.open(Bytes(at, at + sealed->packets[i].size));
        ASSERT_EQ(packet.size(), unit->packets[i + 1].size);
        EXPECT_EQ(packet[1] & 0x7fU, 97U);
        EXPECT_EQ(readBig16(packet.data() + 2), static_cast<std::uint16_t>(65535 + i));
        EXPECT_EQ(readBig32(packet.data() + 4), 777U);
        EXPECT_EQ(readBig32(packet.data() + 8), 0x11223344U);
        const std::uint8_t* const plain = unit->bytes.data() + unit->packets[i + 1].offset;
        EXPECT_TRUE(std::equal(packet.begin() + 12, packet.end(), plain + 12));
    }
    EXPECT_EQ(protection_.sent(0x11223344U), 0x10001U) << "they started over once";
    EXPECT_FALSE(protection_.sent(1));
}

TEST_F(SrtpProtectionTest, SealsReports)
{
    Bytes report = SrtpPeer::report(9);
    ASSERT_TRUE(protection_.sealRtcp(report));
    EXPECT_EQ(peer_.openRtcp(report), SrtpPeer::report(9));
}

TEST_F(SrtpProtectionTest, OpensWhatTheClientSendsWithItsOwnKey)
{
    Bytes packet = peer_.seal(SrtpPeer::packet(3, 1));
    std::size_t size = packet.size();
    ASSERT_TRUE(protection_.openRtp(packet.data(), size));
    packet.resize(size);
    EXPECT_EQ(packet, SrtpPeer::packet(3, 1));
    Bytes report = peer_.sealRtcp(SrtpPeer::report(3));
    size = report.size();
    ASSERT_TRUE(protection_.openRtcp(report.data(), size));
    report.resize(size);
    EXPECT_EQ(report, SrtpPeer::report(3));
}

}  // namespace
}  // namespace test
}  // namespace refhost

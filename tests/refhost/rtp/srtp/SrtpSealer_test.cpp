#include "refhost/rtp/srtp/SrtpSealer.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "refhost/base/Hex.h"
#include "tests/refhost/rtp/srtp/SrtpPeer.h"

namespace refhost
{
namespace
{

using test::SrtpPeer;
using Bytes = SrtpPeer::Bytes;

std::optional<Bytes> sealed(SrtpSealer& sealer, const Bytes& packet)
{
    Bytes room = packet;
    room.resize(packet.size() + SrtpSealer::maxTrailer);
    std::size_t size = packet.size();
    if (!sealer.seal(room.data(), size))
    {
        return std::nullopt;
    }
    room.resize(size);
    return room;
}

std::optional<Bytes> sealedRtcp(SrtpSealer& sealer, const Bytes& packet)
{
    Bytes room = packet;
    room.resize(packet.size() + SrtpSealer::maxTrailer);
    std::size_t size = packet.size();
    if (!sealer.sealRtcp(room.data(), size))
    {
        return std::nullopt;
    }
    room.resize(size);
    return room;
}

class SrtpSealerTest : public testing::TestWithParam<SrtpSuite>
{
protected:
    const SrtpKey key_ = SrtpKey::random(GetParam());
    SrtpSealer sealer_{key_};
    SrtpPeer peer_{key_, key_};
};

TEST_P(SrtpSealerTest, TheLibraryOpensWhatItSeals)
{
    for (std::uint16_t i = 0; i < 300; ++i)
    {
        const Bytes packet = SrtpPeer::packet(7, static_cast<std::uint16_t>(65400 + i), i);
        const auto sent = sealed(sealer_, packet);
        ASSERT_TRUE(sent);
        EXPECT_EQ(sent->size(), packet.size() + infoOf(GetParam()).rtpTag);
        ASSERT_EQ(peer_.open(*sent), packet) << i;
    }
    EXPECT_EQ(sealer_.index() >> 16U, 1U);
}

TEST_P(SrtpSealerTest, ItSealsAsTheLibraryDoes)
{
    const Bytes packet = SrtpPeer::packet(0xfedcba98, 4711);
    EXPECT_EQ(sealed(sealer_, packet), peer_.seal(packet));
}

TEST_P(SrtpSealerTest, AHeaderExtensionAndSourcesStayReadable)
{
    Bytes packet = SrtpPeer::packet(7, 1, 60);
    packet[0] = 0x92;  // an extension and two contributing sources
    packet[12 + 8 + 2] = 0;
    packet[12 + 8 + 3] = 3;
    const auto sent = sealed(sealer_, packet);
    ASSERT_TRUE(sent);
    const std::ptrdiff_t header = 12 + 8 + 4 + 12;
    EXPECT_TRUE(std::equal(packet.begin(), packet.begin() + header, sent->begin()));
    EXPECT_FALSE(std::equal(packet.begin() + header, packet.end(), sent->begin() + header));
    EXPECT_EQ(peer_.open(*sent), packet);
}

TEST_P(SrtpSealerTest, AnExtensionBeyondThePacketIsRefused)
{
    Bytes packet = SrtpPeer::packet(7, 1, 4);
    packet[0] = 0x90;
    packet[15] = 200;
    EXPECT_FALSE(sealed(sealer_, packet));
}

TEST_P(SrtpSealerTest, TheLibraryOpensItsReports)
{
    for (int i = 0; i < 5; ++i)
    {
        Bytes report = SrtpPeer::report(7);
        report.resize(report.size() + static_cast<std::size_t>(4 * i), 0x11);
        const auto sent = sealedRtcp(sealer_, report);
        ASSERT_TRUE(sent);
        EXPECT_EQ(sent->size(), report.size() + 4 + infoOf(GetParam()).rtcpTag);
        EXPECT_EQ(peer_.openRtcp(*sent), report);
    }
}

TEST_P(SrtpSealerTest, NoSequenceNumberIsSealedTwice)
{
    EXPECT_TRUE(sealed(sealer_, SrtpPeer::packet(7, 100)));
    EXPECT_FALSE(sealed(sealer_, SrtpPeer::packet(7, 100)));
    EXPECT_FALSE(sealed(sealer_, SrtpPeer::packet(7, 99)));
    EXPECT_TRUE(sealed(sealer_, SrtpPeer::packet(7, 101)));
}

TEST_P(SrtpSealerTest, AChangedByteIsNotAuthentic)
{
    const auto sent = sealed(sealer_, SrtpPeer::packet(7, 100, 20));
    ASSERT_TRUE(sent);
    for (std::size_t i = 0; i < sent->size(); ++i)
    {
        Bytes changed = *sent;
        changed[i] ^= 1U;
        EXPECT_TRUE(peer_.open(changed).empty()) << i;
    }
    EXPECT_FALSE(peer_.open(*sent).empty());
}

INSTANTIATE_TEST_SUITE_P(Suites, SrtpSealerTest,
                         testing::Values(SrtpSuite::aesCm128HmacSha1Tag80, SrtpSuite::aesCm128HmacSha1Tag32,
                                         SrtpSuite::aeadAes128Gcm),
                         [](const testing::TestParamInfo<SrtpSuite>& instance)
                         { return std::string(infoOf(instance.param).name); });

TEST(SrtpKey, HasTheSizeOfItsSuite)
{
    const Bytes bytes(40, 1);
    EXPECT_TRUE(SrtpKey::of(SrtpSuite::aesCm128HmacSha1Tag80, bytes.data(), 30));
    EXPECT_FALSE(SrtpKey::of(SrtpSuite::aesCm128HmacSha1Tag80, bytes.data(), 29));
    EXPECT_TRUE(SrtpKey::of(SrtpSuite::aeadAes128Gcm, bytes.data(), 28));
    EXPECT_FALSE(SrtpKey::of(SrtpSuite::aeadAes128Gcm, bytes.data(), 30));
}

TEST(SrtpKey, IsRandom)
{
    EXPECT_FALSE(SrtpKey::random(SrtpSuite::aeadAes128Gcm) == SrtpKey::random(SrtpSuite::aeadAes128Gcm));
}

}  // namespace
}  // namespace refhost

#include "refhost/media/BitReader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace refhost
{

namespace
{

BitReader readerOf(const std::vector<std::uint8_t>& bytes)
{
    return {bytes.data(), bytes.size()};
}

}  // namespace

TEST(BitReader, ReadsFieldsAcrossBytes)
{
    BitReader reader = readerOf({0xa5, 0xc3, 0x01, 0x02, 0x03, 0x04});
    EXPECT_EQ(0U, reader.bits(0));
    EXPECT_EQ(5U, reader.bits(3));
    EXPECT_EQ(0x17U, reader.bits(7));
    reader.skip(6);
    EXPECT_EQ(0x01020304U, reader.bits(32));
    EXPECT_FALSE(reader.failed());
}

TEST(BitReader, ReadsExpGolombNumbers)
{
    // 1 010 011 00100 00101, of which the last two are signed
    BitReader reader = readerOf({0b10100110, 0b01000010, 0b10000000});
    EXPECT_EQ(0U, reader.ue());
    EXPECT_EQ(1U, reader.ue());
    EXPECT_EQ(2U, reader.ue());
    EXPECT_EQ(2, reader.se());
    EXPECT_EQ(-2, reader.se());
    EXPECT_FALSE(reader.failed());
}

TEST(BitReader, RemovesEmulationPreventionBytes)
{
    BitReader reader = readerOf({0x00, 0x00, 0x03, 0x01, 0x03});
    EXPECT_EQ(0x00000103U, reader.bits(32));
    EXPECT_FALSE(reader.failed());
}

TEST(BitReader, ReadsZerosBeyondTheEndAndFails)
{
    BitReader reader = readerOf({0xff});
    EXPECT_EQ(0x0fU, reader.bits(4));
    EXPECT_FALSE(reader.failed());
    EXPECT_EQ(0U, reader.bits(8) & 0x0fU);
    EXPECT_TRUE(reader.failed());
    EXPECT_EQ(0U, reader.bits(32));
}

TEST(BitReader, FailsAtImpossibleNumbers)
{
    BitReader reader = readerOf({0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    reader.ue();
    EXPECT_TRUE(reader.failed());
}

}  // namespace refhost

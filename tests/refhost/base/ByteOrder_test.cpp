#include "refhost/base/ByteOrder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

namespace refhost
{

TEST(ByteOrder, NetworkOrderIsMostSignificantByteFirst)
{
    const std::uint8_t bytes[] = {0, 0xfe, 0xdc, 0xba, 0x98};
    EXPECT_EQ(0xfedcU, readBig16(bytes + 1));
    EXPECT_EQ(0xfedcba98U, readBig32(bytes + 1));
    std::array<std::uint8_t, 6> written{};
    writeBig16(&written[0], 0xfedc);
    writeBig32(&written[2], 0xfedcba98);
    EXPECT_EQ((std::array<std::uint8_t, 6>{0xfe, 0xdc, 0xfe, 0xdc, 0xba, 0x98}), written);
}

TEST(ByteOrder, FileOrderIsLeastSignificantByteFirst)
{
    std::array<std::uint8_t, 6> written{};
    writeLittle16(&written[0], 0xfedc);
    writeLittle32(&written[2], 0xfedcba98);
    EXPECT_EQ((std::array<std::uint8_t, 6>{0xdc, 0xfe, 0x98, 0xba, 0xdc, 0xfe}), written);
}

}  // namespace refhost

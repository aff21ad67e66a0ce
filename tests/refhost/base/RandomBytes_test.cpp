#include "refhost/base/RandomBytes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <set>

namespace refhost
{

TEST(RandomBytes, FillExactlyTheGivenBytes)
{
    std::array<std::uint8_t, 34> bytes{};
    for (int i = 0; i < 20 && (bytes[1] == 0 || bytes[32] == 0); ++i)
    {
        fillRandom(bytes.data() + 1, 32);
    }
    EXPECT_NE(0, bytes[1]);
    EXPECT_NE(0, bytes[32]);
    EXPECT_EQ(0, bytes.front());
    EXPECT_EQ(0, bytes.back());
}

TEST(RandomBytes, DoNotRepeat)
{
    std::set<std::uint64_t> seen;
    for (int i = 0; i < 1000; ++i)
    {
        std::uint64_t number = 0;
        fillRandom(&number, sizeof(number));
        seen.insert(number);
    }
    EXPECT_EQ(1000U, seen.size());
}

}  // namespace refhost

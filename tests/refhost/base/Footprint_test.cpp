#include "refhost/base/Footprint.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>

namespace refhost
{
namespace
{

struct alignas(Footprint::lineSize) Memory
{
    std::array<char, 40 * Footprint::lineSize> bytes;
};

TEST(Footprint, EveryLineThatARangeTouchesCounts)
{
    const auto memory = std::make_unique<Memory>();
    const char* const begin = memory->bytes.data();
    Footprint one;
    one.add(begin, 1);
    EXPECT_EQ(one.lines(), 1U);
    Footprint whole;
    whole.add(begin, 64);
    EXPECT_EQ(whole.lines(), 1U);
    Footprint across;
    across.add(begin + 63, 2);
    EXPECT_EQ(across.lines(), 2U);
    Footprint several;
    several.add(begin, 64);
    several.add(begin + 200, 100);
    EXPECT_EQ(several.lines(), 1U + 2U);
}

TEST(Footprint, IsBounded)
{
    const auto memory = std::make_unique<Memory>();
    Footprint large;
    large.add(*memory);
    EXPECT_EQ(large.lines(), Footprint::maxLines);
    Footprint many;
    for (std::size_t i = 0; i < Footprint::maxRanges + 3; ++i)
    {
        many.add(memory->bytes.data() + i * 64, 64);
    }
    EXPECT_EQ(many.lines(), Footprint::maxRanges);
}

TEST(Footprint, NothingIsNothing)
{
    Footprint none;
    none.add(nullptr, 0);
    EXPECT_EQ(none.lines(), 0U);
    none.prefetch();
}

TEST(Footprint, HoldsNothingAfterClear)
{
    const auto memory = std::make_unique<Memory>();
    Footprint footprint;
    footprint.add(*memory);
    footprint.clear();
    EXPECT_EQ(footprint.lines(), 0U);
}

TEST(Footprint, WhatIsGoneMayBeFetched)
{
    Footprint footprint;
    {
        const auto memory = std::make_unique<Memory>();
        footprint.add(*memory);
    }
    footprint.prefetch();
    EXPECT_EQ(footprint.lines(), Footprint::maxLines);
}

}  // namespace
}  // namespace refhost

#include "refhost/playback/ReadAheadBudget.h"

#include <gtest/gtest.h>

#include <list>

namespace refhost
{
namespace
{

TEST(ReadAheadBudget, IsSharedByThePresentSessions)
{
    ReadAheadBudget budget(std::size_t{1000} * 1024);
    const ReadAheadBudget::Share first(budget);
    EXPECT_EQ(first.bytes(), 1000u * 1024);
    {
        const ReadAheadBudget::Share second(budget);
        EXPECT_EQ(first.bytes(), 500u * 1024);
        EXPECT_EQ(second.bytes(), 500u * 1024);
    }
    EXPECT_EQ(first.bytes(), 1000u * 1024);
}

TEST(ReadAheadBudget, LeavesEachSessionEnoughToReadFromADisk)
{
    ReadAheadBudget budget(std::size_t{1000} * 1024);
    std::list<ReadAheadBudget::Share> many;
    for (int i = 0; i < 1000; ++i)
    {
        many.emplace_back(budget);
    }
    EXPECT_EQ(many.front().bytes(), ReadAheadBudget::minEach);
}

}  // namespace
}  // namespace refhost

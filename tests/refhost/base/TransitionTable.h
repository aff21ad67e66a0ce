#pragma once

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

namespace refhost
{
namespace test
{

/// Checks that exactly the listed transitions between different states are legal.
template <typename State>
void expectTransitions(const std::vector<State>& all, const std::set<std::pair<State, State>>& legal)
{
    for (const State from : all)
    {
        for (const State to : all)
        {
            if (from != to)
            {
                EXPECT_EQ(mayFollow(from, to), legal.count({from, to}) == 1)
                    << machineOf(from) << ": " << nameOf(from) << " to " << nameOf(to);
            }
        }
    }
}

}  // namespace test
}  // namespace refhost

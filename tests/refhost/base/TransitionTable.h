#pragma once

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

namespace refhost
{
namespace test
{

/// Checks that exactly the listed transitions between different states are legal, and that each has a name.
/// \param all  every state, none left out
template <typename State>
void expectTransitions(const std::vector<State>& all, const std::set<std::pair<State, State>>& legal)
{
    EXPECT_EQ(tableOf(State{}).rows.size(), all.size());
    for (const State from : all)
    {
        EXPECT_STRNE(nameOf(from), "?");
        for (const State to : all)
        {
            if (from != to)
            {
                EXPECT_EQ(mayFollow(from, to), legal.count({from, to}) == 1)
                    << tableOf(from).machine << ": " << nameOf(from) << " to " << nameOf(to);
            }
        }
    }
}

}  // namespace test
}  // namespace refhost

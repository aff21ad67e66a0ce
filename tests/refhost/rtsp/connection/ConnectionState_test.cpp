#include "refhost/rtsp/connection/ConnectionState.h"

#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <string>
#include <utility>

namespace refhost
{
namespace
{

using State = ConnectionState;

constexpr State all[] = {State::serving,  State::deferred, State::congested,
                         State::draining, State::closing,  State::closed};

/// The table of the header.
const std::set<std::pair<State, State>> transitions = {
    {State::serving, State::deferred},  {State::serving, State::congested},
    {State::serving, State::draining},  {State::serving, State::closing},
    {State::serving, State::closed},    {State::deferred, State::serving},
    {State::deferred, State::closing},  {State::deferred, State::closed},
    {State::congested, State::serving}, {State::congested, State::closing},
    {State::congested, State::closed},  {State::draining, State::closing},
    {State::draining, State::closed},   {State::closing, State::closed},
};

TEST(ConnectionStateTest, TransitionsAreThoseOfTheTableAndNoOther)
{
    for (const State from : all)
    {
        for (const State to : all)
        {
            if (from != to)
            {
                EXPECT_EQ(mayFollow(from, to), transitions.count({from, to}) != 0)
                    << nameOf(from) << " to " << nameOf(to);
            }
        }
    }
}

TEST(ConnectionStateTest, EveryStateHasItsName)
{
    std::set<std::string> names;
    for (const State state : all)
    {
        names.insert(nameOf(state));
    }
    EXPECT_EQ(names.size(), std::size(all));
    EXPECT_EQ(names.count("?"), 0u);
}

}  // namespace
}  // namespace refhost

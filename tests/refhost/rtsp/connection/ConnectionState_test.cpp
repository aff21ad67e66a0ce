#include "refhost/rtsp/connection/ConnectionState.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <utility>

namespace refhost
{
namespace
{

using State = ConnectionState::State;

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

ConnectionState in(State state)
{
    ConnectionState result;
    if (state != State::serving)
    {
        result.enter(state);
    }
    return result;
}

TEST(ConnectionStateTest, StartsServing)
{
    EXPECT_TRUE(ConnectionState().is(State::serving));
}

TEST(ConnectionStateTest, TakesTheTransitionsOfTheTableAndNoOther)
{
    for (const State from : all)
    {
        for (const State to : all)
        {
            SCOPED_TRACE(testing::Message() << static_cast<int>(from) << " to " << static_cast<int>(to));
            ConnectionState state = in(from);
            if (transitions.count({from, to}) != 0)
            {
                EXPECT_NO_THROW(state.enter(to));
                EXPECT_TRUE(state.is(to));
            }
            else
            {
                EXPECT_THROW(state.enter(to), std::logic_error);
                EXPECT_TRUE(state.is(from));
            }
        }
    }
}

TEST(ConnectionStateTest, AFailureLeadsToClosingAndNeverBack)
{
    for (const State from : all)
    {
        ConnectionState state = in(from);
        state.fail();
        EXPECT_TRUE(state.is(from == State::closed ? State::closed : State::closing));
    }
}

}  // namespace
}  // namespace refhost

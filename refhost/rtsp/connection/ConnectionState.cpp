#include "refhost/rtsp/connection/ConnectionState.h"

#include <stdexcept>
#include <string>

namespace refhost
{

void ConnectionState::enter(State next)
{
    if (!leadsTo(state_, next))
    {
        throw std::logic_error("a connection cannot go from state " +
                               std::to_string(static_cast<int>(state_)) + " to " +
                               std::to_string(static_cast<int>(next)));
    }
    state_ = next;
}

void ConnectionState::fail()
{
    if (state_ < State::closing)
    {
        state_ = State::closing;
    }
}

bool ConnectionState::leadsTo(State from, State to)
{
    switch (to)
    {
        case State::serving:
            return from == State::deferred || from == State::congested;
        case State::deferred:
        case State::congested:
        case State::draining:
            return from == State::serving;
        case State::closing:
            return from < State::closing;
        case State::closed:
            return from != State::closed;
    }
    return false;
}

}  // namespace refhost

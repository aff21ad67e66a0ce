#pragma once

#include <cassert>

namespace refhost
{

/// Logs a transition that no table lists.
/// \param machine  what `from` and `to` are states of
void logIllegalTransition(const char* machine, const char* from, const char* to);

/// A state that changes only along the transitions its type lists.
///
/// An illegal transition is a fault of the program: it stops a debug build, and in others it is logged and
/// the state stays. `State` is an enum class with three functions beside it, found by argument:
/// ```
/// constexpr bool mayFollow(State from, State to);    // for from != to
/// constexpr const char* nameOf(State state);
/// constexpr const char* machineOf(State);            // what a log calls them all
/// ```
/// Threads: one at a time.
template <typename State>
class StateMachine
{
public:
    explicit constexpr StateMachine(State initial) : state_(initial) {}

    constexpr State state() const
    {
        return state_;
    }

    constexpr bool is(State state) const
    {
        return state_ == state;
    }

    /// Goes over to `next`; nothing changes where that is the present state.
    /// \returns false, and the state stays, for an illegal transition in a build without assertions
    bool enter(State next)
    {
        if (next != state_ && !mayFollow(state_, next))
        {
            logIllegalTransition(machineOf(next), nameOf(state_), nameOf(next));
            assert(!"illegal transition");
            return false;
        }
        state_ = next;
        return true;
    }

private:
    State state_;
};

}  // namespace refhost

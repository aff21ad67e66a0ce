#pragma once

#include <array>
#include <cassert>
#include <cstddef>

namespace refhost
{

/// A set of states of one enum, for the rows of its StateTable.
template <typename... State>
constexpr unsigned anyOf(State... states)
{
    return (0U | ... | (1U << static_cast<unsigned>(states)));
}

/// What is known of the states of an enum class: its enumerators in their order, from 0, 32 at most.
///
/// The function `constexpr auto tableOf(State)` beside the enum returns it; mayFollow() and nameOf() read it.
template <typename State, std::size_t count>
struct StateTable
{
    struct Row
    {
        State state;
        const char* name;     ///< in the log
        unsigned successors;  ///< anyOf() the others that it may go over to
    };

    const char* machine;  ///< what a log calls them all
    std::array<Row, count> rows;

    /// \returns null for a value that has no row
    constexpr const Row* row(State state) const
    {
        const auto index = static_cast<std::size_t>(state);
        return index < count && rows[index].state == state ? &rows[index] : nullptr;
    }
};

/// Whether the table of `State` lists the transition. Requires: `from` is not `to`.
template <typename State, typename = decltype(tableOf(State{}))>
constexpr bool mayFollow(State from, State to)
{
    constexpr auto table = tableOf(State{});
    const auto* const row = table.row(from);
    return row != nullptr && (row->successors & anyOf(to)) != 0;
}

/// What the table of `State` calls it; "?" where it has no such row.
template <typename State, typename = decltype(tableOf(State{}))>
constexpr const char* nameOf(State state)
{
    constexpr auto table = tableOf(State{});
    const auto* const row = table.row(state);
    return row == nullptr ? "?" : row->name;
}

/// Logs a transition that no table lists.
/// \param machine  what `from` and `to` are states of
void logIllegalTransition(const char* machine, const char* from, const char* to);

/// A state that changes only along the transitions of its type's StateTable.
///
/// An illegal transition is a fault of the program: it stops a debug build, and in others it is logged and
/// the state stays. Threads: one at a time.
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
            logIllegalTransition(tableOf(next).machine, nameOf(state_), nameOf(next));
            assert(false && "illegal transition");
            return false;
        }
        state_ = next;
        return true;
    }

private:
    State state_;
};

}  // namespace refhost

#pragma once

#include <array>
#include <cassert>
#include <cstddef>

namespace refhost
{

/// A set of states of one enum, for StateTable::Row::successors.
template <typename... State>
constexpr unsigned anyOf(State... states)
{
    return (0U | ... | (1U << static_cast<unsigned>(states)));
}

/// Names and transitions of the states of an enum class: one row per enumerator in declaration order, values
/// from 0, at most 32.
///
/// `constexpr auto tableOf(State)`, declared beside the enum, returns it; mayFollow() and nameOf() use it.
template <typename State, std::size_t count>
struct StateTable
{
    struct Row
    {
        State state;
        const char* name;     ///< in log lines
        unsigned successors;  ///< anyOf() the states that may follow
    };

    const char* machine;  ///< name of the state machine in log lines
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

/// The state's name in its table; "?" when it has no row.
template <typename State, typename = decltype(tableOf(State{}))>
constexpr const char* nameOf(State state)
{
    constexpr auto table = tableOf(State{});
    const auto* const row = table.row(state);
    return row == nullptr ? "?" : row->name;
}

/// Logs an illegal transition.
/// \param machine  name of the state machine
void logIllegalTransition(const char* machine, const char* from, const char* to);

/// A state that changes only by the transitions of its type's StateTable.
///
/// An illegal transition is a bug: it fails an assertion in debug builds; other builds log it and keep the
/// state. Threads: one at a time.
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

    /// Changes the state to `next`; does nothing when that is the present state.
    /// \returns false, with the state unchanged, for an illegal transition in a build without assertions
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

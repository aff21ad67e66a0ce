#pragma once

#include <cstdint>

#include "refhost/base/StateMachine.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// State of a session's seek.
///
/// | from      | to settled                            | to requested | to failed                       |
/// |-----------|---------------------------------------|--------------|---------------------------------|
/// | settled   |                                       | request()    | illegal                         |
/// | requested | finish(): found, or play just continues |            | finish(): nothing is recorded there |
/// | failed    | takeFailure()                         | request()    |                                 |
enum class SeekState
{
    settled,
    requested,
    failed  ///< the next PLAY reports it
};

constexpr auto tableOf(SeekState)
{
    using S = SeekState;
    return StateTable<S, 3>{"seek",
                            {{
                                {S::settled, "settled", anyOf(S::requested)},
                                {S::requested, "requested", anyOf(S::settled, S::failed)},
                                {S::failed, "failed", anyOf(S::settled, S::requested)},
                            }}};
}

/// The position that a session is to play from and has not found yet. The search takes time; where another
/// one is requested meanwhile, the last request wins. Threads: one at a time.
class PendingSeek
{
public:
    struct Target
    {
        WallTime from;
        WallTime end;
        /// A position in what plays now: where nothing is found, play just continues.
        bool goesOn = false;
    };

    /// One search for a target.
    struct Search
    {
        Target target;
        std::uint64_t serial = 0;
    };

    bool pending() const
    {
        return state_.is(SeekState::requested);
    }

    void request(const Target& target);

    /// Requires: pending().
    const Search& search() const
    {
        return search_;
    }

    /// Ends a search; ignored when its target was replaced since.
    void finish(const Search& search, bool found);

    /// Whether the last seek failed; true once for each failure.
    bool takeFailure();

private:
    StateMachine<SeekState> state_{SeekState::settled};
    Search search_;
};

}  // namespace refhost

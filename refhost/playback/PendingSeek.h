#pragma once

#include <cstdint>

#include "refhost/base/StateMachine.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// Where a session is with a seek.
///
/// | from      | to settled                            | to requested | to failed                       |
/// |-----------|---------------------------------------|--------------|---------------------------------|
/// | settled   |                                       | request()    | illegal                         |
/// | requested | finish(): found, or playing just goes on |           | finish(): nothing is recorded there |
/// | failed    | takeFailure()                         | request()    |                                 |
enum class SeekState
{
    settled,
    requested,
    failed  ///< the next PLAY is told
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

/// The place that a session shall play from and has not found yet. Looking for it takes time, so that it may
/// be asked for again meanwhile: the last request counts. Threads: one at a time.
class PendingSeek
{
public:
    struct Target
    {
        WallTime from;
        WallTime end;
        /// In what plays now: playing just goes on where nothing is found.
        bool goesOn = false;
    };

    /// One look for a target.
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

    /// Does nothing where the target was replaced since.
    void finish(const Search& search, bool found);

    /// Whether the last seek failed; reports that once.
    bool takeFailure();

private:
    StateMachine<SeekState> state_{SeekState::settled};
    Search search_;
};

}  // namespace refhost

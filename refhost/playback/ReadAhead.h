#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "refhost/base/StateMachine.h"
#include "refhost/playback/PlaybackQueue.h"
#include "refhost/playback/PlaybackSettings.h"
#include "refhost/playback/PlaybackSource.h"

namespace refhost
{

/// State of a session's reading.
///
/// | from    | to filling    | to full        | to waiting                   | to atEnd        |
/// |---------|---------------|----------------|------------------------------|-----------------|
/// | idle    | restart()     | illegal        | illegal                      | illegal         |
/// | filling |               | enough is read | the recording has no more yet | nothing follows |
/// | full    | it ran low    |                | illegal                      | illegal         |
/// | waiting | the time came | enough is read |                              | illegal         |
/// | atEnd   | restart()     | illegal        | illegal                      |                 |
enum class ReadState
{
    idle,  ///< nothing was opened yet
    filling,
    full,
    waiting,  ///< for a recording that still grows
    atEnd
};

constexpr auto tableOf(ReadState)
{
    using S = ReadState;
    return StateTable<S, 5>{"read-ahead",
                            {{
                                {S::idle, "idle", anyOf(S::filling)},
                                {S::filling, "filling", anyOf(S::full, S::waiting, S::atEnd)},
                                {S::full, "full", anyOf(S::filling)},
                                {S::waiting, "waiting", anyOf(S::filling, S::full)},
                                {S::atEnd, "at end", anyOf(S::filling)},
                            }}};
}

/// The units that a session has read and not sent yet, and the decision when to read more: it holds between
/// half and all of PlaybackSettings::readAhead of player's time, but no more bytes than its share allows.
///
/// Threads: under the session's lock, except for read().
class ReadAhead
{
public:
    /// How much one batch may read.
    struct Plan
    {
        std::size_t minUnits;           ///< read at least so many, whatever their duration
        std::size_t maxBytes;           ///< stop here
        Duration span;                  ///< stop where units reach so far from the first one
        std::optional<WallTime> until;  ///< the same as a date; nothing while there is no unit
    };

    /// Units read at once.
    struct Batch
    {
        std::vector<PlaybackUnit> units;
        PlaybackSource::Result result = PlaybackSource::Result::unit;  ///< of the last read
    };

    /// \param settings  outlives this
    explicit ReadAhead(const PlaybackSettings& settings);

    /// Starts with the first unit of a new position.
    void restart(PlaybackUnit first);

    /// Whether to read now.
    /// \param rate  seconds of the recording in a second of the player's time
    bool shouldRead(MonotonicTime now, double rate);

    Plan plan(double rate) const;
    /// Reads a batch, without the session's lock: the disk may be slow.
    static Batch read(PlaybackSource& source, const Plan& plan);
    /// \returns whether units were read or the end was found
    bool add(Batch batch, MonotonicTime now);

    /// When to read more of a recording that still grows; PooledWork::never when sending does not depend on
    /// it.
    MonotonicTime retryTime(MonotonicTime now) const;

    bool atEnd() const
    {
        return state_.is(ReadState::atEnd);
    }

    PlaybackQueue& queue()
    {
        return queue_;
    }

    const PlaybackQueue& queue() const
    {
        return queue_;
    }

private:
    std::size_t maxBytes() const;

    const PlaybackSettings& settings_;
    const ReadAheadBudget::Share share_;
    StateMachine<ReadState> state_{ReadState::idle};
    MonotonicTime later_;  // while waiting
    PlaybackQueue queue_;
};

}  // namespace refhost

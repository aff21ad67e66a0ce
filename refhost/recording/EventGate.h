#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/recording/ByteBudget.h"

namespace refhost
{

/// Decides which units of a stream are recorded: all, or those around events.
///
/// While it waits for an event it holds the latest units, from a key frame on: the pre-roll. It holds the units that
/// everybody shares, not copies. An event gives them all and opens the gate; it closes with the first key frame after the
/// post-roll, with which the next pre-roll starts. So two events that are close together leave no gap, and nothing is
/// given twice.
///
/// The pre-roll reaches back to the last key frame that is at least `Rolls::before` older than the newest unit, but for
/// the bounds of its bytes. Where these are reached, its oldest GOP goes.
///
/// Threads: one at a time.
class EventGate
{
public:
    struct Rolls
    {
        Duration before;
        Duration after;
    };

    /// In the order of arrival; null: the stream was interrupted.
    using Units = std::vector<EncodedUnitPtr>;

    /// Max bytes of the pre-roll.
    static constexpr std::size_t maxBytes = std::size_t{64} << 20U;
    /// How long the end of the post-roll waits for a key frame.
    static constexpr Duration maxOverrun = std::chrono::seconds(10);

    /// \param rolls   nothing: everything is recorded
    /// \param budget  of all pre-rolls; outlives what is held
    EventGate(const std::optional<Rolls>& rolls, ByteBudget& budget) : budget_(budget), rolls_(rolls) {}
    /// clear()
    ~EventGate();
    EventGate(const EventGate&) = delete;
    EventGate& operator=(const EventGate&) = delete;

    /// Changes what is recorded: everything from the pre-roll on, or what is around events, up to the next key frame.
    /// \param[out] out  appended: what is to be recorded now
    void setRolls(const std::optional<Rolls>& rolls, MonotonicTime now, Units& out);

    /// There is an event now. A gate that is open stays open longer.
    /// \param after     the post-roll; nothing: that of setRolls()
    /// \param[out] out  appended: the pre-roll
    void open(MonotonicTime now, const std::optional<Duration>& after, Units& out);

    /// \param[out] out  appended: what is to be recorded now
    void take(const EncodedUnitPtr& unit, Units& out);
    /// Later units do not continue earlier ones. \param[out] out  as above
    void interrupt(Units& out);

    /// Forgets the pre-roll.
    void clear();

    /// Whether it waits for events, or for the end of one.
    bool isOnEvents() const
    {
        return rolls_.has_value();
    }
    /// Whether units are recorded at present.
    bool isOpen() const
    {
        return !rolls_ || until_;
    }
    /// Until when at least, where the gate is open for an event.
    const std::optional<MonotonicTime>& until() const
    {
        return until_;
    }
    /// Bytes of the pre-roll.
    std::size_t bytes() const
    {
        return bytes_;
    }
    /// Whether the pre-roll was cut short since the last call, because its bytes are bounded.
    bool takeShortage();

private:
    /// Units from a key frame to the next, or a second of audio.
    struct Gop
    {
        MonotonicTime begin;
        MonotonicTime end;  ///< the next key frame; without one the latest unit
        Units units;
        bool interrupted = false;  ///< what follows does not continue it
    };

    bool isOver(const EncodedUnit& unit, bool reference) const;
    void keep(const EncodedUnitPtr& unit, bool reference);
    bool makeRoom(std::size_t bytes);
    void trim(MonotonicTime begin);
    void dropFirst();
    void dropAudio();
    void give(MonotonicTime now, Units& out);
    void interruptHeld();

    ByteBudget& budget_;
    std::optional<Rolls> rolls_;
    std::optional<MonotonicTime> until_;
    std::deque<Gop> held_;
    std::size_t bytes_ = 0;
    bool hasVideo_ = false;              ///< since the last interruption
    std::optional<MonotonicTime> last_;  ///< capture time of the last frame that is held
    bool shortage_ = false;
};

}  // namespace refhost

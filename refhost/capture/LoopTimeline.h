#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// Maps the media of a file that is played in a loop to one timeline without a gap or a step back, and says
/// when each unit is due.
///
/// All tracks of an iteration start together, where the longest track of the previous iteration ended.
/// Threads: one at a time.
class LoopTimeline
{
public:
    using Time = std::optional<Duration>;

    /// Times of one frame or block of audio in the file's own time; nothing where unknown.
    struct Unit
    {
        Time presentation;
        Time decoding;
        Time duration;
    };

    /// The same on the timeline.
    struct Placed
    {
        Time presentation;
        Time decoding;
        Duration due{};  ///< when it is sent
    };

    /// \returns the track's number for the other operations
    std::size_t addTrack();

    /// Places the next unit of a track.
    /// \param now  present time on the timeline; the very first unit is placed there
    /// \returns nothing when the unit has no time and its track has none to continue from
    std::optional<Placed> place(std::size_t track, const Unit& unit, Duration now);

    /// A track reached the end of the file.
    /// \returns true when it was the last track: the next units belong to the next iteration
    bool endTrack(std::size_t track);

private:
    struct Track
    {
        bool ended = false;
        Time due;         ///< of the last unit, in the file's time
        Duration step{};  ///< from the last unit to the next; 0 when unknown
        Duration end{};   ///< latest end in this iteration, in the file's time
        Time last;        ///< latest presentation in this iteration
        Time start;       ///< earliest presentation in this iteration
    };

    void startIteration();

    std::vector<Track> tracks_;
    Time base_;  ///< added to the file's time in this iteration
};

}  // namespace refhost

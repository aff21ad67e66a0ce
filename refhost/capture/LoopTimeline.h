#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// Places the media of a file that is played again and again on one timeline without a gap or a step back,
/// and says when each piece is due.
///
/// All tracks of a round begin together; the next round starts where the longest track of the last one ended.
/// Threads: one at a time.
class LoopTimeline
{
public:
    using Time = std::optional<Duration>;

    /// What is known of one frame or piece of audio, in the file's own time.
    struct Piece
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
        Duration due{};  ///< when it shall leave
    };

    /// \returns the track's number for the other operations
    std::size_t addTrack();

    /// Places the next piece of a track.
    /// \param now  the time on the timeline; the first piece of all is placed there
    /// \returns nothing when the piece has no time and there is none to go on from
    std::optional<Placed> place(std::size_t track, const Piece& piece, Duration now);

    /// Notes that a track came to the end of the file.
    /// \returns true when it was the last of them: the next pieces are those of the next round
    bool endTrack(std::size_t track);

private:
    struct Track
    {
        bool ended = false;
        Time due;         ///< of the last piece, in the file's time
        Duration step{};  ///< from the last piece to the next, where the file tells it
        Duration end{};   ///< latest end in this round, in the file's time
        Time last;        ///< latest presentation in this round
        Time start;       ///< earliest presentation in this round
    };

    void startIteration();

    std::vector<Track> tracks_;
    Time base_;  ///< what is added to the file's time in this round
};

}  // namespace refhost

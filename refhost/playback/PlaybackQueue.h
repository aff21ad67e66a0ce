#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "refhost/playback/PlaybackSource.h"

namespace refhost
{

/// What a session has read and not sent yet, in the order in which it is due. Threads: one at a time.
class PlaybackQueue
{
public:
    /// The next unit and how far it was sent.
    struct Head
    {
        AccessUnitPtr unit;  ///< as it is sent; null until that and its timestamp are settled
        std::uint32_t timestamp = 0;
        std::size_t packetsSent = 0;
    };

    bool empty() const
    {
        return units_.empty();
    }

    std::size_t size() const
    {
        return units_.size();
    }

    /// Sum of the units' packets.
    std::size_t bytes() const
    {
        return bytes_;
    }

    /// The recording from the first unit to the last: only what belongs to one section counts.
    Duration span() const;

    /// Appends a unit. Files may hold audio and video of the same time far from each other: it goes in
    /// front of later units of the other track.
    void add(PlaybackUnit unit);

    PlaybackUnit& front()
    {
        return units_.front();
    }

    const PlaybackUnit& front() const
    {
        return units_.front();
    }

    Head& head()
    {
        return head_;
    }

    void pop();
    void clear();

private:
    std::deque<PlaybackUnit> units_;
    Head head_;
    std::size_t bytes_ = 0;
};

}  // namespace refhost

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "refhost/playback/PlaybackSource.h"

namespace refhost
{

/// Units that were read and not sent yet, in the order in which they are due. Threads: one at a time.
class PlaybackQueue
{
public:
    /// The next unit and how much of it was sent.
    struct Head
    {
        AccessUnitPtr unit;  ///< as it is sent; null until it is prepared
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

    /// Time from the first unit to the last; 0 when a gap lies between.
    Duration span() const;

    /// Inserts a unit before later units of the other track: files may hold audio and video of the same time
    /// far from each other.
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

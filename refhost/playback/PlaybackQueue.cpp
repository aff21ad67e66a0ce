#include "refhost/playback/PlaybackQueue.h"

#include <utility>

namespace refhost
{

Duration PlaybackQueue::span() const
{
    if (units_.empty() || units_.front().range != units_.back().range)
    {
        return {};
    }
    return units_.back().due - units_.front().due;
}

void PlaybackQueue::add(PlaybackUnit unit)
{
    bytes_ += unit.unit->bytes.size();
    auto place = units_.end();
    // Never before the first one, which may be sent in part.
    while (place - units_.begin() > 1)
    {
        const PlaybackUnit& before = *std::prev(place);
        if (before.range != unit.range || before.video == unit.video || before.due <= unit.due)
        {
            break;
        }
        --place;
    }
    units_.insert(place, std::move(unit));
}

void PlaybackQueue::pop()
{
    bytes_ -= units_.front().unit->bytes.size();
    units_.pop_front();
    head_ = Head();
}

void PlaybackQueue::clear()
{
    units_.clear();
    head_ = Head();
    bytes_ = 0;
}

}  // namespace refhost

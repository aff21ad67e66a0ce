#include "refhost/capture/DecodeTimes.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "refhost/media/ReorderDepth.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

/// A frame is presented for about so long where nothing says.
constexpr Duration usualDuration = 40ms;
/// Presentation times that go back further than this were set back; closer ones are reordered.
constexpr Duration maxReordering = 1s;

}  // namespace

void DecodeTimes::setDepth(unsigned depth)
{
    depth_ = std::min(depth, ReorderDepth::max);
}

MonotonicTime DecodeTimes::next(MonotonicTime presentation, Duration duration, bool keyFrame)
{
    if (last_ && presentation < *last_ - maxReordering)
    {
        reset();
    }
    if (!last_)
    {
        if (!keyFrame)
        {
            return presentation;
        }
        start(presentation, duration);
    }
    if (presentation < start_)
    {
        return presentation;
    }
    if (presentation <= *last_)
    {
        return deepen(presentation);
    }
    waiting_.push(presentation);
    const MonotonicTime earliest = waiting_.top();
    if (waiting_.size() <= depth_)
    {
        // Evenly up to the first presentation time that is taken.
        const auto steps = static_cast<std::int64_t>(depth_ + 2 - waiting_.size());
        last_ = *last_ + (earliest - *last_) / steps;
        return *last_;
    }
    MonotonicTime taken = earliest;
    // Several where the depth became less.
    while (waiting_.size() > depth_ && waiting_.top() <= presentation)
    {
        taken = waiting_.top();
        waiting_.pop();
    }
    lastTaken_ = taken;
    last_ = taken;
    return taken;
}

void DecodeTimes::reset()
{
    waiting_ = {};
    last_.reset();
    lastTaken_.reset();
}

void DecodeTimes::start(MonotonicTime presentation, Duration duration)
{
    const Duration step = duration > Duration::zero() ? duration : usualDuration;
    start_ = presentation;
    last_ = presentation - static_cast<std::int64_t>(depth_ + 1) * step;
}

/// A frame comes later than the depth permits: takes back what was taken too early.
MonotonicTime DecodeTimes::deepen(MonotonicTime presentation)
{
    if (depth_ < ReorderDepth::max && lastTaken_)
    {
        ++depth_;
        waiting_.push(*lastTaken_);
    }
    lastTaken_ = presentation;
    last_ = presentation;
    return presentation;
}

}  // namespace refhost

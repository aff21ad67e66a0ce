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

/// Assumed duration of a frame when unknown.
constexpr Duration defaultDuration = 40ms;
/// A presentation time that goes back further is a discontinuity rather than reordering.
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
        // Evenly spaced up to the first presentation time that is used.
        const auto steps = static_cast<std::int64_t>(depth_ + 2 - waiting_.size());
        last_ = *last_ + (earliest - *last_) / steps;
        return *last_;
    }
    MonotonicTime taken = earliest;
    // Several when the depth decreased.
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
    const Duration step = duration > Duration::zero() ? duration : defaultDuration;
    start_ = presentation;
    last_ = presentation - static_cast<std::int64_t>(depth_ + 1) * step;
}

/// A frame is reordered further than the depth permits: puts back the presentation time used too early.
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

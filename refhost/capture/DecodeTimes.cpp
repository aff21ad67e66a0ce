#include "refhost/capture/DecodeTimes.h"

#include <algorithm>

#include "refhost/capture/ReorderDepth.h"

namespace refhost
{
namespace
{

/// A frame is presented for about so long where nothing says.
constexpr std::int64_t usualDurationNs = 40'000'000;
/// Presentation times that go back further than this were set back; closer ones are reordered.
constexpr std::int64_t maxReorderingNs = 1'000'000'000;

}  // namespace

void DecodeTimes::setDepth(unsigned depth)
{
    depth_ = std::min(depth, ReorderDepth::max);
}

std::int64_t DecodeTimes::next(std::int64_t presentationNs, std::int64_t durationNs, bool keyFrame)
{
    if (last_ && presentationNs < *last_ - maxReorderingNs)
    {
        reset();
    }
    if (!last_)
    {
        if (!keyFrame)
        {
            return presentationNs;
        }
        start(presentationNs, durationNs);
    }
    if (presentationNs < startNs_)
    {
        return presentationNs;
    }
    if (presentationNs <= *last_)
    {
        return deepen(presentationNs);
    }
    waiting_.push(presentationNs);
    const std::int64_t earliest = waiting_.top();
    if (waiting_.size() <= depth_)
    {
        // Evenly up to the first presentation time that is taken.
        const auto steps = static_cast<std::int64_t>(depth_ + 2 - waiting_.size());
        last_ = *last_ + (earliest - *last_) / steps;
        return *last_;
    }
    std::int64_t taken = earliest;
    // Several where the depth became less.
    while (waiting_.size() > depth_ && waiting_.top() <= presentationNs)
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

void DecodeTimes::start(std::int64_t presentationNs, std::int64_t durationNs)
{
    const std::int64_t stepNs = durationNs > 0 ? durationNs : usualDurationNs;
    startNs_ = presentationNs;
    last_ = presentationNs - static_cast<std::int64_t>(depth_ + 1) * stepNs;
}

/// A frame comes later than the depth permits: takes back what was taken too early.
std::int64_t DecodeTimes::deepen(std::int64_t presentationNs)
{
    if (depth_ < ReorderDepth::max && lastTaken_)
    {
        ++depth_;
        waiting_.push(*lastTaken_);
    }
    lastTaken_ = presentationNs;
    last_ = presentationNs;
    return presentationNs;
}

}  // namespace refhost

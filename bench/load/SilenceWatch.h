#pragma once

#include <algorithm>
#include <cstdint>

namespace rtspload
{

/// The longest time between two packets of one viewer. Times are of one clock, in nanoseconds.
class SilenceWatch
{
public:
    /// Forgets everything: from `now` on, silence counts.
    void restart(std::int64_t now)
    {
        last_ = now;
        longest_ = 0;
    }

    /// A packet was received.
    void onPacket(std::int64_t now)
    {
        longest_ = longest(now);
        last_ = now;
    }

    /// The longest silence so far, the one that lasts included.
    std::int64_t longest(std::int64_t now) const
    {
        return std::max(longest_, now - last_);
    }

private:
    std::int64_t last_ = 0;
    std::int64_t longest_ = 0;
};

}  // namespace rtspload

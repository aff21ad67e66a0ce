#pragma once

#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/media/AccessUnit.h"

namespace refhost
{

/// The RTP timestamps of one track of one session: how capture times of a source map to them.
///
/// They begin at a random value, never go back, and run on by the elapsed capture time where the source's own
/// timestamps begin again. Threads: one at a time.
class RtpTimeline
{
public:
    /// \param first  timestamp of the first unit
    RtpTimeline(RtpClock clock, std::uint32_t first);

    RtpClock clock() const
    {
        return clock_;
    }

    /// The timestamp that take() would give this unit now.
    /// \param epoch  changes where the source's timestamps begin again
    std::uint32_t peek(const AccessUnit& unit, std::uint32_t epoch) const;

    /// Gives the next unit its timestamp.
    /// \param[out] moved  true when capture times map differently than before
    std::uint32_t take(const AccessUnit& unit, std::uint32_t epoch, bool& moved);

    /// Promises a timestamp to a unit that does not exist yet: the next one taken gets it.
    /// \returns the timestamp; the same one until take()
    std::uint32_t announce(MonotonicTime now);

    /// The timestamp of a capture time, by the last unit taken; meaningless before the first.
    std::uint32_t at(MonotonicTime capture) const;

    /// Capture time of the last unit taken.
    MonotonicTime lastCapture() const
    {
        return lastCapture_;
    }

private:
    std::uint32_t following(MonotonicTime capture) const;

    RtpClock clock_;
    std::uint32_t epoch_ = 0;
    std::uint32_t offset_ = 0;
    std::uint32_t last_;
    bool announced_ = true;  // last_ is promised to the next unit
    MonotonicTime lastCapture_;
};

}  // namespace refhost

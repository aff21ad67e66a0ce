#pragma once

#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/media/AccessUnit.h"

namespace refhost
{

/// Maps capture times of a source to the RTP timestamps of one track of one session.
///
/// Timestamps start at a random value and never go back. Where the source restarts its own timestamps, they
/// advance by the elapsed capture time. Threads: one at a time.
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
    /// \param epoch  changes when the source restarts its timestamps
    std::uint32_t peek(const AccessUnit& unit, std::uint32_t epoch) const;

    /// Gives the next unit its timestamp.
    /// \param[out] moved  true when capture times map differently than before
    std::uint32_t take(const AccessUnit& unit, std::uint32_t epoch, bool& moved);

    /// Reserves a timestamp for the next unit taken, which does not exist yet.
    /// \returns the timestamp; the same one until take()
    std::uint32_t announce(MonotonicTime now);

    /// The timestamp of a capture time, relative to the last unit taken; meaningless before the first.
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
    bool announced_ = true;  // last_ is reserved for the next unit
    MonotonicTime lastCapture_;
};

}  // namespace refhost

#pragma once

#include <cstdint>

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
    /// \param clockRate  ticks a second
    /// \param first      timestamp of the first unit
    RtpTimeline(std::uint32_t clockRate, std::uint32_t first);

    /// Ticks a second.
    std::uint32_t clockRate() const
    {
        return clockRate_;
    }

    /// The timestamp that take() would give this unit now.
    /// \param epoch  changes where the source's timestamps begin again
    std::uint32_t peek(const AccessUnit& unit, std::uint32_t epoch) const;

    /// Gives the next unit its timestamp.
    /// \param[out] moved  true when capture times map differently than before
    std::uint32_t take(const AccessUnit& unit, std::uint32_t epoch, bool& moved);

    /// Promises a timestamp to a unit that does not exist yet: the next one taken gets it.
    /// \param nowNs  by the clock of capture times
    /// \returns the timestamp; the same one until take()
    std::uint32_t announce(std::int64_t nowNs);

    /// The timestamp of a capture time, by the last unit taken; meaningless before the first.
    std::uint32_t at(std::int64_t captureNs) const;

    /// Capture time of the last unit taken.
    std::int64_t lastCaptureNs() const
    {
        return lastCaptureNs_;
    }

private:
    std::uint32_t following(std::int64_t captureNs) const;

    std::uint32_t clockRate_;
    std::uint32_t epoch_ = 0;
    std::uint32_t offset_ = 0;
    std::uint32_t last_;
    bool announced_ = true;  // last_ is promised to the next unit
    std::int64_t lastCaptureNs_ = 0;
};

}  // namespace refhost

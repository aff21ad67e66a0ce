#pragma once
// Tested by tests/refhost/talkback/outputs/OutputPlayer_test.cpp.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "refhost/base/Times.h"

namespace refhost
{

/// A format of interleaved signed 16-bit samples. A plain value.
struct PcmFormat
{
    int sampleRate = 48000;  ///< Hz
    int channels = 1;

    /// Frames that last as long as `span`, rounded down. Requires: not negative.
    std::size_t frames(std::chrono::milliseconds span) const
    {
        return static_cast<std::size_t>(sampleRate) * static_cast<std::size_t>(span.count()) / 1000;
    }

    /// The rate as a clock that ticks once a frame.
    RtpClock clock() const
    {
        return RtpClock(static_cast<std::uint32_t>(std::max(sampleRate, 1)));
    }
};

}  // namespace refhost

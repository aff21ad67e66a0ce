#pragma once

#include <chrono>
#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/playback/PlaySpeed.h"

namespace refhost
{

/// How a recording plays: its speed and the bits of the last setPlayRange(). A plain value.
struct PlayMode
{
    PlaySpeed speed;
    int kind = 0;  ///< of PlayRangeKind

    bool replay() const
    {
        return (kind & playRangeReplay) != 0;
    }

    /// Units are sent when they are due, not as fast as the client takes them.
    bool paced() const
    {
        return (kind & playRangeUnpaced) == 0;
    }

    bool keyFramesOnly() const
    {
        return speed.keyFramesOnly() || onlyKeyFramesRequested();
    }

    /// Min. distance of key frames in the recording; 0: every one is sent.
    Duration keyDistance() const
    {
        constexpr std::chrono::milliseconds unit(10);
        return onlyKeyFramesRequested() ? (kind >> playRangeDistanceShift & playRangeMaxDistance) * unit
                                        : Duration::zero();
    }

    /// Low byte of the CSeq of the request, for the replay extension.
    std::uint8_t sequence() const
    {
        return static_cast<std::uint8_t>(kind >> playRangeSequenceShift);
    }

private:
    bool onlyKeyFramesRequested() const
    {
        return (kind & playRangeKeyFrames) != 0;
    }
};

}  // namespace refhost

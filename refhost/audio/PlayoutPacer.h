#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/audio/PcmFormat.h"

namespace refhost
{

/// Decides how sound that comes unevenly is given to an output that plays evenly: how far it is kept ahead of
/// what is heard, so that uneven packets leave no holes, and never so far that talk lags behind.
///
/// It begins 40 ms ahead, also after each pause. The talker's clock and the output's are never quite the
/// same: as the sound drifts out of its place it is stretched or shortened by a few thousandths, which nobody
/// hears. Sound that would come more than 80 ms late is dropped.
///
/// Threads: one at a time.
class PlayoutPacer
{
public:
    explicit PlayoutPacer(const PcmFormat& format);

    /// Makes of a piece of sound what is to be written.
    /// \param queued           frames that the output has to play yet; 0: it ran dry
    /// \param[in,out] samples  the piece; becomes empty where it is dropped
    void pace(std::size_t queued, std::vector<std::int16_t>& samples);

private:
    std::size_t framesOf(int ms) const;
    void cut(std::size_t ahead, std::vector<std::int16_t>& samples) const;
    void watch(std::size_t ahead, std::size_t frames);
    void stretch(std::vector<std::int16_t>& samples);

    const PcmFormat format_;
    const std::size_t channels_;
    std::size_t watched_ = 0;  // frames since the watch began
    std::size_t least_ = 0;    // the least that the sound was ahead in that time
    int drift_ = 0;            // 1: too far ahead, shorten; -1: too close, stretch
    std::vector<std::int16_t> stretched_;
};

}  // namespace refhost

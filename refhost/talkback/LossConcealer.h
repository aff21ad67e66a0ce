#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Makes up for lost audio: the last period of what was heard goes on, fading out within 60 ms, and what
/// comes after the gap is blended in.
///
/// Threads: one at a time.
class LossConcealer
{
public:
    /// Takes note of audio that is about to be played; behind a gap its beginning is blended with what was
    /// made up.
    void heard(const PcmFormat& format, std::vector<std::int16_t>& samples);

    /// Makes up `frames` frames.
    /// \param[in,out] samples  they are appended; silence when nothing of that format was heard
    void makeUp(const PcmFormat& format, std::size_t frames, std::vector<std::int16_t>& samples);

    void reset();

private:
    void use(const PcmFormat& format);
    std::size_t period() const;
    std::int16_t next(std::size_t channel) const;

    PcmFormat format_;
    std::vector<std::int16_t> past_;  // the last of what was heard
    std::size_t period_ = 0;          // frames that are repeated; 0 outside of a gap
    std::size_t made_ = 0;            // frames made up since the gap started
};

}  // namespace refhost

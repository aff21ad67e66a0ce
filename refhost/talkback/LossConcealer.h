#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Conceals lost audio: repeats the last period, fading out within 60 ms, and blends in the audio after the
/// gap.
///
/// Threads: one at a time.
class LossConcealer
{
public:
    /// Takes decoded audio before it is played; behind a gap its start is blended with the concealment.
    void noteDecoded(const PcmFormat& format, std::vector<std::int16_t>& samples);

    /// Generates `frames` frames of concealment.
    /// \param[in,out] samples  they are appended; silence without earlier audio of that format
    void makeUp(const PcmFormat& format, std::size_t frames, std::vector<std::int16_t>& samples);

    void reset();

private:
    void use(const PcmFormat& format);
    std::size_t period() const;
    std::int16_t next(std::size_t channel) const;

    PcmFormat format_;
    std::vector<std::int16_t> past_;  // the last decoded audio
    std::size_t period_ = 0;          // frames that are repeated; 0 outside a gap
    std::size_t made_ = 0;            // frames generated since the gap started
};

}  // namespace refhost

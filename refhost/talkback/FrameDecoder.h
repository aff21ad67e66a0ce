#pragma once
// Tested by tests/refhost/talkback/TalkDecoder_test.cpp.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// One codec: encoded frames to audio in its original format.
///
/// Threads: one at a time. No operation waits.
class FrameDecoder
{
public:
    virtual ~FrameDecoder() = default;

    /// The format of the audio; certain only after the first frame.
    virtual PcmFormat format() const = 0;

    /// Decodes one frame, \see TalkDecoder::decode
    /// \param[out] samples  interleaved audio of format(); empty while the codec delays it
    /// \returns false for a frame that cannot be decoded
    virtual bool decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples) = 0;

    /// Forgets earlier frames.
    virtual void reset() = 0;
};

}  // namespace refhost

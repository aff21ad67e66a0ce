#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "refhost/media/ByteSpan.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// Makes JPEG files of key frames. Takes some 10 milliseconds for a frame of 1920 by 1080 pixels. Threads: any;
/// no state.
class JpegMaker
{
public:
    /// Larger frames are refused: 8192 by 4320 pixels.
    static constexpr std::int64_t maxPixels = std::int64_t{8192} * 4320;

    /// \param format     of the track, with its configuration record
    /// \param frame      a key frame, in the form of EncodedUnit::bytes
    /// \param width      of the result, pixels; 0, or wider than the frame: as wide as the frame. The height follows
    /// \param[out] error why not, in plain words
    /// \returns nothing with `error` set when the frame is corrupt or too large. Motion JPEG that need not be scaled is
    ///          returned as it is
    static std::optional<std::string> make(const MediaFormat& format, ByteSpan frame, int width,
                                           std::string& error);
};

}  // namespace refhost

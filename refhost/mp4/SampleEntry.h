#pragma once
// Tested by tests/refhost/mp4/SampleEntry_test.cpp.

#include <string>

#include "refhost/media/EncodedUnit.h"
#include "refhost/mp4/Mp4Writer.h"

namespace refhost
{

/// How MP4 files describe a track's codec. Threads: any; no state.
class SampleEntry
{
public:
    /// Writes the entry of a sample description box. H.264 and H.265 as `avc1` and `hvc1` (ISO/IEC 14496-15),
    /// Motion JPEG as `mp4v`, AAC as `mp4a`, Opus as `Opus`, PCMU and PCMA as QuickTime's `ulaw` and `alaw`,
    /// since MP4 has no entry of its own for them.
    static void write(Mp4Writer& out, const MediaFormat& format);

    /// The codec as browsers are asked for it (RFC 6381, section 3.3), such as "avc1.42C00D" and "mp4a.40.2".
    /// \returns an empty text for a codec that has no such name, or whose configuration record is too short
    static std::string codecString(const MediaFormat& format);
};

}  // namespace refhost

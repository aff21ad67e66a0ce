#pragma once
// Tested by tests/refhost/recording/SegmentWriter_test.cpp.

#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// What a decoder or a file must know of a track before its first unit.
struct MediaFormat
{
    Codec codec{};
    /// H.264 and H.265: the decoder configuration record (avcC, hvcC) that goes with length-prefixed NAL
    /// units; AAC: the AudioSpecificConfig; otherwise empty.
    std::vector<std::uint8_t> codecData;
    int width = 0;       ///< pixels; 0 for audio
    int height = 0;      ///< pixels; 0 for audio
    int sampleRate = 0;  ///< Hz; 0 for video
    int channels = 0;    ///< 0 for video

    bool operator==(const MediaFormat& other) const
    {
        return codec == other.codec && codecData == other.codecData && width == other.width &&
               height == other.height && sampleRate == other.sampleRate && channels == other.channels;
    }
};

/// One frame or block of audio as it was coded, before it is cut into packets.
struct EncodedUnit
{
    std::shared_ptr<const MediaFormat> format;  ///< never null; another object where the format changed
    std::vector<std::uint8_t> bytes;            ///< frames as length-prefixed NAL units
    MonotonicTime captureTime;                  ///< HostClock::now() of its presentation
    /// On the same clock: never later than the presentation, and growing from the first key frame on
    /// (DecodeTimes).
    MonotonicTime decodeTime;
    Duration duration{};    ///< 0 when unknown
    bool keyFrame = false;  ///< can be decoded without those before; always true for audio
};

using EncodedUnitPtr = std::shared_ptr<const EncodedUnit>;

/// Takes the encoded units of all tracks of a stream.
///
/// Threads: a track's units come one at a time and in decoding order, each track's from a thread of its own,
/// which codes the media too: a sink must not block.
class EncodedUnitSink
{
public:
    virtual ~EncodedUnitSink() = default;

    virtual void onEncodedUnit(const EncodedUnitPtr& unit) = 0;
    /// The source was stopped: what comes next does not continue what came before.
    virtual void onDiscontinuity() = 0;
};

}  // namespace refhost

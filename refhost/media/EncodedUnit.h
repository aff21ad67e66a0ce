#pragma once
// Tested by tests/refhost/recording/SegmentWriter_test.cpp.

#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// The format of a track, which a decoder or a file needs before the first unit.
struct MediaFormat
{
    Codec codec{};
    /// H.264 and H.265: the decoder configuration record (avcC, hvcC) for length-prefixed NAL units; AAC: the
    /// AudioSpecificConfig; otherwise empty.
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

/// One encoded video frame or block of audio, before packetization.
struct EncodedUnit
{
    std::shared_ptr<const MediaFormat> format;  ///< never null; a new object when the format changes
    std::vector<std::uint8_t> bytes;            ///< H.264 and H.265 as length-prefixed NAL units
    MonotonicTime captureTime;                  ///< presentation time on HostClock::now()
    /// On the same clock: never later than captureTime, and increasing from the first key frame on
    /// (DecodeTimes).
    MonotonicTime decodeTime;
    Duration duration{};    ///< 0 when unknown
    bool keyFrame = false;  ///< can be decoded without earlier units; always true for audio
    /// Packets of a frame were lost between camera and server, or all of a frame in front of it that it needs:
    /// decoders show errors up to the next key frame.
    bool damaged = false;
};

using EncodedUnitPtr = std::shared_ptr<const EncodedUnit>;

/// Receives the encoded units of all tracks of a stream.
///
/// Threads: the units of a track arrive one at a time and in decoding order, on a thread per track. The thread
/// also encodes the media: a sink must not block.
class EncodedUnitSink
{
public:
    virtual ~EncodedUnitSink() = default;

    virtual void onEncodedUnit(const EncodedUnitPtr& unit) = 0;
    /// The source was stopped: later units do not continue earlier ones.
    virtual void onDiscontinuity() = 0;
};

}  // namespace refhost

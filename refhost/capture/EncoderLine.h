#pragma once
// Tested by tests/refhost/capture/MediaSource_test.cpp.

#include <gst/gst.h>

#include <string>

#include "refhost/config/Config.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// What encodes raw frames of any format and size to what the configuration asks for, as a launch line.
/// Frames that come more slowly than configured are not repeated, because the repeats could only leave in
/// bursts; the time from key frame to key frame stays. \param raw  caps of the frames
std::string videoEncoderLine(Codec codec, const StreamConfig& config, const GstCaps* raw);

/// The same without conversions in front, for a source that makes the right frames.
std::string bareVideoEncoderLine(Codec codec, const StreamConfig& config);

/// What encodes raw audio of any format, as a launch line.
std::string audioEncoderLine(Codec codec);

/// \returns the bit rate that the host encodes the codec with, kbit/s; 0 when unknown
int encodedBitRate(Codec codec, const StreamConfig& config);

}  // namespace refhost

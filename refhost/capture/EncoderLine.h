#pragma once
// Tested by tests/refhost/capture/MediaSource_test.cpp.

#include <gst/gst.h>

#include <string>

#include "refhost/config/Config.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// Launch line that encodes raw frames of any format and size as configured. A lower frame rate than
/// configured is kept, because repeated frames would leave in bursts; the GOP's duration stays the same.
/// \param raw  caps of the frames
std::string videoEncoderLine(Codec codec, const StreamConfig& config, const GstCaps* raw);

/// The same without conversions, for a source that delivers frames of the configured format.
std::string bareVideoEncoderLine(Codec codec, const StreamConfig& config);

/// Launch line that encodes raw audio of any format.
std::string audioEncoderLine(Codec codec);

/// \returns the encoder's bit rate in kbit/s; 0 when unknown
int encodedBitRate(Codec codec, const StreamConfig& config);

}  // namespace refhost

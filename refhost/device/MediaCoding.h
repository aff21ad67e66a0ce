#pragma once

#include <gst/gst.h>

#include <optional>
#include <string>

#include "refhost/device/AccessUnitBuilder.h"
#include "refhost/device/Config.h"
#include "refhost/device/GstHandles.h"

namespace refhost
{

/// The codings that this host sends.
enum class MediaCoding
{
    h264,
    h265,
    aac,
    pcmu,
    pcma
};

bool isVideo(MediaCoding coding);

/// Track ids follow the kind of media, so that they are known before all tracks are.
/// \returns "trackID=0" for video, "trackID=1" for audio
const char* trackIdOf(MediaCoding coding);

/// \returns the coding of that name in the configuration; nothing for "none"
std::optional<MediaCoding> codingNamed(const std::string& name);

/// \returns the coding with that encoding name in a description ("H264", "MPEG4-GENERIC"); nothing for
/// another
std::optional<MediaCoding> codingEncodedAs(const std::string& encodingName);

/// \returns the coding of a stream with these caps; nothing when this host cannot send it as it is
std::optional<MediaCoding> codingOf(const GstCaps* caps);

/// Caps of everything that is sent as it is, and of raw video and audio.
GstValuePtr<GstCaps> acceptableCaps();

/// What encodes raw pictures of any format and size to what the configuration asks for, as a launch line.
/// Pictures that come more slowly than configured are not repeated, because the repeats could only leave in
/// bursts; the time from key picture to key picture stays. \param raw  caps of the pictures
std::string videoEncoderLine(MediaCoding coding, const StreamConfig& config, const GstCaps* raw);

/// The same without conversions in front, for a source that makes the right pictures.
std::string bareVideoEncoderLine(MediaCoding coding, const StreamConfig& config);

/// What encodes raw sound of any format, as a launch line.
std::string audioEncoderLine(MediaCoding coding);

/// What brings coded media into the one form that is payloaded, as a launch line.
std::string parserLine(MediaCoding coding);

/// The payloader without its properties for size, as a launch line.
std::string payloaderLine(MediaCoding coding);

/// How packets of the coding become access units.
AccessUnitBuilder::Coding unitCoding(MediaCoding coding);

/// \returns the bit rate that the host encodes the coding with, kbit/s
int encodedBitRate(MediaCoding coding, const StreamConfig& config);

}  // namespace refhost

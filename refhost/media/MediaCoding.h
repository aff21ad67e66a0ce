#pragma once

#include <gst/gst.h>

#include <optional>
#include <string>

#include "refhost/media/AccessUnitBuilder.h"
#include "refhost/media/GstHandles.h"

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

/// What brings coded media into the one form that is payloaded, as a launch line.
std::string parserLine(MediaCoding coding);

/// The payloader without its properties for size, as a launch line.
std::string payloaderLine(MediaCoding coding);

/// How packets of the coding become access units.
AccessUnitBuilder::Coding unitCoding(MediaCoding coding);

}  // namespace refhost

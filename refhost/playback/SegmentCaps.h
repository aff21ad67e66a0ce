#pragma once
// Tested by tests/refhost/playback/SegmentFile_test.cpp.

#include <gst/gst.h>

#include <optional>

#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

struct AVStream;

namespace refhost
{

/// Codec and GStreamer caps of a file's track.
struct SegmentCaps
{
    Codec codec;
    GstValuePtr<GstCaps> caps;
};

/// \returns nothing for a track that this host cannot send
std::optional<SegmentCaps> segmentCaps(const AVStream& stream);

/// Whether a decoder accepts a track's parameters, such as parameter sets. Does not read media.
bool isDecodable(const AVStream& stream);

}  // namespace refhost

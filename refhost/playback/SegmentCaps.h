#pragma once
// Tested by tests/refhost/playback/SegmentFile_test.cpp.

#include <gst/gst.h>

#include <optional>

#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

struct AVStream;

namespace refhost
{

/// What a track of a file holds, in GStreamer's words.
struct SegmentCaps
{
    Codec codec;
    GstValuePtr<GstCaps> caps;
};

/// \returns nothing for a track that this host cannot send
std::optional<SegmentCaps> segmentCaps(const AVStream& stream);

/// Whether a decoder takes what describes a track, such as its parameter sets; nothing of the media is looked
/// at.
bool isDecodable(const AVStream& stream);

}  // namespace refhost

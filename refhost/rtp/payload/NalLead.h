#pragma once
// Tested by tests/refhost/rtp/payload/H264Depacketizer_test.cpp, tests/refhost/rtp/payload/H265Depacketizer_test.cpp.

#include "refhost/media/NalSyntax.h"

namespace refhost
{

/// What the payload of an RTP packet of H.264 or H.265 starts with. A plain value.
struct NalLead
{
    enum class Place
    {
        start,      ///< the first slice of a frame, or what stands in front of it
        more,       ///< nothing but more of a frame that started before
        delimiter,  ///< the start of a frame for certain
        anywhere
    };

    NalKind kind = NalKind::other;   ///< of the payload, not of what is in it
    NalKind first = NalKind::other;  ///< of the first NAL unit in it, or of the one that it is a part of
    Place place = Place::anywhere;
    bool annexB = false;  ///< start codes stand between its units

    /// Reads a payload of at least one byte.
    /// \returns null where its inner lengths and types fit, otherwise why they do not
    static const char* read(const NalSyntax& syntax, ByteSpan payload, NalLead& out);
};

}  // namespace refhost

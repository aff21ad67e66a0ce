#pragma once

#include <gst/gst.h>

#include <string>

#include "hostapi/description/SubMediaInfo.h"

namespace refhost
{

/// Fills a track's description from what the stream really is.
///
/// Format parameters are those that the codec table names, with the values of the payloader.
/// \param rtpCaps    what the payloader makes ("application/x-rtp")
/// \param mediaCaps  what goes into the payloader; null when unknown: size and rate stay 0 then
/// \param trackId    what the track is called
/// \param[out] out   filled on success, otherwise left as it was; `bitRate` is 0 except where the codec
/// fixes it
/// \returns false when the caps do not hold all that a player needs, such as the parameter sets,
/// and for codecs that the table does not know
bool describeTrack(const GstCaps* rtpCaps, const GstCaps* mediaCaps, const std::string& trackId,
                   SubMediaInfo& out);

/// \returns true when two descriptions of a track say the same
bool sameDescription(const SubMediaInfo& left, const SubMediaInfo& right);

}  // namespace refhost

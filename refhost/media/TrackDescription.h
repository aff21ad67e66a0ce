#pragma once

#include <gst/gst.h>

#include <string>

#include "hostapi/description/SubMediaInfo.h"

namespace refhost
{

/// Describes a track by the actual caps of its stream. Threads: any; no state.
///
/// The format parameters are those of the codec table with the payloader's values.
/// \param rtpCaps    output of the payloader ("application/x-rtp")
/// \param mediaCaps  input of the payloader; null when unknown: dimensions and rates are 0 then
/// \param[out] out   set on success, otherwise unchanged; `bitRate` is 0 unless the codec fixes it
/// \returns false when the caps lack something that players need, such as parameter sets, and for codecs that
///          the table does not list
bool describeTrack(const GstCaps* rtpCaps, const GstCaps* mediaCaps, const std::string& trackId,
                   SubMediaInfo& out);

/// \returns true when two descriptions of a track are equal
bool sameDescription(const SubMediaInfo& left, const SubMediaInfo& right);

}  // namespace refhost

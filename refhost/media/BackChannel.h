#pragma once

#include <optional>
#include <string>

#include "hostapi/description/SubMediaInfo.h"

namespace refhost
{

/// The track on which clients send sound in a codec of the configuration.
///
/// All cameras' tracks have one name: the talk-back manager serves sessions of one track name at a time.
/// \param codec  "pcmu" or "pcma", 8 kHz; "aac", AAC-LC of 16 kHz in mode AAC-hbr; all with one channel
/// \returns nothing for any other text
std::optional<SubMediaInfo> backChannelOf(const std::string& codec);

}  // namespace refhost

#pragma once

#include <optional>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// The track on which clients send audio in a codec of the configuration.
///
/// All cameras' tracks have one name: the talk-back manager serves sessions of one track name at a time.
/// \returns nothing for none, and for a codec in which clients cannot talk
std::optional<SubMediaInfo> backChannelOf(const std::optional<Codec>& codec);

}  // namespace refhost

#pragma once

#include <optional>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// The back channel track, on which clients send audio in the configured codec.
///
/// It has the same name for every camera, because the talk-back manager serves sessions of one track name at
/// a time.
/// \returns nothing without a codec and for a codec that has no talk-back
std::optional<SubMediaInfo> backChannelOf(const std::optional<Codec>& codec);

}  // namespace refhost

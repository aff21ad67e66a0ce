#pragma once

#include <string>

#include "bench/canned/CannedMedia.h"
#include "bench/load/RtspUrl.h"

namespace rtspcanned
{

/// Plays a live stream's first video track from a server of this machine and keeps what it sends.
/// \param seconds  how much to keep, at least; up to the next key frame
/// \throws std::runtime_error when the server does not play, or sends no two key frames in time
CannedMedia recordFrom(const rtspload::RtspUrl& url, double seconds);

}  // namespace rtspcanned

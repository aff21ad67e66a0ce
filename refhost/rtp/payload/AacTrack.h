#pragma once
// Tested by tests/refhost/rtp/payload/AacDepacketizer_test.cpp, tests/refhost/rtp/payload/LatmDepacketizer_test.cpp.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "refhost/media/EncodedUnit.h"
#include "refhost/rtp/payload/AudioConfig.h"
#include "refhost/rtp/payload/PayloadDescription.h"

namespace refhost
{

/// What an AudioSpecificConfig makes of a track. A plain value.
struct AacTrack
{
    MediaFormat format;
    std::uint32_t unitTicks = 0;  ///< of the RTP clock in one access unit

    /// \param config     the record, in whole bytes
    /// \param clockRate  Hz of RTP; at least 1
    /// \returns nothing when the config cannot be read
    static std::optional<AacTrack> of(std::vector<std::uint8_t> config, int clockRate);
};

}  // namespace refhost

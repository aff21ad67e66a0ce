#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "refhost/media/ByteSpan.h"

namespace refhost
{

/// What an AudioSpecificConfig of AAC says (ISO/IEC 14496-3, 1.6.2.1). A plain value.
struct AudioConfig
{
    std::uint32_t sampleRate = 0;       ///< Hz, of the core codec
    int channels = 0;                   ///< 1 to 8
    std::uint32_t frameSamples = 1024;  ///< of the core codec in one unit: 1024 or 960
    std::size_t bits = 0;               ///< how many bits of what was read are the config

    /// \param start  bits to leave out in front
    /// \returns nothing when it cannot be read, or is of what AAC decoders do not know
    static std::optional<AudioConfig> read(ByteSpan bytes, std::size_t start = 0);
};

}  // namespace refhost

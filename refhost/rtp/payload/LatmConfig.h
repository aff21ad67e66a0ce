#pragma once
// Tested by tests/refhost/rtp/payload/LatmDepacketizer_test.cpp.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "refhost/media/ByteSpan.h"

namespace refhost
{

/// What a StreamMuxConfig says (ISO/IEC 14496-3, 1.7.3.1). A plain value.
struct LatmConfig
{
    std::vector<std::uint8_t> audioConfig;  ///< the AudioSpecificConfig, filled up to whole bytes
    std::size_t units = 1;                  ///< access units in an element

    /// \returns nothing for several programs or layers, for frames of fixed sizes, and when it cannot be read
    static std::optional<LatmConfig> read(ByteSpan bytes);
};

}  // namespace refhost

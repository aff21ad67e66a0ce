#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// Max number of frames that precede a frame in decoding order and follow it in presentation order, from the
/// stream's sequence parameter sets. 0: frames are presented in decoding order.
///
/// Threads: any.
class ReorderDepth
{
public:
    /// Limit of the standards.
    static constexpr unsigned max = 16;

    /// From a decoder configuration record (avcC, hvcC): the largest of its parameter sets, `max` when none
    /// can be read. 0 for audio.
    static unsigned of(const MediaFormat& format);

    /// From one sequence parameter set of H.264: `max_num_reorder_frames` (E.2.1), or the inferred value
    /// without it. Profiles without B slices have no reordering.
    /// \param nalUnit  with its header
    /// \returns nothing when it cannot be read
    static std::optional<unsigned> ofH264(const std::uint8_t* nalUnit, std::size_t size);

    /// From one sequence parameter set of H.265: `sps_max_num_reorder_pics` of the highest sub-layer
    /// (7.4.3.2.1). As above.
    static std::optional<unsigned> ofH265(const std::uint8_t* nalUnit, std::size_t size);
};

}  // namespace refhost

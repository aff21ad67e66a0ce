#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// How many frames may precede a frame in decoding order and follow it in the order of presentation, as a
/// stream's sequence parameter sets say. 0: frames are presented in the order in which they come.
///
/// Threads: any.
class ReorderDepth
{
public:
    /// No stream that conforms has more.
    static constexpr unsigned max = 16;

    /// By a decoder configuration record (avcC, hvcC): the largest of its parameter sets, `max` when none can
    /// be read. 0 for audio.
    static unsigned of(const MediaFormat& format);

    /// By one sequence parameter set of H.264: `max_num_reorder_frames` (E.2.1), or what is inferred without
    /// it. Profiles without B slices are taken to have no reordering. \param nalUnit  with its header
    /// \returns nothing when it cannot be read
    static std::optional<unsigned> ofH264(const std::uint8_t* nalUnit, std::size_t size);

    /// By one sequence parameter set of H.265: `sps_max_num_reorder_pics` of the highest sub-layer
    /// (7.4.3.2.1).
    static std::optional<unsigned> ofH265(const std::uint8_t* nalUnit, std::size_t size);
};

}  // namespace refhost

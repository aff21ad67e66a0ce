#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace refhost
{

/// What a sequence parameter set of H.264 (7.3.2.1.1) or H.265 (7.3.2.2) says of its stream. A plain value.
struct SequenceParameterSet
{
    std::uint32_t id = 0;
    int width = 0;   ///< pixels of what is displayed; 0 where the set makes no sense
    int height = 0;  ///< as width
    /// As ReorderDepth returns it; nothing where the set makes no sense.
    std::optional<unsigned> reorder;
    /// Frames a second as the set of H.264 says (E.2.1); 0 where it does not, and for H.265.
    double frameRate = 0;

    std::uint32_t chromaFormat = 1;  ///< chroma_format_idc: 0 for monochrome, 1 for 4:2:0 …
    bool separatePlanes = false;
    std::uint32_t lumaBits = 8;    ///< a sample
    std::uint32_t chromaBits = 8;  ///< a sample
    /// H.264: the profile is one whose sets contain the chroma format.
    bool hasChromaFormat = false;

    // H.265 alone.
    std::uint32_t subLayers = 1;
    bool temporalIdNesting = false;
    std::array<std::uint8_t, 12> profileTierLevel{};  ///< general_profile_space to general_level_idc

    /// \param nalUnit  with its header; one byte for H.264, two for H.265
    /// \returns nothing when it cannot be read
    static std::optional<SequenceParameterSet> readH264(const std::uint8_t* nalUnit, std::size_t size);
    static std::optional<SequenceParameterSet> readH265(const std::uint8_t* nalUnit, std::size_t size);
};

}  // namespace refhost

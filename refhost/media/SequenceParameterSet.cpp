#include "refhost/media/SequenceParameterSet.h"

#include <algorithm>

#include "refhost/media/BitReader.h"
#include "refhost/media/NalSyntax.h"

namespace refhost
{
namespace
{

constexpr std::uint32_t chroma444 = 3;
constexpr unsigned maxReorder = 16;
constexpr std::uint32_t maxSide = 32768;

/// Samples of luma that one of chroma stands for: across, down (H.264, table 6-1).
std::uint32_t subWidth(const SequenceParameterSet& set)
{
    return (set.chromaFormat == 1 || set.chromaFormat == 2) && !set.separatePlanes ? 2 : 1;
}

std::uint32_t subHeight(const SequenceParameterSet& set)
{
    return set.chromaFormat == 1 && !set.separatePlanes ? 2 : 1;
}

/// What is left of a side behind a cropping window; 0 where that makes no sense.
int cropped(std::uint64_t side, std::uint64_t unit, std::uint64_t before, std::uint64_t behind)
{
    const std::uint64_t cut = unit * (before + behind);
    return side > maxSide || cut >= side ? 0 : static_cast<int>(side - cut);
}

namespace h264
{
constexpr std::uint32_t baseline = 66;
constexpr std::uint32_t main = 77;
constexpr std::uint32_t extended = 88;
constexpr std::uint32_t constraintSet3 = 0x10;
constexpr std::uint32_t extendedSar = 255;

// Profiles whose parameter sets contain the chroma format (7.3.2.1.1).
bool hasChromaFormat(std::uint32_t profile)
{
    constexpr std::uint32_t profiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
    return std::find(std::begin(profiles), std::end(profiles), profile) != std::end(profiles);
}

// Profiles that with constraint_set3_flag have intra frames alone (E.2.1).
bool mayBeIntra(std::uint32_t profile)
{
    constexpr std::uint32_t profiles[] = {44, 86, 100, 110, 122, 244};
    return std::find(std::begin(profiles), std::end(profiles), profile) != std::end(profiles);
}

// MaxDpbMbs of table A-1; 0 for a level that is not known.
std::uint32_t maxDpbMbs(std::uint32_t level, bool level1b)
{
    struct Level
    {
        std::uint32_t idc;
        std::uint32_t mbs;
    };
    constexpr Level levels[] = {{9, 396},     {10, 396},    {11, 900},    {12, 2376},   {13, 2376},
                                {20, 2376},   {21, 4752},   {22, 8100},   {30, 8100},   {31, 18000},
                                {32, 20480},  {40, 32768},  {41, 32768},  {42, 34816},  {50, 110400},
                                {51, 184320}, {52, 184320}, {60, 696320}, {61, 696320}, {62, 696320}};
    if (level1b)
    {
        return levels[0].mbs;
    }
    const auto* const found = std::find_if(std::begin(levels), std::end(levels),
                                           [level](const Level& entry) { return entry.idc == level; });
    return found == std::end(levels) ? 0 : found->mbs;
}

void skipScalingList(BitReader& reader, int size)
{
    std::int32_t last = 8;
    std::int32_t next = 8;
    for (int i = 0; i < size && !reader.failed(); ++i)
    {
        if (next != 0)
        {
            next = (last + reader.se() % 256 + 256) % 256;
        }
        last = next == 0 ? last : next;
    }
}

void readChromaFormat(BitReader& reader, SequenceParameterSet& set)
{
    set.chromaFormat = reader.ue();
    if (set.chromaFormat == chroma444)
    {
        set.separatePlanes = reader.flag();
    }
    set.lumaBits = reader.ue() + 8;
    set.chromaBits = reader.ue() + 8;
    reader.skip(1);
    if (reader.flag())
    {
        const int lists = set.chromaFormat == chroma444 ? 12 : 8;
        for (int i = 0; i < lists; ++i)
        {
            if (reader.flag())
            {
                skipScalingList(reader, i < 6 ? 16 : 64);
            }
        }
    }
}

// \returns pic_order_cnt_type
std::uint32_t skipFrameOrder(BitReader& reader)
{
    const std::uint32_t type = reader.ue();
    if (type == 0)
    {
        reader.ue();
    }
    else if (type == 1)
    {
        constexpr std::uint32_t maxCycle = 255;
        reader.skip(1);
        reader.se();
        reader.se();
        const std::uint32_t cycle = std::min(reader.ue(), maxCycle);
        for (std::uint32_t i = 0; i < cycle; ++i)
        {
            reader.se();
        }
    }
    return type;
}

void skipHrd(BitReader& reader)
{
    constexpr std::uint32_t maxCpbs = 32;
    const std::uint32_t cpbs = std::min(reader.ue() + 1, maxCpbs);
    reader.skip(8);
    for (std::uint32_t i = 0; i < cpbs && !reader.failed(); ++i)
    {
        reader.ue();
        reader.ue();
        reader.skip(1);
    }
    reader.skip(20);
}

// \returns frames a second; 0 where the fields make no sense
double readTiming(BitReader& reader)
{
    constexpr double maxRate = 1000;
    constexpr double fieldsOfFrame = 2;
    const std::uint32_t tick = reader.bits(32);
    const std::uint32_t scale = reader.bits(32);
    reader.skip(1);
    const double rate = tick > 0 ? scale / fieldsOfFrame / tick : 0;
    return !reader.failed() && rate < maxRate ? rate : 0;
}

// \returns max_num_reorder_frames where it is there
std::optional<unsigned> readVui(BitReader& reader, double& frameRate)
{
    if (reader.flag() && reader.bits(8) == extendedSar)
    {
        reader.skip(32);
    }
    if (reader.flag())  // overscan_info_present_flag
    {
        reader.skip(1);
    }
    if (reader.flag())  // video_signal_type_present_flag
    {
        reader.skip(4);
        if (reader.flag())
        {
            reader.skip(24);
        }
    }
    if (reader.flag())  // chroma_loc_info_present_flag
    {
        reader.ue();
        reader.ue();
    }
    if (reader.flag())  // timing_info_present_flag
    {
        frameRate = readTiming(reader);
    }
    const bool nalHrd = reader.flag();
    if (nalHrd)
    {
        skipHrd(reader);
    }
    const bool vclHrd = reader.flag();
    if (vclHrd)
    {
        skipHrd(reader);
    }
    if (nalHrd || vclHrd)
    {
        reader.skip(1);
    }
    reader.skip(1);      // pic_struct_present_flag
    if (!reader.flag())  // bitstream_restriction_flag
    {
        return std::nullopt;
    }
    reader.skip(1);
    for (int i = 0; i < 4; ++i)
    {
        reader.ue();
    }
    const unsigned depth = reader.ue();
    return reader.failed() || depth > maxReorder ? std::nullopt : std::make_optional(depth);
}

}  // namespace h264

}  // namespace

std::optional<SequenceParameterSet> SequenceParameterSet::readH264(const std::uint8_t* nalUnit,
                                                                   std::size_t size)
{
    if (size < 4 || NalSyntax::of(Codec::h264).kindOf({nalUnit, size}) != NalKind::sequenceSet)
    {
        return std::nullopt;
    }
    SequenceParameterSet set;
    BitReader reader(nalUnit + 1, size - 1);
    const std::uint32_t profile = reader.bits(8);
    const std::uint32_t constraints = reader.bits(8);
    const std::uint32_t level = reader.bits(8);
    const bool constrained = (constraints & h264::constraintSet3) != 0;
    set.id = reader.ue();
    if (h264::hasChromaFormat(profile))
    {
        h264::readChromaFormat(reader, set);
        set.hasChromaFormat = true;
    }
    reader.ue();  // log2_max_frame_num_minus4
    const std::uint32_t order = h264::skipFrameOrder(reader);
    reader.ue();  // max_num_ref_frames
    reader.skip(1);
    const std::uint32_t width = reader.ue() + 1;
    const std::uint32_t mapUnits = reader.ue() + 1;
    const bool framesOnly = reader.flag();
    reader.skip(framesOnly ? 1 : 2);  // mb_adaptive_frame_field_flag, direct_8x8_inference_flag
    std::array<std::uint32_t, 4> crop{};
    if (reader.flag())  // frame_cropping_flag
    {
        std::generate(crop.begin(), crop.end(), [&] { return reader.ue(); });
    }
    const bool hasVui = reader.flag();
    if (reader.failed())
    {
        return std::nullopt;
    }
    constexpr std::uint64_t macroblock = 16;
    const std::uint64_t fields = framesOnly ? 1 : 2;
    set.width = cropped(macroblock * width, subWidth(set), crop[0], crop[1]);
    set.height = cropped(macroblock * mapUnits * fields, subHeight(set) * fields, crop[2], crop[3]);
    set.reorder = hasVui ? h264::readVui(reader, set.frameRate) : std::nullopt;
    if (set.reorder)
    {
        return set;
    }
    if (order == 2 || profile == h264::baseline || (constrained && h264::mayBeIntra(profile)))
    {
        set.reorder = 0;
        return set;
    }
    const bool level1b = level == 11 && constrained && (profile == h264::main || profile == h264::extended);
    const std::uint64_t frameMbs = std::uint64_t{width} * mapUnits * fields;
    const std::uint32_t mbs = h264::maxDpbMbs(level, level1b);
    set.reorder = mbs == 0 || frameMbs == 0
                      ? maxReorder
                      : static_cast<unsigned>(std::min<std::uint64_t>(mbs / frameMbs, maxReorder));
    return set;
}

std::optional<SequenceParameterSet> SequenceParameterSet::readH265(const std::uint8_t* nalUnit,
                                                                   std::size_t size)
{
    const NalSyntax& syntax = NalSyntax::of(Codec::h265);
    const std::size_t headerSize = syntax.headerSize();
    if (size <= headerSize || syntax.kindOf({nalUnit, size}) != NalKind::sequenceSet)
    {
        return std::nullopt;
    }
    SequenceParameterSet set;
    BitReader reader(nalUnit + headerSize, size - headerSize);
    reader.skip(4);
    const std::uint32_t subLayers = reader.bits(3);
    set.subLayers = subLayers + 1;
    set.temporalIdNesting = reader.flag();
    // profile_tier_level (7.3.3)
    std::generate(set.profileTierLevel.begin(), set.profileTierLevel.end(),
                  [&] { return static_cast<std::uint8_t>(reader.bits(8)); });
    std::uint32_t present[8] = {};
    for (std::uint32_t i = 0; i < subLayers; ++i)
    {
        present[i] = reader.bits(2);
    }
    if (subLayers > 0)
    {
        reader.skip(std::size_t{2} * (8 - subLayers));
    }
    for (std::uint32_t i = 0; i < subLayers; ++i)
    {
        reader.skip(((present[i] & 2U) != 0 ? 88 : 0) + ((present[i] & 1U) != 0 ? 8 : 0));
    }
    set.id = reader.ue();
    set.chromaFormat = reader.ue();
    set.separatePlanes = set.chromaFormat == chroma444 && reader.flag();
    const std::uint32_t width = reader.ue();
    const std::uint32_t height = reader.ue();
    std::array<std::uint32_t, 4> crop{};
    if (reader.flag())  // conformance_window_flag
    {
        std::generate(crop.begin(), crop.end(), [&] { return reader.ue(); });
    }
    set.width = cropped(width, subWidth(set), crop[0], crop[1]);
    set.height = cropped(height, subHeight(set), crop[2], crop[3]);
    set.lumaBits = reader.ue() + 8;
    set.chromaBits = reader.ue() + 8;
    reader.ue();  // log2_max_pic_order_cnt_lsb_minus4
    const bool eachSubLayer = reader.flag();
    unsigned depth = 0;
    for (std::uint32_t i = eachSubLayer ? 0 : subLayers; i <= subLayers; ++i)
    {
        reader.ue();  // sps_max_dec_pic_buffering_minus1
        depth = reader.ue();
        reader.ue();  // sps_max_latency_increase_plus1
    }
    if (reader.failed())
    {
        return std::nullopt;
    }
    set.reorder = depth > maxReorder ? std::nullopt : std::make_optional(depth);
    return set;
}

}  // namespace refhost

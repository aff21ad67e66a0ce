#include "refhost/media/ReorderDepth.h"

#include <algorithm>
#include <vector>

#include "refhost/base/ByteOrder.h"
#include "refhost/media/BitReader.h"
#include "refhost/media/Codec.h"

namespace refhost
{
namespace
{

namespace h264
{
constexpr std::uint32_t baseline = 66;
constexpr std::uint32_t main = 77;
constexpr std::uint32_t extended = 88;
constexpr std::uint32_t constraintSet3 = 0x10;
constexpr std::uint32_t extendedSar = 255;

// Profiles whose parameter sets tell the chroma format (7.3.2.1.1).
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

void skipChromaFormat(BitReader& reader)
{
    constexpr std::uint32_t chroma444 = 3;
    const std::uint32_t chroma = reader.ue();
    if (chroma == chroma444)
    {
        reader.skip(1);
    }
    reader.ue();  // bit_depth_luma_minus8
    reader.ue();  // bit_depth_chroma_minus8
    reader.skip(1);
    if (reader.flag())
    {
        const int lists = chroma == chroma444 ? 12 : 8;
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

// \returns max_num_reorder_frames where it is there
std::optional<unsigned> reorderOfVui(BitReader& reader)
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
        reader.skip(65);
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
    return reader.failed() || depth > ReorderDepth::max ? std::nullopt : std::make_optional(depth);
}

}  // namespace h264

// The parameter sets of a record: length-prefixed NAL units, `count` of them. \returns where they end; null
// when the record ends before
template <class Use>
const std::uint8_t* forEachNalUnit(const std::uint8_t* at, const std::uint8_t* end, unsigned count, Use use)
{
    for (unsigned i = 0; i < count; ++i)
    {
        if (end - at < 2)
        {
            return nullptr;
        }
        const std::ptrdiff_t size = readBig16(at);
        at += 2;
        if (end - at < size)
        {
            return nullptr;
        }
        use(at, static_cast<std::size_t>(size));
        at += size;
    }
    return at;
}

// ISO/IEC 14496-15, 5.3.3.1.
void readAvcRecord(const std::vector<std::uint8_t>& record, std::optional<unsigned>& depth)
{
    constexpr std::size_t headerSize = 6;
    if (record.size() < headerSize)
    {
        return;
    }
    forEachNalUnit(record.data() + headerSize, record.data() + record.size(), record[headerSize - 1] & 0x1fU,
                   [&](const std::uint8_t* unit, std::size_t size)
                   { depth = std::max(depth, ReorderDepth::ofH264(unit, size)); });
}

// ISO/IEC 14496-15, 8.3.3.1.
void readHevcRecord(const std::vector<std::uint8_t>& record, std::optional<unsigned>& depth)
{
    constexpr std::size_t headerSize = 23;
    constexpr int sequenceParameterSet = 33;
    if (record.size() < headerSize)
    {
        return;
    }
    const std::uint8_t* at = record.data() + headerSize;
    const std::uint8_t* const end = record.data() + record.size();
    for (unsigned arrays = record[headerSize - 1]; arrays > 0 && at != nullptr && end - at >= 3; --arrays)
    {
        const int type = at[0] & 0x3f;
        const unsigned count = readBig16(at + 1);
        at = forEachNalUnit(at + 3, end, count,
                            [&](const std::uint8_t* unit, std::size_t size)
                            {
                                if (type == sequenceParameterSet)
                                {
                                    depth = std::max(depth, ReorderDepth::ofH265(unit, size));
                                }
                            });
    }
}

}  // namespace

unsigned ReorderDepth::of(const MediaFormat& format)
{
    std::optional<unsigned> depth;
    switch (infoOf(format.codec).keyFrames)
    {
        case CodecInfo::KeyFrames::all:
            return 0;
        case CodecInfo::KeyFrames::h264:
            readAvcRecord(format.codecData, depth);
            break;
        case CodecInfo::KeyFrames::h265:
            readHevcRecord(format.codecData, depth);
            break;
    }
    return depth.value_or(max);
}

std::optional<unsigned> ReorderDepth::ofH264(const std::uint8_t* nalUnit, std::size_t size)
{
    constexpr int sequenceParameterSet = 7;
    if (size < 4 || (nalUnit[0] & 0x1f) != sequenceParameterSet)
    {
        return std::nullopt;
    }
    BitReader reader(nalUnit + 1, size - 1);
    const std::uint32_t profile = reader.bits(8);
    const std::uint32_t constraints = reader.bits(8);
    const std::uint32_t level = reader.bits(8);
    const bool constrained = (constraints & h264::constraintSet3) != 0;
    reader.ue();  // seq_parameter_set_id
    if (h264::hasChromaFormat(profile))
    {
        h264::skipChromaFormat(reader);
    }
    reader.ue();  // log2_max_frame_num_minus4
    const std::uint32_t order = h264::skipFrameOrder(reader);
    reader.ue();  // max_num_ref_frames
    reader.skip(1);
    const std::uint32_t width = reader.ue() + 1;
    const std::uint32_t mapUnits = reader.ue() + 1;
    const bool framesOnly = reader.flag();
    reader.skip(framesOnly ? 1 : 2);  // mb_adaptive_frame_field_flag, direct_8x8_inference_flag
    if (reader.flag())                // frame_cropping_flag
    {
        for (int i = 0; i < 4; ++i)
        {
            reader.ue();
        }
    }
    const bool hasVui = reader.flag();
    if (reader.failed())
    {
        return std::nullopt;
    }
    const auto told = hasVui ? h264::reorderOfVui(reader) : std::nullopt;
    if (told)
    {
        return told;
    }
    if (order == 2 || profile == h264::baseline || (constrained && h264::mayBeIntra(profile)))
    {
        return 0;
    }
    const bool level1b = level == 11 && constrained && (profile == h264::main || profile == h264::extended);
    const std::uint64_t frameMbs = std::uint64_t{width} * mapUnits * (framesOnly ? 1 : 2);
    const std::uint32_t mbs = h264::maxDpbMbs(level, level1b);
    return mbs == 0 || frameMbs == 0 ? max
                                     : static_cast<unsigned>(std::min<std::uint64_t>(mbs / frameMbs, max));
}

std::optional<unsigned> ReorderDepth::ofH265(const std::uint8_t* nalUnit, std::size_t size)
{
    constexpr int sequenceParameterSet = 33;
    constexpr std::size_t headerSize = 2;
    if (size <= headerSize || (nalUnit[0] >> 1 & 0x3f) != sequenceParameterSet)
    {
        return std::nullopt;
    }
    BitReader reader(nalUnit + headerSize, size - headerSize);
    reader.skip(4);
    const std::uint32_t subLayers = reader.bits(3);
    reader.skip(1);
    // profile_tier_level (7.3.3)
    reader.skip(96);
    std::uint32_t present[8] = {};
    for (std::uint32_t i = 0; i < subLayers; ++i)
    {
        present[i] = reader.bits(2);
    }
    if (subLayers > 0)
    {
        reader.skip(2 * (8 - subLayers));
    }
    for (std::uint32_t i = 0; i < subLayers; ++i)
    {
        reader.skip(((present[i] & 2U) != 0 ? 88 : 0) + ((present[i] & 1U) != 0 ? 8 : 0));
    }
    reader.ue();  // sps_seq_parameter_set_id
    constexpr std::uint32_t chroma444 = 3;
    if (reader.ue() == chroma444)
    {
        reader.skip(1);
    }
    reader.ue();  // pic_width_in_luma_samples
    reader.ue();  // pic_height_in_luma_samples
    if (reader.flag())
    {
        for (int i = 0; i < 4; ++i)
        {
            reader.ue();
        }
    }
    reader.ue();  // bit_depth_luma_minus8
    reader.ue();  // bit_depth_chroma_minus8
    reader.ue();  // log2_max_pic_order_cnt_lsb_minus4
    const bool eachSubLayer = reader.flag();
    unsigned depth = 0;
    for (std::uint32_t i = eachSubLayer ? 0 : subLayers; i <= subLayers; ++i)
    {
        reader.ue();  // sps_max_dec_pic_buffering_minus1
        depth = reader.ue();
        reader.ue();  // sps_max_latency_increase_plus1
    }
    return reader.failed() || depth > max ? std::nullopt : std::make_optional(depth);
}

}  // namespace refhost

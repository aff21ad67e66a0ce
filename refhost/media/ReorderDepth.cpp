#include "refhost/media/ReorderDepth.h"

#include <algorithm>
#include <vector>

#include "refhost/base/ByteOrder.h"
#include "refhost/media/Codec.h"
#include "refhost/media/SequenceParameterSet.h"

namespace refhost
{
namespace
{

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
    if (record.size() < headerSize)
    {
        return;
    }
    const std::uint8_t* at = record.data() + headerSize;
    const std::uint8_t* const end = record.data() + record.size();
    for (unsigned arrays = record[headerSize - 1]; arrays > 0 && at != nullptr && end - at >= 3; --arrays)
    {
        const unsigned count = readBig16(at + 1);
        at = forEachNalUnit(at + 3, end, count,
                            [&](const std::uint8_t* unit, std::size_t size)
                            {
                                // Of another unit there is none.
                                depth = std::max(depth, ReorderDepth::ofH265(unit, size));
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
    const auto set = SequenceParameterSet::readH264(nalUnit, size);
    return set ? set->reorder : std::nullopt;
}

std::optional<unsigned> ReorderDepth::ofH265(const std::uint8_t* nalUnit, std::size_t size)
{
    const auto set = SequenceParameterSet::readH265(nalUnit, size);
    return set ? set->reorder : std::nullopt;
}

}  // namespace refhost

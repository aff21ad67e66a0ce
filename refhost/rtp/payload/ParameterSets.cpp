#include "refhost/rtp/payload/ParameterSets.h"

#include <algorithm>
#include <utility>

#include "refhost/base/Base64.h"
#include "refhost/media/BitReader.h"

namespace refhost
{
namespace
{

constexpr std::size_t avcHeaderSize = 6;
constexpr std::size_t hevcHeaderSize = 23;

void addBig16(std::vector<std::uint8_t>& out, std::size_t number)
{
    out.push_back(static_cast<std::uint8_t>(number >> 8U));
    out.push_back(static_cast<std::uint8_t>(number));
}

void addSet(std::vector<std::uint8_t>& out, const std::vector<std::uint8_t>& set)
{
    addBig16(out, set.size());
    out.insert(out.end(), set.begin(), set.end());
}

/// Some cameras describe sets with start codes, and with zeros behind.
ByteSpan withoutStartCode(ByteSpan unit)
{
    std::size_t zeros = 0;
    while (zeros < unit.size && unit[zeros] == 0)
    {
        ++zeros;
    }
    if (zeros >= 2 && zeros < unit.size && unit[zeros] == 1)
    {
        unit = unit.from(zeros + 1);
    }
    while (!unit.empty() && unit[unit.size - 1] == 0)
    {
        unit = unit.first(unit.size - 1);
    }
    return unit;
}

}  // namespace

ParameterSets::Sets& ParameterSets::setsOf(NalKind kind)
{
    return kind == NalKind::videoSet ? videoSets_ : kind == NalKind::sequenceSet ? sequenceSets_ : frameSets_;
}

std::optional<std::uint32_t> ParameterSets::idOf(NalKind kind, ByteSpan unit) const
{
    constexpr std::size_t enough = 16;  // of the longest number
    const ByteSpan body = unit.from(syntax_->headerSize());
    BitReader reader(body.data, std::min(body.size, enough));
    const std::uint32_t id = kind == NalKind::videoSet ? reader.bits(4) : reader.ue();
    return reader.failed() ? std::nullopt : std::make_optional(id);
}

ParameterSets::Taken ParameterSets::take(ByteSpan unit)
{
    const NalKind kind = syntax_->kindOf(unit);
    Sets& sets = setsOf(kind);
    const auto isSame = [unit](const auto& entry)
    { return std::equal(unit.begin(), unit.end(), entry.second.begin(), entry.second.end()); };
    const auto same = std::find_if(sets.begin(), sets.end(), isSame);
    if (same != sets.end() && (kind != NalKind::sequenceSet || same->first == last_.id))
    {
        return Taken::known;
    }
    if (unit.size > maxSetSize)
    {
        return Taken::refused;
    }
    if (kind == NalKind::sequenceSet)
    {
        return takeSequenceSet(unit);
    }
    const std::optional<std::uint32_t> id = idOf(kind, unit);
    return id && keep(sets, *id, unit) ? Taken::changed : Taken::refused;
}

ParameterSets::Taken ParameterSets::takeSequenceSet(ByteSpan unit)
{
    const auto set = syntax_->codec() == Codec::h265 ? SequenceParameterSet::readH265(unit.data, unit.size)
                                                     : SequenceParameterSet::readH264(unit.data, unit.size);
    if (!set || set->width == 0 || set->height == 0 || !keep(sequenceSets_, set->id, unit))
    {
        return Taken::refused;
    }
    last_ = *set;
    return Taken::changed;
}

bool ParameterSets::keep(Sets& sets, std::uint32_t id, ByteSpan unit)
{
    if (sets.size() >= maxSets && sets.count(id) == 0)
    {
        return false;
    }
    sets[id].assign(unit.begin(), unit.end());
    return true;
}

void ParameterSets::takeDescribed(const FormatParameters& parameters)
{
    for (const char* const name : {"sprop-parameter-sets", "sprop-vps", "sprop-sps", "sprop-pps"})
    {
        const auto found = parameters.find(name);
        if (found != parameters.end())
        {
            takeText(found->second);
        }
    }
}

void ParameterSets::takeText(const std::string& text)
{
    for (std::size_t at = 0; at < text.size();)
    {
        const std::size_t end = std::min(text.find(',', at), text.size());
        const auto bytes = bytesOfBase64(std::string_view(text).substr(at, end - at));
        at = end + 1;
        if (!bytes)
        {
            continue;
        }
        const ByteSpan unit = withoutStartCode(*bytes);
        if (unit.size <= syntax_->headerSize())
        {
            continue;
        }
        const NalKind kind = syntax_->kindOf(unit);
        if (kind == NalKind::videoSet || kind == NalKind::sequenceSet || kind == NalKind::frameSet)
        {
            take(unit);
        }
    }
}

bool ParameterSets::takeRecord(ByteSpan record)
{
    const bool hevc = syntax_->codec() == Codec::h265;
    if (record.size < (hevc ? hevcHeaderSize : avcHeaderSize))
    {
        return false;
    }
    ByteSpan left = record.from(hevc ? hevcHeaderSize : avcHeaderSize);
    const auto takeSets = [&](std::size_t count)
    {
        for (; count > 0; --count)
        {
            if (left.size < 2)
            {
                return false;
            }
            const std::size_t size = static_cast<std::size_t>(left[0]) << 8U | left[1];
            left = left.from(2);
            if (size <= syntax_->headerSize() || size > left.size)
            {
                return false;
            }
            take(left.first(size));
            left = left.from(size);
        }
        return true;
    };
    if (!hevc)
    {
        constexpr unsigned countBits = 0x1f;
        if (!takeSets(record[avcHeaderSize - 1] & countBits) || left.empty())
        {
            return false;
        }
        const std::size_t frameSets = left[0];
        left = left.from(1);
        return takeSets(frameSets);
    }
    for (unsigned arrays = record[hevcHeaderSize - 1]; arrays > 0; --arrays)
    {
        if (left.size < 3)
        {
            return false;
        }
        const std::size_t count = static_cast<std::size_t>(left[1]) << 8U | left[2];
        left = left.from(3);
        if (!takeSets(count))
        {
            return false;
        }
    }
    return true;
}

std::optional<MediaFormat> ParameterSets::format() const
{
    const bool hevc = syntax_->codec() == Codec::h265;
    if (sequenceSets_.empty() || frameSets_.empty() || (hevc && videoSets_.empty()))
    {
        return std::nullopt;
    }
    MediaFormat format;
    format.codec = syntax_->codec();
    format.width = last_.width;
    format.height = last_.height;
    format.codecData = hevc ? hevcRecord() : avcRecord();
    return format;
}

/// ISO/IEC 14496-15, 5.3.3.1.
std::vector<std::uint8_t> ParameterSets::avcRecord() const
{
    const std::vector<std::uint8_t>& last = sequenceSets_.at(last_.id);
    const std::uint8_t profile = last[1];
    std::vector<std::uint8_t> record{1, profile, last[2], last[3], 0xff};
    record.push_back(static_cast<std::uint8_t>(0xe0U | sequenceSets_.size()));
    for (const auto& [id, set] : sequenceSets_)
    {
        addSet(record, set);
    }
    record.push_back(static_cast<std::uint8_t>(frameSets_.size()));
    for (const auto& [id, set] : frameSets_)
    {
        addSet(record, set);
    }
    if (profile == 100 || profile == 110 || profile == 122 || profile == 144)
    {
        record.push_back(static_cast<std::uint8_t>(0xfcU | (last_.chromaFormat & 3U)));
        record.push_back(static_cast<std::uint8_t>(0xf8U | ((last_.lumaBits - 8) & 7U)));
        record.push_back(static_cast<std::uint8_t>(0xf8U | ((last_.chromaBits - 8) & 7U)));
        record.push_back(0);
    }
    return record;
}

/// ISO/IEC 14496-15, 8.3.3.1.
std::vector<std::uint8_t> ParameterSets::hevcRecord() const
{
    constexpr std::uint8_t videoSet = 32;
    std::vector<std::uint8_t> record{1};
    record.insert(record.end(), last_.profileTierLevel.begin(), last_.profileTierLevel.end());
    record.insert(record.end(), {0xf0, 0, 0xfc});
    record.push_back(static_cast<std::uint8_t>(0xfcU | (last_.chromaFormat & 3U)));
    record.push_back(static_cast<std::uint8_t>(0xf8U | ((last_.lumaBits - 8) & 7U)));
    record.push_back(static_cast<std::uint8_t>(0xf8U | ((last_.chromaBits - 8) & 7U)));
    record.insert(record.end(), {0, 0});  // frame rate unknown
    record.push_back(
        static_cast<std::uint8_t>(last_.subLayers << 3U | (last_.temporalIdNesting ? 4U : 0U) | 3U));
    record.push_back(3);
    std::uint8_t type = videoSet;
    for (const Sets* const sets : {&videoSets_, &sequenceSets_, &frameSets_})
    {
        record.push_back(type++);
        addBig16(record, sets->size());
        for (const auto& [id, set] : *sets)
        {
            addSet(record, set);
        }
    }
    return record;
}

}  // namespace refhost

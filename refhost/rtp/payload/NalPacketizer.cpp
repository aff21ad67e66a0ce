#include "refhost/rtp/payload/NalPacketizer.h"

#include <algorithm>
#include <array>

#include "refhost/base/ByteOrder.h"
#include "refhost/rtp/payload/NalUnits.h"

namespace refhost
{
namespace
{

constexpr std::size_t sizeField = 2;  // of each unit in an aggregate

}  // namespace

NalPacketizer::NalPacketizer(Codec codec, std::size_t payloadSize)
    : Packetizer(codec),
      syntax_(NalSyntax::of(codec)),
      payloadSize_(std::max(payloadSize, syntax_.fragmentHeaderSize() + 1)),
      sets_(syntax_)
{
}

const char* NalPacketizer::packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                                    std::vector<std::shared_ptr<AccessUnit>>& out)
{
    useSetsOf(unit.format);
    if (!split(unit))
    {
        return "the lengths of NAL units do not fit";
    }
    if (units_.empty())
    {
        return "a unit without frame";
    }
    const std::size_t packets = unit.bytes.size() / payloadSize_ + 2;
    constexpr std::size_t front = AccessUnit::framingSize + AccessUnit::rtpHeaderSize + 3;
    run_.expect(unit.bytes.size() + packets * front, packets);
    for (std::size_t at = 0; at < units_.size();)
    {
        const std::size_t together = aggregable(at);
        if (together > 1)
        {
            addAggregate(at, together);
        }
        else if (units_[at].size <= payloadSize_)
        {
            run_.add(units_[at], {});
        }
        else
        {
            addFragments(units_[at]);
        }
        at += std::max<std::size_t>(together, 1);
    }
    out.push_back(run_.finish(rtpTimestamp, true));
    out.back()->captureTime = unit.captureTime;
    out.back()->keyFrame = unit.keyFrame && hasSets_;
    return nullptr;
}

void NalPacketizer::useSetsOf(const std::shared_ptr<const MediaFormat>& format)
{
    if (format == format_)
    {
        return;
    }
    const std::vector<std::uint8_t>& record = format->codecData;
    const std::size_t lengthAt = syntax_.codec() == Codec::h265 ? 21 : 4;
    format_ = format;
    sets_ = ParameterSets(syntax_);
    sets_.takeRecord(record);
    lengthSize_ = record.size() > lengthAt ? (record[lengthAt] & 3U) + 1U : NalUnits::lengthSize;
}

/// Sets units_ to what is sent, parameter sets in front of a key frame.
bool NalPacketizer::split(const EncodedUnit& unit)
{
    units_.clear();
    hasSets_ = false;
    ByteSpan left(unit.bytes);
    while (!left.empty())
    {
        if (left.size < lengthSize_)
        {
            return false;
        }
        std::size_t size = 0;
        for (std::size_t i = 0; i < lengthSize_; ++i)
        {
            size = size << 8U | left[i];
        }
        left = left.from(lengthSize_);
        if (size > left.size)
        {
            return false;
        }
        const ByteSpan nalUnit = left.first(size);
        left = left.from(size);
        if (size < syntax_.headerSize())
        {
            continue;
        }
        const NalKind kind = syntax_.kindOf(nalUnit);
        hasSets_ = hasSets_ || kind == NalKind::sequenceSet;
        if (kind != NalKind::delimiter && kind != NalKind::filler)
        {
            units_.push_back(nalUnit);
        }
    }
    if (unit.keyFrame && !hasSets_ && sets_.format() && !units_.empty())
    {
        std::size_t count = 0;
        sets_.forEach([&](ByteSpan set)
                      { units_.insert(units_.begin() + static_cast<std::ptrdiff_t>(count++), set); });
        hasSets_ = true;
    }
    return true;
}

/// How many units from there go into one packet.
std::size_t NalPacketizer::aggregable(std::size_t first) const
{
    std::size_t size = syntax_.headerSize();
    std::size_t count = 0;
    for (std::size_t at = first; at < units_.size() && !isSlice(syntax_.kindOf(units_[at])); ++at, ++count)
    {
        size += sizeField + units_[at].size;
        if (size > payloadSize_)
        {
            break;
        }
    }
    return count;
}

void NalPacketizer::addAggregate(std::size_t first, std::size_t count)
{
    scratch_.resize(syntax_.headerSize());
    syntax_.startAggregate(units_[first], scratch_.data());
    for (std::size_t at = first; at < first + count; ++at)
    {
        const ByteSpan unit = units_[at];
        syntax_.joinAggregate(unit, scratch_.data());
        scratch_.resize(scratch_.size() + sizeField);
        writeBig16(scratch_.data() + scratch_.size() - sizeField, static_cast<std::uint16_t>(unit.size));
        scratch_.insert(scratch_.end(), unit.begin(), unit.end());
    }
    run_.add(scratch_, {});
}

void NalPacketizer::addFragments(ByteSpan unit)
{
    std::array<std::uint8_t, 3> header{};
    const std::size_t headerSize = syntax_.fragmentHeaderSize();
    const std::size_t step = payloadSize_ - headerSize;
    const ByteSpan body = unit.from(syntax_.headerSize());
    for (std::size_t at = 0; at < body.size; at += step)
    {
        const std::size_t size = std::min(step, body.size - at);
        syntax_.writeFragmentHeader(unit, at == 0, at + size == body.size, header.data());
        run_.add({header.data(), headerSize}, body.from(at).first(size));
    }
}

}  // namespace refhost

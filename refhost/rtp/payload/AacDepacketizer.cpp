#include "refhost/rtp/payload/AacDepacketizer.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Hex.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/rtp/payload/AacHeader.h"

namespace refhost
{
namespace
{

constexpr std::size_t lengthSize = 2;  // of all access unit headers, in bits
constexpr unsigned maxFieldBits = 16;

/// \returns nothing for what is no number of at most 16
std::optional<unsigned> fieldBits(const FormatParameters& parameters, const char* name, unsigned otherwise)
{
    const auto found = parameters.find(name);
    if (found == parameters.end())
    {
        return otherwise;
    }
    unsigned number = 0;
    const char* const end = found->second.data() + found->second.size();
    const auto read = std::from_chars(found->second.data(), end, number);
    const bool isNumber = read.ec == std::errc() && read.ptr == end;
    return isNumber && number <= maxFieldBits ? std::make_optional(number) : std::nullopt;
}

}  // namespace

bool AacDepacketizer::readFields(const FormatParameters& parameters, Fields& fields, std::string& error)
{
    const auto mode = parameters.find("mode");
    const std::string name = mode == parameters.end() ? "" : mode->second;
    // Section 3.3.6 and 3.3.5.
    const bool high = equalsIgnoringCase(name, "AAC-hbr");
    const bool low = equalsIgnoringCase(name, "AAC-lbr");
    const auto size = fieldBits(parameters, "sizelength", high ? 13 : low ? 6 : 0);
    const auto index = fieldBits(parameters, "indexlength", high ? 3 : low ? 2 : 0);
    const auto delta = fieldBits(parameters, "indexdeltalength", high ? 3 : low ? 2 : 0);
    if (!size || !index || !delta || *size == 0)
    {
        error = "the sizes of AAC units (sizelength, indexlength, indexdeltalength) are not described";
        return false;
    }
    for (const char* const more : {"ctsdeltalength", "dtsdeltalength", "randomaccessindication",
                                   "streamstateindication", "auxiliarydatasizelength"})
    {
        const auto bits = fieldBits(parameters, more, 0);
        if (!bits || *bits != 0)
        {
            error = std::string("AAC with the field ") + more + " cannot be read";
            return false;
        }
    }
    fields = {*size, *index, *delta};
    return true;
}

std::unique_ptr<Depacketizer> AacDepacketizer::make(const PayloadDescription& track, Deliver deliver,
                                                    std::string& error)
{
    Fields fields;
    if (!readFields(track.parameters, fields, error))
    {
        return nullptr;
    }
    const auto config = track.parameters.find("config");
    const auto bytes = config == track.parameters.end() ? std::nullopt : bytesOfHex(config->second);
    auto aac = bytes ? AacTrack::of({bytes->begin(), bytes->end()}, track.clockRate) : std::nullopt;
    if (!aac)
    {
        error = "the description has no config of AAC that can be read";
        return nullptr;
    }
    return std::unique_ptr<Depacketizer>(new AacDepacketizer(fields, std::move(*aac), std::move(deliver)));
}

AacDepacketizer::AacDepacketizer(const Fields& fields, AacTrack track, Deliver deliver)
    : Depacketizer(std::move(deliver)),
      fields_(fields),
      passes_(fields.size == AacHeader::sizeBits && fields.index == AacHeader::indexBits &&
              fields.indexDelta == AacHeader::indexBits),
      unitTicks_(track.unitTicks)
{
    setFormat(std::move(track.format));
}

const char* AacDepacketizer::take(const RtpPacketView& packet, std::uint32_t lost)
{
    if (lost > 0)
    {
        reset();
    }
    const ByteSpan payload(packet.payload, packet.payloadSize);
    ByteSpan data;
    const char* const refused = readHeaders(payload, data);
    if (refused != nullptr)
    {
        reset();
        return refused;
    }
    if (sizes_.size() == 1 && sizes_[0] > data.size)
    {
        return takeFragment(packet, payload, data);
    }
    reset();
    making_ = outputs();
    std::size_t total = 0;
    for (const std::uint32_t size : sizes_)
    {
        total += size;
    }
    if (total > data.size)
    {
        return "the sizes of units do not fit";
    }
    std::shared_ptr<AccessUnit> packets;
    if (making_.packets && passes_)
    {
        run_.expect(payload.size + AccessUnit::framingSize + AccessUnit::rtpHeaderSize, 1);
        run_.add(payload, {});
        packets = run_.finish(packet.timestamp, true);
    }
    std::uint32_t timestamp = packet.timestamp;
    for (const std::uint32_t size : sizes_)
    {
        const bool first = packets != nullptr;
        deliverUnit(data.first(size), timestamp, std::exchange(packets, nullptr),
                    first ? static_cast<std::uint32_t>(payload.size) : 0);
        data = data.from(size);
        timestamp += unitTicks_;
    }
    return nullptr;
}

/// Sets sizes_ and what stands behind the headers.
const char* AacDepacketizer::readHeaders(ByteSpan payload, ByteSpan& data)
{
    sizes_.clear();
    if (payload.size <= lengthSize)
    {
        return "cut short";
    }
    const std::size_t bits = readBig16(payload.data);
    const std::size_t bytes = (bits + 7) / 8;
    if (bytes >= payload.size - lengthSize)
    {
        return "the length of the unit headers does not fit";
    }
    PlainBits headers(payload.from(lengthSize).first(bytes));
    data = payload.from(lengthSize + bytes);
    for (std::size_t left = bits;;)
    {
        const unsigned indexBits = sizes_.empty() ? fields_.index : fields_.indexDelta;
        const unsigned needed = fields_.size + indexBits;
        if (left < needed)
        {
            break;
        }
        left -= needed;
        const std::uint32_t size = headers.bits(fields_.size);
        // An index and a distance other than 0 are of interleaved units. Some senders count their units in
        // the first index: with one unit in each packet that does no harm.
        const std::uint32_t index = headers.bits(indexBits);
        if (index != 0 && !sizes_.empty())
        {
            return "interleaved units are not read";
        }
        if (size == 0)
        {
            return "an empty unit";
        }
        sizes_.push_back(size);
    }
    return sizes_.empty() ? "no unit" : nullptr;
}

/// Every fragment has the size of the whole unit (section 3.2.3).
const char* AacDepacketizer::takeFragment(const RtpPacketView& packet, ByteSpan payload, ByteSpan data)
{
    if (wholeSize_ != sizes_[0] || timestamp_ != packet.timestamp)
    {
        reset();
        making_ = outputs();
        wholeSize_ = sizes_[0];
        timestamp_ = packet.timestamp;
    }
    if (fragments_.size() + data.size > wholeSize_ || run_.packets() >= maxUnitPackets)
    {
        reset();
        return "fragments of more than a unit";
    }
    fragments_.insert(fragments_.end(), data.begin(), data.end());
    if (making_.packets && passes_)
    {
        run_.add(payload, {});
    }
    if (fragments_.size() < wholeSize_)
    {
        return nullptr;
    }
    const std::uint32_t maxPayload = run_.maxPayload();
    deliverUnit(fragments_, timestamp_, run_.finish(timestamp_, true), maxPayload);
    reset();
    return nullptr;
}

void AacDepacketizer::deliverUnit(ByteSpan bytes, std::uint32_t timestamp,
                                  std::shared_ptr<AccessUnit> packets, std::uint32_t maxPayload)
{
    DepacketizedUnit unit;
    if (making_.media)
    {
        unit.bytes.assign(bytes.begin(), bytes.end());
    }
    unit.packets = std::move(packets);
    if (making_.packets && !passes_ && bytes.size <= AacHeader::maxUnitSize)
    {
        const AacHeader header(bytes.size);
        PacketRun run;
        run.add({header.bytes.data(), header.bytes.size()}, bytes);
        maxPayload = run.maxPayload();
        unit.packets = run.finish(timestamp, true);
    }
    if (unit.packets)
    {
        unit.packets->keyFrame = true;
        unit.maxPayload = maxPayload;
    }
    unit.timestamp = timestamp;
    unit.duration = unitTicks_;
    unit.keyFrame = true;
    deliver(std::move(unit));
}

void AacDepacketizer::reset()
{
    fragments_.clear();
    run_.clear();
    wholeSize_ = 0;
}

}  // namespace refhost

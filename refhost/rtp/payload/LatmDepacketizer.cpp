#include "refhost/rtp/payload/LatmDepacketizer.h"

#include <utility>

#include "refhost/base/Hex.h"
#include "refhost/rtp/payload/AacHeader.h"
#include "refhost/rtp/payload/LatmConfig.h"
#include "refhost/rtp/payload/PacketRun.h"

namespace refhost
{
namespace
{

/// Of all units of an element; no bit rate of AAC makes more.
constexpr std::size_t maxElementSize = 65536;

}  // namespace

std::unique_ptr<Depacketizer> LatmDepacketizer::make(const PayloadDescription& track, Deliver deliver,
                                                     std::string& error)
{
    const auto present = track.parameters.find("cpresent");
    const auto config = track.parameters.find("config");
    // Without cpresent it is in band (section 7.3); senders that describe one leave it out all the same.
    if (config == track.parameters.end() || (present != track.parameters.end() && present->second != "0"))
    {
        error = "LATM with its configuration in band (cpresent=1) cannot be read";
        return nullptr;
    }
    const auto bytes = bytesOfHex(config->second);
    const auto latm =
        bytes ? LatmConfig::read({reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()})
              : std::nullopt;
    auto aac = latm ? AacTrack::of(latm->audioConfig, track.clockRate) : std::nullopt;
    if (!aac)
    {
        error = "the description has no config of LATM that can be read";
        return nullptr;
    }
    return std::unique_ptr<Depacketizer>(
        new LatmDepacketizer(std::move(*aac), latm->units, std::move(deliver)));
}

LatmDepacketizer::LatmDepacketizer(AacTrack track, std::size_t units, Deliver deliver)
    : Depacketizer(std::move(deliver)), unitTicks_(track.unitTicks), units_(units)
{
    setFormat(std::move(track.format));
}

const char* LatmDepacketizer::take(const RtpPacketView& packet, std::uint32_t lost)
{
    if (lost > 0 || packet.timestamp != timestamp_)
    {
        reset();
    }
    timestamp_ = packet.timestamp;
    if (element_.size() + packet.payloadSize > maxElementSize)
    {
        reset();
        return "fragments of more than a unit";
    }
    element_.insert(element_.end(), packet.payload, packet.payload + packet.payloadSize);
    if (!findUnits())
    {
        if (packet.marker)
        {
            reset();
            return "the sizes of units do not fit";
        }
        return nullptr;
    }
    std::uint32_t timestamp = packet.timestamp;
    for (const ByteSpan bytes : found_)
    {
        if (!bytes.empty())
        {
            deliverUnit(bytes, timestamp);
        }
        timestamp += unitTicks_;
    }
    reset();
    return nullptr;
}

void LatmDepacketizer::deliverUnit(ByteSpan bytes, std::uint32_t timestamp)
{
    DepacketizedUnit unit;
    unit.timestamp = timestamp;
    unit.duration = unitTicks_;
    unit.keyFrame = true;
    if (outputs().media)
    {
        unit.bytes.assign(bytes.begin(), bytes.end());
    }
    if (outputs().packets && bytes.size <= AacHeader::maxUnitSize)
    {
        const AacHeader header(bytes.size);
        PacketRun run;
        run.add({header.bytes.data(), header.bytes.size()}, bytes);
        unit.maxPayload = run.maxPayload();
        unit.packets = run.finish(timestamp, true);
        unit.packets->keyFrame = true;
    }
    deliver(std::move(unit));
}

/// Each unit stands behind its size, as bytes of which the last is less than 255 (PayloadLengthInfo).
/// \returns false when the element is not whole
bool LatmDepacketizer::findUnits()
{
    constexpr std::uint8_t more = 255;
    found_.clear();
    ByteSpan left(element_);
    for (std::size_t i = 0; i < units_; ++i)
    {
        std::size_t size = 0;
        std::uint8_t part = more;
        while (part == more)
        {
            if (left.empty())
            {
                return false;
            }
            part = left[0];
            size += part;
            left = left.from(1);
        }
        if (size > left.size)
        {
            return false;
        }
        found_.push_back(left.first(size));
        left = left.from(size);
    }
    return true;
}

void LatmDepacketizer::reset()
{
    element_.clear();
    found_.clear();
}

}  // namespace refhost

#include "refhost/rtp/payload/PacketRun.h"

#include <algorithm>
#include <array>
#include <utility>

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr std::uint8_t rtpVersion2 = 0x80;
constexpr std::uint8_t markerBit = 0x80;

}  // namespace

void PacketRun::expect(std::size_t bytes, std::size_t packets)
{
    expectedBytes_ = bytes;
    expectedPackets_ = packets;
}

void PacketRun::add(ByteSpan head, ByteSpan body)
{
    constexpr std::array<std::uint8_t, AccessUnit::framingSize + AccessUnit::rtpHeaderSize> front{
        0, 0, 0, 0, rtpVersion2};
    if (!unit_)
    {
        unit_ = std::make_shared<AccessUnit>();
        unit_->bytes.reserve(expectedBytes_);
        unit_->packets.reserve(expectedPackets_);
    }
    const auto payload = static_cast<std::uint32_t>(head.size + body.size);
    auto& bytes = unit_->bytes;
    unit_->packets.push_back({static_cast<std::uint32_t>(bytes.size() + AccessUnit::framingSize),
                              static_cast<std::uint32_t>(AccessUnit::rtpHeaderSize) + payload});
    bytes.insert(bytes.end(), front.begin(), front.end());
    bytes.insert(bytes.end(), head.begin(), head.end());
    bytes.insert(bytes.end(), body.begin(), body.end());
    unit_->payloadBytes += payload;
    maxPayload_ = std::max(maxPayload_, payload);
}

void PacketRun::putInFront(const std::vector<std::vector<std::uint8_t>>& payloads)
{
    const std::shared_ptr<AccessUnit> behind = std::move(unit_);
    expectedBytes_ = behind ? behind->bytes.size() : 0;
    for (const auto& payload : payloads)
    {
        expectedBytes_ += AccessUnit::framingSize + AccessUnit::rtpHeaderSize + payload.size();
    }
    for (const auto& payload : payloads)
    {
        add(payload, {});
    }
    if (!behind)
    {
        return;
    }
    if (!unit_)
    {
        unit_ = behind;
        return;
    }
    const auto shift = static_cast<std::uint32_t>(unit_->bytes.size());
    unit_->bytes.insert(unit_->bytes.end(), behind->bytes.begin(), behind->bytes.end());
    unit_->payloadBytes += behind->payloadBytes;
    for (const AccessUnit::Packet& packet : behind->packets)
    {
        unit_->packets.push_back({packet.offset + shift, packet.size});
    }
}

void PacketRun::cut(std::size_t from)
{
    if (from >= packets())
    {
        return;
    }
    if (from == 0)
    {
        return clear();
    }
    const auto payloadOf = [](const AccessUnit::Packet& packet)
    { return packet.size - static_cast<std::uint32_t>(AccessUnit::rtpHeaderSize); };
    unit_->bytes.resize(unit_->packets[from].offset - AccessUnit::framingSize);
    unit_->packets.resize(from);
    unit_->payloadBytes = 0;
    maxPayload_ = 0;
    for (const AccessUnit::Packet& packet : unit_->packets)
    {
        unit_->payloadBytes += payloadOf(packet);
        maxPayload_ = std::max(maxPayload_, payloadOf(packet));
    }
}

std::uint8_t* PacketRun::lastPayload()
{
    return unit_->bytes.data() + unit_->packets.back().offset + AccessUnit::rtpHeaderSize;
}

std::shared_ptr<AccessUnit> PacketRun::finish(std::uint32_t rtpTimestamp, bool marker)
{
    if (!unit_)
    {
        return nullptr;
    }
    unit_->rtpTimestamp = rtpTimestamp;
    for (const AccessUnit::Packet& packet : unit_->packets)
    {
        writeBig32(unit_->bytes.data() + packet.offset + 4, rtpTimestamp);
    }
    if (marker)
    {
        unit_->bytes[unit_->packets.back().offset + 1] |= markerBit;
    }
    constexpr std::size_t tolerated = 4096;
    if (unit_->bytes.capacity() > 2 * unit_->bytes.size() + tolerated)
    {
        unit_->bytes.shrink_to_fit();
    }
    maxPayload_ = 0;
    return std::move(unit_);
}

void PacketRun::clear()
{
    unit_.reset();
    maxPayload_ = 0;
}

}  // namespace refhost

#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/rtp/RtpTransport.h"
#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/base/Nanoseconds.h"

namespace refhost
{
namespace test
{

/// One RTP packet as a client sees it.
struct SentPacket
{
    std::uint32_t ssrc;
    std::uint16_t sequence;
    std::uint32_t timestamp;
    std::uint8_t payloadType;
    AccessUnitPtr unit;
    std::size_t index;  ///< in the unit
    bool last;          ///< of the unit
    bool more;          ///< another unit was announced
};

/// What a FakeTransport sent; outlives it.
struct Wire
{
    std::mutex mutex;
    std::vector<SentPacket> packets;
    std::vector<std::vector<std::uint8_t>> rtcp;
    std::vector<char> order;          ///< 'p' for each RTP packet, 'r' for each RTCP packet
    std::size_t capacity = SIZE_MAX;  ///< packets that it still takes
    SendStatus status = SendStatus::sent;
    TransportTraits traits = reliable();
    std::weak_ptr<TransportListener> listener;

    static TransportTraits reliable()
    {
        TransportTraits traits;
        traits.reportsReady = true;
        return traits;
    }

    static TransportTraits datagrams()
    {
        TransportTraits traits;
        traits.silentWhenGone = true;
        return traits;
    }

    void ready()
    {
        if (const auto target = listener.lock())
        {
            target->onTransportReady();
        }
    }

    /// Units sent, in order.
    std::vector<AccessUnitPtr> units()
    {
        const std::lock_guard<std::mutex> guard(mutex);
        std::vector<AccessUnitPtr> found;
        for (const SentPacket& packet : packets)
        {
            if (packet.index == 0)
            {
                found.push_back(packet.unit);
            }
        }
        return found;
    }

    bool contiguous()
    {
        const std::lock_guard<std::mutex> guard(mutex);
        for (std::size_t i = 1; i < packets.size(); ++i)
        {
            if (packets[i].sequence != static_cast<std::uint16_t>(packets[i - 1].sequence + 1))
            {
                return false;
            }
        }
        return true;
    }
};

/// A transport that takes what its wire has room for.
class FakeTransport : public RtpTransport
{
public:
    explicit FakeTransport(std::shared_ptr<Wire> wire)
        : RtpTransport(interleavedTcp, wire->traits), wire_(std::move(wire))
    {
    }

    void setListener(std::weak_ptr<TransportListener> listener) override
    {
        const std::lock_guard<std::mutex> guard(wire_->mutex);
        wire_->listener = std::move(listener);
    }

    SendStatus state() const override
    {
        const std::lock_guard<std::mutex> guard(wire_->mutex);
        return wire_->status;
    }

    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                    bool more) override
    {
        const std::lock_guard<std::mutex> guard(wire_->mutex);
        if (wire_->status != SendStatus::sent)
        {
            return {wire_->status, 0};
        }
        std::size_t taken = 0;
        for (std::size_t i = firstPacket; i < unit->packets.size(); ++i, ++taken)
        {
            if (wire_->capacity == 0)
            {
                return {SendStatus::congested, taken};
            }
            --wire_->capacity;
            wire_->packets.push_back({header.ssrc, static_cast<std::uint16_t>(header.sequence + taken),
                                      header.timestamp, header.payloadType, unit, i,
                                      i + 1 == unit->packets.size(), more});
            wire_->order.push_back('p');
        }
        return {SendStatus::sent, taken};
    }

    void sendRtcp(const std::uint8_t* data, std::size_t size) override
    {
        const std::lock_guard<std::mutex> guard(wire_->mutex);
        if (wire_->status != SendStatus::closed)
        {
            wire_->rtcp.emplace_back(data, data + size);
            wire_->order.push_back('r');
        }
    }

    void hold() override
    {
        set(SendStatus::held);
    }

    void release() override
    {
        {
            const std::lock_guard<std::mutex> guard(wire_->mutex);
            if (wire_->status != SendStatus::held)
            {
                return;
            }
            wire_->status = SendStatus::sent;
        }
        wire_->ready();
    }

    void close() override
    {
        set(SendStatus::closed);
    }

private:
    void set(SendStatus status)
    {
        const std::lock_guard<std::mutex> guard(wire_->mutex);
        wire_->status = status;
    }

    const std::shared_ptr<Wire> wire_;
};

/// A unit of `count` packets of `size` payload bytes, the last one shorter.
inline AccessUnitPtr makeUnit(std::uint32_t timestamp, std::int64_t captureNs, bool key, std::size_t count,
                              std::size_t size = 1364, std::size_t lastSize = 100)
{
    auto unit = std::make_shared<AccessUnit>();
    for (std::size_t i = 0; i < count; ++i)
    {
        const bool last = i + 1 == count;
        std::vector<std::uint8_t> packet(AccessUnit::rtpHeaderSize + (last ? lastSize : size),
                                         static_cast<std::uint8_t>(i + 1));
        std::memset(packet.data(), 0xee, AccessUnit::rtpHeaderSize);
        packet[0] = 0x80;
        packet[1] = static_cast<std::uint8_t>((last ? 0x80 : 0) | 33);
        unit->append(packet.data(), packet.size());
    }
    unit->rtpTimestamp = timestamp;
    unit->captureTime = instantOf(captureNs);
    unit->keyFrame = key;
    return unit;
}

}  // namespace test
}  // namespace refhost

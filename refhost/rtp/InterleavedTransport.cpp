#include "refhost/rtp/InterleavedTransport.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "refhost/base/ByteOrder.h"
#include "refhost/rtp/RtpHeaderPatch.h"

namespace refhost
{
namespace
{

constexpr TransportTraits interleavedTraits = []
{
    TransportTraits traits;
    // The key frame at once, the rest of its GOP with the next unit: a viewer that leaves within a frame's
    // time does not cost a GOP.
    traits.maxCatchUpUnits = std::numeric_limits<unsigned>::max();
    traits.joinsUnits = true;
    traits.reportsReady = true;
    return traits;
}();

/// This thread's copy of the last unit it sent, whose headers each session overwrites: a fan-out copies the
/// payload once, not once per viewer.
struct FrameScratch
{
    AccessUnitPtr unit;
    std::vector<std::uint8_t> bytes;

    void load(const AccessUnitPtr& requested)
    {
        if (unit != requested)
        {
            bytes = requested->bytes;
            unit = requested;
        }
    }
};

void writeFraming(std::uint8_t* at, std::uint8_t channel, std::size_t size)
{
    at[0] = '$';
    at[1] = channel;
    writeBig16(at + 2, static_cast<std::uint16_t>(size));
}

}  // namespace

InterleavedTransport::InterleavedTransport(std::weak_ptr<FrameWriter> writer, int rtpChannel, int rtcpChannel,
                                           std::shared_ptr<SessionLiveness> liveness)
    : GatedTransport(interleavedTcp, interleavedTraits, std::move(liveness)),
      writer_(std::move(writer)),
      rtpChannel_(static_cast<std::uint8_t>(rtpChannel)),
      rtcpChannel_(static_cast<std::uint8_t>(rtcpChannel))
{
}

InterleavedTransport::~InterleavedTransport() noexcept(false) = default;

void InterleavedTransport::receivedRtcp(const std::uint8_t* data, std::size_t size)
{
    receiveQueue()->onRtcp(data, size);
}

void InterleavedTransport::receivedRtp(const std::uint8_t* data, std::size_t size)
{
    if (takesRtp_.load(std::memory_order_acquire))
    {
        receiveQueue()->onRtp(data, size);
    }
}

void InterleavedTransport::takeRtp()
{
    takesRtp_.store(true, std::memory_order_release);
}

std::string InterleavedTransport::peerName() const
{
    const auto writer = writer_.lock();
    return writer ? writer->peerName() : RtpTransport::peerName();
}

void InterleavedTransport::addFootprint(Footprint& footprint) const
{
    footprint.add(*this);
    if (const auto writer = writer_.lock())
    {
        writer->addFootprint(footprint);
    }
}

SendResult InterleavedTransport::transmit(const AccessUnitPtr& unit, std::size_t firstPacket,
                                          const RtpHeaderFields& header, bool more)
{
    const auto writer = writer_.lock();
    if (!writer)
    {
        return {SendStatus::closed, 0};
    }
    thread_local FrameScratch scratch;
    scratch.load(unit);
    const auto& packets = unit->packets;
    std::uint16_t sequence = header.sequence;
    for (std::size_t i = firstPacket; i < packets.size(); ++i)
    {
        std::uint8_t* packet = scratch.bytes.data() + packets[i].offset;
        writeFraming(packet - AccessUnit::framingSize, rtpChannel_, packets[i].size);
        patchRtpHeader(packet, header, sequence++);
    }
    const std::size_t from = packets[firstPacket].offset - AccessUnit::framingSize;
    const SendStatus status =
        writer->writeFrames(scratch.bytes.data() + from, scratch.bytes.size() - from, more);
    if (status == SendStatus::congested && receiveQueue()->arm())
    {
        writer->notifyWhenWritable(receiveQueue());
    }
    return {status, status == SendStatus::sent ? packets.size() - firstPacket : 0};
}

void InterleavedTransport::transmitRtcp(const std::uint8_t* data, std::size_t size)
{
    const auto writer = writer_.lock();
    if (!writer)
    {
        return;
    }
    std::vector<std::uint8_t> frame(AccessUnit::framingSize + size);
    writeFraming(frame.data(), rtcpChannel_, size);
    std::copy(data, data + size, frame.begin() + AccessUnit::framingSize);
    writer->writeFrames(frame.data(), frame.size(), false);
}

}  // namespace refhost

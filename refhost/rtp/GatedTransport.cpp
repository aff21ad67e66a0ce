#include "refhost/rtp/GatedTransport.h"

#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/rtp/RtcpReader.h"
#include "refhost/rtp/RtpReader.h"

namespace refhost
{
namespace
{

/// A hold spans one RTSP request; more reports than this mean that nobody releases it.
constexpr std::size_t keptRtcpLimit = 8;

}  // namespace

TransportReceiveQueue::TransportReceiveQueue(std::shared_ptr<SessionLiveness> liveness)
    : liveness_(std::move(liveness))
{
}

void TransportReceiveQueue::setListener(std::weak_ptr<TransportListener> listener)
{
    const SmallMutexLock guard(mutex_);
    listener_.swap(listener);
}

void TransportReceiveQueue::protect(std::shared_ptr<PacketProtection> protection)
{
    const SmallMutexLock guard(mutex_);
    protection_.swap(protection);
}

/// Opens a received packet, if packets are encrypted.
/// \param[in,out] data, size  replaced by those of `opened`
/// \returns false when it must be dropped
bool TransportReceiveQueue::open(Open operation, const std::uint8_t*& data, std::size_t& size,
                                 std::vector<std::uint8_t>& opened)
{
    std::shared_ptr<PacketProtection> protection;
    {
        const SmallMutexLock guard(mutex_);
        protection = protection_;
    }
    if (protection == nullptr)
    {
        return true;
    }
    opened.assign(data, data + size);
    if (!(*protection.*operation)(opened.data(), size))
    {
        return false;
    }
    data = opened.data();
    return true;
}

void TransportReceiveQueue::onTransportReady()
{
    // Before the listener runs: it may find the transport full again and request another call.
    armed_.store(false);
    if (const auto target = listener())
    {
        target->onTransportReady();
    }
}

void TransportReceiveQueue::onRtcp(const std::uint8_t* data, std::size_t size)
{
    std::vector<std::uint8_t> opened;
    if (!open(&PacketProtection::openRtcp, data, size, opened))
    {
        return;
    }
    RtcpFindings ignored;
    if (RtcpReader::read(data, size, 0, ignored))
    {
        noteActivity();
    }
    if (const auto target = listener())
    {
        target->onRtcp(data, size);
    }
}

void TransportReceiveQueue::onRtp(const std::uint8_t* data, std::size_t size)
{
    std::vector<std::uint8_t> opened;
    if (!open(&PacketProtection::openRtp, data, size, opened))
    {
        return;
    }
    if (RtpReader::hasHeader(data, size))
    {
        noteActivity();
    }
    if (const auto target = listener())
    {
        target->onRtp(data, size);
    }
}

void TransportReceiveQueue::noteActivity()
{
    if (liveness_)
    {
        liveness_->noteActivity(HostClock::system().now());
    }
}

bool TransportReceiveQueue::arm()
{
    return !armed_.exchange(true);
}

std::shared_ptr<TransportListener> TransportReceiveQueue::listener()
{
    const SmallMutexLock guard(mutex_);
    return listener_.lock();
}

GatedTransport::GatedTransport(int kind, const TransportTraits& traits,
                               std::shared_ptr<SessionLiveness> liveness)
    : GatedTransport(kind, traits, std::make_shared<TransportReceiveQueue>(std::move(liveness)))
{
}

GatedTransport::GatedTransport(int kind, const TransportTraits& traits,
                               std::shared_ptr<TransportReceiveQueue> receiveQueue)
    : RtpTransport(kind, traits), receiveQueue_(std::move(receiveQueue))
{
}

GatedTransport::~GatedTransport() noexcept(false) = default;

void GatedTransport::protect(std::shared_ptr<ProtectedSender> sender)
{
    const SmallMutexLock guard(mutex_);
    receiveQueue_->protect(std::shared_ptr<PacketProtection>(sender, &sender->protection()));
    protectedSender_ = std::move(sender);
}

void GatedTransport::setListener(std::weak_ptr<TransportListener> listener)
{
    receiveQueue_->setListener(std::move(listener));
}

SendStatus GatedTransport::state() const
{
    return state_.load(std::memory_order_acquire);
}

SendResult GatedTransport::send(const AccessUnitPtr& unit, std::size_t firstPacket,
                                const RtpHeaderFields& header, bool more)
{
    const SmallMutexLock guard(mutex_);
    const SendStatus state = state_.load(std::memory_order_relaxed);
    if (state != SendStatus::sent)
    {
        return {state, 0};
    }
    const SendResult result = protectedSender_ == nullptr ? transmit(unit, firstPacket, header, more)
                                                          : transmitSealed(unit, firstPacket, header, more);
    if (result.status == SendStatus::closed)
    {
        state_.store(SendStatus::closed, std::memory_order_release);
    }
    return result;
}

void GatedTransport::sendRtcp(const std::uint8_t* data, std::size_t size)
{
    const SmallMutexLock guard(mutex_);
    const SendStatus state = state_.load(std::memory_order_relaxed);
    if (state == SendStatus::sent)
    {
        transmitSealedRtcp(data, size);
    }
    else if (state == SendStatus::held)
    {
        if (keptRtcp_ == nullptr)
        {
            keptRtcp_ = std::make_unique<std::vector<std::vector<std::uint8_t>>>();
        }
        if (keptRtcp_->size() < keptRtcpLimit)
        {
            keptRtcp_->emplace_back(data, data + size);
        }
    }
}

SendResult GatedTransport::transmitSealed(const AccessUnitPtr& unit, std::size_t firstPacket,
                                          const RtpHeaderFields& header, bool more)
{
    return protectedSender_->send(
        unit, firstPacket, header,
        [&](const AccessUnitPtr& sealed, std::size_t first, const RtpHeaderFields& fields)
        { return transmit(sealed, first, fields, more); });
}

void GatedTransport::transmitSealedRtcp(const std::uint8_t* data, std::size_t size)
{
    if (protectedSender_ == nullptr)
    {
        transmitRtcp(data, size);
        return;
    }
    std::vector<std::uint8_t> packet(data, data + size);
    if (protectedSender_->protection().sealRtcp(packet))
    {
        transmitRtcp(packet.data(), packet.size());
    }
}

void GatedTransport::hold()
{
    const SmallMutexLock guard(mutex_);
    if (state_.load(std::memory_order_relaxed) == SendStatus::sent)
    {
        state_.store(SendStatus::held, std::memory_order_release);
    }
}

void GatedTransport::release()
{
    {
        const SmallMutexLock guard(mutex_);
        if (state_.load(std::memory_order_relaxed) != SendStatus::held)
        {
            return;
        }
        if (const auto kept = std::move(keptRtcp_))
        {
            for (const auto& packet : *kept)
            {
                transmitSealedRtcp(packet.data(), packet.size());
            }
        }
        state_.store(SendStatus::sent, std::memory_order_release);
    }
    receiveQueue_->onTransportReady();
}

void GatedTransport::close()
{
    const SmallMutexLock guard(mutex_);
    state_.store(SendStatus::closed, std::memory_order_release);
}

}  // namespace refhost

#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp, tests/refhost/rtp/InterleavedTransport_test.cpp.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/SmallMutex.h"
#include "refhost/rtp/PacketProtection.h"
#include "refhost/rtp/ProtectedSender.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// Receives what the client of one track's transport sends, and passes it to the listener. Outlives the
/// transport while a socket reads for it.
///
/// Malformed packets are no activity of the client; listeners drop and count them. Threads: any.
class TransportReceiveQueue : public TransportListener
{
public:
    explicit TransportReceiveQueue(std::shared_ptr<SessionLiveness> liveness);

    void setListener(std::weak_ptr<TransportListener> listener);

    /// Opens every packet received from now on; those that are not authentic are dropped.
    void protect(std::shared_ptr<PacketProtection> protection);

    void onTransportReady() override;
    void onRtcp(const std::uint8_t* data, std::size_t size) override;
    void onRtp(const std::uint8_t* data, std::size_t size) override;

    /// Requests one onTransportReady().
    /// \returns false when one is pending already
    bool arm();

private:
    using Open = bool (PacketProtection::*)(std::uint8_t*, std::size_t&);

    void noteActivity();
    std::shared_ptr<TransportListener> listener();
    bool open(Open operation, const std::uint8_t*& data, std::size_t& size,
              std::vector<std::uint8_t>& opened);

    SmallMutex mutex_;
    std::weak_ptr<TransportListener> listener_ OV_GUARDED_BY(mutex_);
    std::shared_ptr<PacketProtection> protection_ OV_GUARDED_BY(mutex_);  // null: packets are not encrypted
    const std::shared_ptr<SessionLiveness> liveness_;
    std::atomic<bool> armed_{false};
};

/// A transport that can be held and closed. Derived classes send the bytes.
class GatedTransport : public RtpTransport
{
public:
    ~GatedTransport() noexcept(false) override;

    /// Encrypts everything that is sent and received from now on. Requires: called before the first send().
    /// \param sender  shared by the transports that send under the same SSRC
    void protect(std::shared_ptr<ProtectedSender> sender);
    void setListener(std::weak_ptr<TransportListener> listener) final;
    SendStatus state() const final;
    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                    bool more) final;
    void sendRtcp(const std::uint8_t* data, std::size_t size) final;
    void hold() final;
    void release() final;
    void close() final;

protected:
    GatedTransport(int kind, const TransportTraits& traits, std::shared_ptr<SessionLiveness> liveness);
    /// \param receiveQueue  receives for this transport, and maybe for others
    GatedTransport(int kind, const TransportTraits& traits,
                   std::shared_ptr<TransportReceiveQueue> receiveQueue);

    const std::shared_ptr<TransportReceiveQueue>& receiveQueue() const
    {
        return receiveQueue_;
    }

private:
    /// Sends; called one at a time, while the transport is open.
    virtual SendResult transmit(const AccessUnitPtr& unit, std::size_t firstPacket,
                                const RtpHeaderFields& header, bool more) = 0;
    virtual void transmitRtcp(const std::uint8_t* data, std::size_t size) = 0;

    SendResult transmitSealed(const AccessUnitPtr& unit, std::size_t firstPacket,
                              const RtpHeaderFields& header, bool more);
    void transmitSealedRtcp(const std::uint8_t* data, std::size_t size);

    SmallMutex mutex_;                                 // held while sending, so that close() waits
    std::atomic<SendStatus> state_{SendStatus::sent};  // written under the mutex
    std::unique_ptr<std::vector<std::vector<std::uint8_t>>> keptRtcp_ OV_GUARDED_BY(mutex_);  // null: none
    std::shared_ptr<ProtectedSender> protectedSender_;  // null: packets are not encrypted
    const std::shared_ptr<TransportReceiveQueue> receiveQueue_;
};

}  // namespace refhost

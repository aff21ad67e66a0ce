#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp, tests/refhost/rtp/InterleavedTransport_test.cpp.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// What comes back on one track's transport: outlives the transport where a socket is just reading for it.
///
/// Malformed RTCP and what is not RTP keeps no session alive; listeners drop and count it.
/// Threads: any.
class TransportReceiveQueue : public TransportListener
{
public:
    explicit TransportReceiveQueue(std::shared_ptr<SessionLiveness> liveness);

    void setListener(std::weak_ptr<TransportListener> listener);

    void onTransportReady() override;
    void onRtcp(const std::uint8_t* data, std::size_t size) override;
    void onRtp(const std::uint8_t* data, std::size_t size) override;

    /// Notes that onTransportReady() was asked for.
    /// \returns false when it had been already, and did not come yet
    bool arm();

private:
    void noteActivity();
    std::shared_ptr<TransportListener> listener();

    Mutex mutex_;
    std::weak_ptr<TransportListener> listener_ OV_GUARDED_BY(mutex_);
    const std::shared_ptr<SessionLiveness> liveness_;
    std::atomic<bool> armed_{false};
};

/// A transport that can be held and closed; how bytes travel is the derived class's part.
class GatedTransport : public RtpTransport
{
public:
    ~GatedTransport() noexcept(false) override;

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
    /// \param receiveQueue  what comes back, perhaps on the way of several transports
    GatedTransport(int kind, const TransportTraits& traits,
                   std::shared_ptr<TransportReceiveQueue> receiveQueue);

    const std::shared_ptr<TransportReceiveQueue>& receiveQueue() const
    {
        return receiveQueue_;
    }

private:
    /// Sends through the open transport; one call at a time.
    virtual SendResult transmit(const AccessUnitPtr& unit, std::size_t firstPacket,
                                const RtpHeaderFields& header, bool more) = 0;
    virtual void transmitRtcp(const std::uint8_t* data, std::size_t size) = 0;

    Mutex mutex_;  // held while bytes leave, so that close() waits for them
    std::atomic<SendStatus> state_{SendStatus::sent};  // written under the mutex
    std::vector<std::vector<std::uint8_t>> keptRtcp_ OV_GUARDED_BY(mutex_);
    const std::shared_ptr<TransportReceiveQueue> receiveQueue_;
};

}  // namespace refhost

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

/// Receives what the client of one track's transport sends, and passes it to the listener. Outlives the
/// transport while a socket reads for it.
///
/// Malformed packets are no activity of the client; listeners drop and count them. Threads: any.
class TransportReceiveQueue : public TransportListener
{
public:
    explicit TransportReceiveQueue(std::shared_ptr<SessionLiveness> liveness);

    void setListener(std::weak_ptr<TransportListener> listener);

    void onTransportReady() override;
    void onRtcp(const std::uint8_t* data, std::size_t size) override;
    void onRtp(const std::uint8_t* data, std::size_t size) override;

    /// Requests one onTransportReady().
    /// \returns false when one is pending already
    bool arm();

private:
    void noteActivity();
    std::shared_ptr<TransportListener> listener();

    Mutex mutex_;
    std::weak_ptr<TransportListener> listener_ OV_GUARDED_BY(mutex_);
    const std::shared_ptr<SessionLiveness> liveness_;
    std::atomic<bool> armed_{false};
};

/// A transport that can be held and closed. Derived classes send the bytes.
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

    Mutex mutex_;                                      // held while sending, so that close() waits
    std::atomic<SendStatus> state_{SendStatus::sent};  // written under the mutex
    std::vector<std::vector<std::uint8_t>> keptRtcp_ OV_GUARDED_BY(mutex_);
    const std::shared_ptr<TransportReceiveQueue> receiveQueue_;
};

}  // namespace refhost

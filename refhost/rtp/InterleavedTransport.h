#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "refhost/rtp/GatedTransport.h"

namespace refhost
{

/// The sending side of an RTSP connection, as an interleaved transport sees it. Threads: any; never blocks.
class FrameWriter
{
public:
    virtual ~FrameWriter() = default;

    /// Takes interleaved frames ('$', channel, length, packet; one or several), whole or not at all.
    /// \param more  more frames follow at once: the network may wait for them
    /// \returns `sent`, `congested` while bytes of an earlier write still wait for the client, or `closed`
    virtual SendStatus writeFrames(const std::uint8_t* data, std::size_t size, bool more) = 0;

    /// Has onTransportReady() of `listener` called once, when the writer takes frames again: soon, if it does
    /// so already. Never called from inside this call or with a lock of the writer held.
    virtual void notifyWhenWritable(std::weak_ptr<TransportListener> listener) = 0;

    /// What a log calls the client.
    virtual std::string peerName() const
    {
        return "a client";
    }
};

/// RTP and RTCP of one track inside an RTSP connection (RFC 2326, section 10.12). Transport kind 1.
///
/// An access unit travels in one write, whole or not at all.
class InterleavedTransport : public GatedTransport
{
public:
    /// \param writer       the connection; kept weakly, a gone one counts as closed
    /// \param rtpChannel   channel numbers as answered to SETUP, 0 to 255
    /// \param liveness     told of every RTCP packet; may be null
    InterleavedTransport(std::weak_ptr<FrameWriter> writer, int rtpChannel, int rtcpChannel,
                         std::shared_ptr<SessionLiveness> liveness);
    ~InterleavedTransport() noexcept(false) override;

    /// The connection read a frame of the RTCP channel. On the connection's thread.
    void receivedRtcp(const std::uint8_t* data, std::size_t size);
    /// The connection read a frame of the RTP channel; dropped unless takeRtp() was called. On the
    /// connection's thread.
    void receivedRtp(const std::uint8_t* data, std::size_t size);

    void takeRtp() override;
    std::string peerName() const override;

private:
    SendResult transmit(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                        bool more) override;
    void transmitRtcp(const std::uint8_t* data, std::size_t size) override;

    const std::weak_ptr<FrameWriter> writer_;
    const std::uint8_t rtpChannel_;
    const std::uint8_t rtcpChannel_;
    std::atomic<bool> takesRtp_{false};
};

}  // namespace refhost

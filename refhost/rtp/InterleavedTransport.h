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

    /// Takes interleaved frames ('$', channel, length, packet; one or several), all or none.
    /// \param more  more frames follow at once: the network may wait for them
    /// \returns `sent`, `congested` while bytes of an earlier write still wait for the client, or `closed`
    virtual SendStatus writeFrames(const std::uint8_t* data, std::size_t size, bool more) = 0;

    /// Calls onTransportReady() of `listener` once, when the writer takes frames again; soon, if it already
    /// does. Never from inside this call, nor with a lock of the writer held.
    virtual void notifyWhenWritable(std::weak_ptr<TransportListener> listener) = 0;

    /// The client's name in the log.
    virtual std::string peerName() const
    {
        return "a client";
    }

    /// Adds the memory that writeFrames() uses.
    virtual void addFootprint(Footprint& /*footprint*/) const {}
};

/// RTP and RTCP of one track inside an RTSP connection (RFC 2326, section 10.12). Transport kind 1.
///
/// An access unit is written in one call, all or nothing.
class InterleavedTransport : public GatedTransport
{
public:
    /// \param writer       the connection, kept weakly; when it is gone, the transport is closed
    /// \param rtpChannel   channel numbers as answered to SETUP, 0 to 255
    /// \param liveness     notes every RTCP packet as activity; may be null
    InterleavedTransport(std::weak_ptr<FrameWriter> writer, int rtpChannel, int rtcpChannel,
                         std::shared_ptr<SessionLiveness> liveness);
    ~InterleavedTransport() noexcept(false) override;

    /// Takes a frame of the RTCP channel. On the connection's thread.
    void receivedRtcp(const std::uint8_t* data, std::size_t size);
    /// Takes a frame of the RTP channel; dropped unless takeRtp() was called. On the connection's thread.
    void receivedRtp(const std::uint8_t* data, std::size_t size);

    void takeRtp() override;
    std::string peerName() const override;
    void addFootprint(Footprint& footprint) const override;

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

#pragma once
// Tested by tests/refhost/rtp/multicast/MulticastServer_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/GatedTransport.h"
#include "refhost/rtp/multicast/MulticastInterface.h"
#include "refhost/rtp/multicast/MulticastPool.h"
#include "refhost/rtp/udp/UdpUnitSender.h"

namespace refhost
{

/// What multicast sockets are set to. A plain value.
struct MulticastSocketSettings
{
    MulticastInterface interface;
    int ttl = 1;
    bool segmentationOffload = true;

    /// Has what `socket` sends leave by the interface, with the TTL, and come back to this machine.
    /// \returns false with errno set
    bool applyTo(const Descriptor& socket) const;
};

/// One track's ports of one group, and the membership in the group that brings the members' reports.
///
/// RTP and RTCP leave from the ports that they are sent to, because members check where packets come from.
/// Where another program has such a port for itself, they leave from another one and the log says so.
/// Holds the group as long as it lives. Threads: any.
class MulticastChannel
{
public:
    /// \param lease  the group
    /// \param track  number within the group
    /// \returns null with errno set when the system has no way for the group
    static std::shared_ptr<MulticastChannel> open(MulticastPool::Lease lease, int track,
                                                  const MulticastSocketSettings& settings);

    /// \param rtp     what RTP is sent through
    /// \param rtcp    what RTCP is sent and received through; none: it is sent through `rtp`
    /// \param source  as source()
    MulticastChannel(MulticastPool::Lease lease, int track, Descriptor rtp, Descriptor rtcp,
                     std::string source, bool segmentationOffload);

    const MulticastGroup& group() const
    {
        return *lease_;
    }

    /// Of the socket that takes the members' reports; -1 where its port is another program's alone.
    int descriptor() const
    {
        return rtcp_.get();
    }

    /// The numeric address that packets leave from.
    const std::string& source() const
    {
        return source_;
    }

    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header);
    void sendRtcp(const std::uint8_t* data, std::size_t size);

    /// What members report goes there, whichever member's transport is in use.
    const std::shared_ptr<TransportReceiveQueue>& receiveQueue() const
    {
        return receiveQueue_;
    }

    /// Reads a bounded number of reports.
    void onReadable();

private:
    const MulticastPool::Lease lease_;
    const Descriptor rtp_;
    const Descriptor rtcp_;
    const std::string source_;
    UdpUnitSender sender_;
    const SocketAddress rtpAddress_;
    const SocketAddress rtcpAddress_;
    const std::shared_ptr<TransportReceiveQueue> receiveQueue_;
};

}  // namespace refhost

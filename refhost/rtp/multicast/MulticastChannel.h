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

/// The settings of multicast sockets. A plain value.
struct MulticastSocketSettings
{
    MulticastInterface interface;
    int ttl = 1;
    bool segmentationOffload = true;

    /// Makes `socket` send through the interface, with the TTL, and loop back to this machine.
    /// \returns false with errno set
    bool applyTo(const Descriptor& socket) const;
};

/// One track's ports of one group, and the membership in the group that brings the members' reports.
///
/// RTP and RTCP are sent from the destination's port number, because members check the source. Where another
/// program holds that port exclusively, another one is used and logged. Holds the group as long as it lives.
/// Threads: any.
class MulticastChannel
{
public:
    /// \param lease  the group
    /// \param track  number within the group
    /// \returns null with errno set when the system has no route to the group
    static std::shared_ptr<MulticastChannel> open(MulticastPool::Lease lease, int track,
                                                  const MulticastSocketSettings& settings);

    /// \param rtp     sends RTP
    /// \param rtcp    sends and receives RTCP; none: `rtp` sends it
    /// \param source  as source()
    MulticastChannel(MulticastPool::Lease lease, int track, Descriptor rtp, Descriptor rtcp,
                     std::string source, bool segmentationOffload);

    const MulticastGroup& group() const
    {
        return *lease_;
    }

    /// The socket that receives the members' reports; -1 where another program holds its port exclusively.
    int descriptor() const
    {
        return rtcp_.get();
    }

    /// The numeric source address of the packets.
    const std::string& source() const
    {
        return source_;
    }

    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header);
    void sendRtcp(const std::uint8_t* data, std::size_t size);

    /// Receives the members' reports, whichever member's transport is in use.
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

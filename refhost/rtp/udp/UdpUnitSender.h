#pragma once

#include <atomic>
#include <cstddef>

#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// Sends access units through one UDP socket: many packets with each system call.
///
/// A run of equal-sized packets, with a smaller one at its end, is sent as one segmented message (UDP GSO);
/// where the system refuses that, each packet is a message of its own. The client gets the same datagrams in
/// both cases. Threads: any.
class UdpUnitSender
{
public:
    /// \param descriptor    a non-blocking UDP socket, owned by the caller
    /// \param segmentation  try UDP GSO
    UdpUnitSender(int descriptor, bool segmentation);
    virtual ~UdpUnitSender() = default;

    /// Sends the packets of `unit` from `firstPacket` on to `client`. Packets that the network refuses for
    /// good (no route, a filter, a closed port) count as sent and lost: never `held` or `closed`.
    SendResult send(const SocketAddress& client, const AccessUnitPtr& unit, std::size_t firstPacket,
                    const RtpHeaderFields& header);

    /// Whether messages are still segmented.
    bool segmentation() const
    {
        return segmentation_.load(std::memory_order_relaxed);
    }

protected:
    /// The system's sendmmsg(); tests inject errors.
    virtual int sendMessages(mmsghdr* messages, unsigned count);

private:
    const int descriptor_;
    std::atomic<bool> segmentation_;
};

}  // namespace refhost

#pragma once

#include <atomic>
#include <cstddef>

#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// Sends access units through one UDP socket: many packets with each system call.
///
/// Equal-sized packets that follow each other, and one smaller behind them, travel as one segmented message
/// (UDP GSO); where the system refuses that, each packet is a message of its own. Either way the client gets
/// the same datagrams. Threads: any.
class UdpUnitSender
{
public:
    /// \param descriptor    a non-blocking UDP socket; stays the caller's
    /// \param segmentation  try UDP GSO
    UdpUnitSender(int descriptor, bool segmentation);
    virtual ~UdpUnitSender() = default;

    /// Sends the packets of `unit` from `firstPacket` on to `client`. What the network refuses for good (no
    /// route, a filter, a port that nobody listens on) counts as sent and lost: never `held` or `closed`.
    SendResult send(const SocketAddress& client, const AccessUnitPtr& unit, std::size_t firstPacket,
                    const RtpHeaderFields& header);

    /// Whether packets travel segmented still.
    bool segmentation() const
    {
        return segmentation_.load(std::memory_order_relaxed);
    }

protected:
    /// The system's sendmmsg(); a test puts errors in its place.
    virtual int sendMessages(mmsghdr* messages, unsigned count);

private:
    const int descriptor_;
    std::atomic<bool> segmentation_;
};

}  // namespace refhost

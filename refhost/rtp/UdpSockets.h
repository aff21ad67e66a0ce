#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "refhost/rtp/GatedTransport.h"
#include "refhost/rtp/UdpAddress.h"
#include "refhost/rtp/UdpUnitSender.h"

namespace refhost
{

/// A bound pair of UDP sockets and who reads what comes back on them. Shared by the UDP server and the
/// transports that it made; closes the sockets at its end. Threads: any.
class UdpSockets
{
public:
    /// Takes over both descriptors.
    UdpSockets(int rtp, int rtcp, const UdpAddress& bound, bool segmentation);
    ~UdpSockets();
    UdpSockets(const UdpSockets&) = delete;
    UdpSockets& operator=(const UdpSockets&) = delete;

    int rtpDescriptor() const
    {
        return rtp_;
    }

    int rtcpDescriptor() const
    {
        return rtcp_;
    }

    /// The bound address with the RTP port.
    const UdpAddress& bound() const
    {
        return bound_;
    }

    UdpUnitSender& rtpSender()
    {
        return sender_;
    }

    void sendRtcp(const UdpAddress& client, const std::uint8_t* data, std::size_t size);

    /// Hands RTCP that comes from `client` to `inbox` until unlisten() with the same two.
    void listen(const UdpAddress& client, std::shared_ptr<TransportInbox> inbox);
    void unlisten(const UdpAddress& client, const TransportInbox* inbox);

    void dropRtp();
    void readRtcp();

private:
    /// Clients come and go on all threads: a few locks instead of one.
    struct Shard
    {
        std::mutex mutex;
        std::unordered_map<UdpAddress, std::shared_ptr<TransportInbox>, UdpAddressHash> inboxes;
    };

    Shard& shardOf(const UdpAddress& client);
    std::shared_ptr<TransportInbox> find(const UdpAddress& client);

    const int rtp_;
    const int rtcp_;
    const UdpAddress bound_;
    UdpUnitSender sender_;
    std::array<Shard, 16> shards_;
};

}  // namespace refhost

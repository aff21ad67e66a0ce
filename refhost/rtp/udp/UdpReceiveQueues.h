#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <array>
#include <memory>
#include <unordered_map>

#include "refhost/base/Mutex.h"
#include "refhost/rtp/GatedTransport.h"
#include "refhost/rtp/udp/UdpAddress.h"

namespace refhost
{

/// Who takes what comes from which client at one socket. The work for a packet does not depend on how many
/// clients there are. Threads: any.
class UdpReceiveQueues
{
public:
    /// Hands what comes from `client` to `receiveQueue` until unlisten() with the same two. The last one counts.
    void listen(const UdpAddress& client, std::shared_ptr<TransportReceiveQueue> receiveQueue);
    void unlisten(const UdpAddress& client, const TransportReceiveQueue* receiveQueue);

    /// \returns null when nobody listens to `client`
    std::shared_ptr<TransportReceiveQueue> find(const UdpAddress& client);

private:
    /// Clients come and go on all threads: a few locks instead of one.
    struct Shard
    {
        Mutex mutex;
        std::unordered_map<UdpAddress, std::shared_ptr<TransportReceiveQueue>, UdpAddressHash> receiveQueues
            OV_GUARDED_BY(mutex);
    };

    Shard& shardOf(const UdpAddress& client);

    std::array<Shard, 16> shards_;
};

}  // namespace refhost

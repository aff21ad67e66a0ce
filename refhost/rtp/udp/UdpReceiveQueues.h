#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <array>
#include <memory>
#include <unordered_map>

#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/GatedTransport.h"

namespace refhost
{

/// Who takes what comes from which client at one socket. The work for a packet does not depend on how many
/// clients there are. Threads: any.
class UdpReceiveQueues
{
public:
    /// Hands what comes from `client` to `receiveQueue` until unlisten() with the same two. The last one counts.
    void listen(const SocketAddress& client, std::shared_ptr<TransportReceiveQueue> receiveQueue);
    void unlisten(const SocketAddress& client, const TransportReceiveQueue* receiveQueue);

    /// \returns null when nobody listens to `client`
    std::shared_ptr<TransportReceiveQueue> find(const SocketAddress& client);

private:
    /// Clients come and go on all threads: a few locks instead of one.
    struct Shard
    {
        Mutex mutex;
        std::unordered_map<SocketAddress, std::shared_ptr<TransportReceiveQueue>, SocketAddress::Hash>
            receiveQueues OV_GUARDED_BY(mutex);
    };

    Shard& shardOf(const SocketAddress& client);

    std::array<Shard, 16> shards_;
};

}  // namespace refhost

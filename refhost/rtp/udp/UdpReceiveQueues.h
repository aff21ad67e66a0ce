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

/// The receivers of one socket's packets, by the client's address. Looking one up takes constant time.
/// Threads: any.
class UdpReceiveQueues
{
public:
    /// Passes packets from `client` to `receiveQueue` until unlisten() with the same arguments. The last call
    /// wins.
    void listen(const SocketAddress& client, std::shared_ptr<TransportReceiveQueue> receiveQueue);
    void unlisten(const SocketAddress& client, const TransportReceiveQueue* receiveQueue);

    /// \returns null when there is none for `client`
    std::shared_ptr<TransportReceiveQueue> find(const SocketAddress& client);

private:
    /// All threads add and remove clients: a few locks instead of one.
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

#include "refhost/rtp/udp/UdpReceiveQueues.h"

namespace refhost
{

void UdpReceiveQueues::listen(const SocketAddress& client,
                              std::shared_ptr<TransportReceiveQueue> receiveQueue)
{
    Shard& shard = shardOf(client);
    const MutexLock guard(shard.mutex);
    shard.receiveQueues[client].swap(receiveQueue);
}

void UdpReceiveQueues::unlisten(const SocketAddress& client, const TransportReceiveQueue* receiveQueue)
{
    Shard& shard = shardOf(client);
    const MutexLock guard(shard.mutex);
    const auto found = shard.receiveQueues.find(client);
    if (found != shard.receiveQueues.end() && found->second.get() == receiveQueue)
    {
        shard.receiveQueues.erase(found);
    }
}

std::shared_ptr<TransportReceiveQueue> UdpReceiveQueues::find(const SocketAddress& client)
{
    Shard& shard = shardOf(client);
    const MutexLock guard(shard.mutex);
    const auto found = shard.receiveQueues.find(client);
    return found == shard.receiveQueues.end() ? nullptr : found->second;
}

UdpReceiveQueues::Shard& UdpReceiveQueues::shardOf(const SocketAddress& client)
{
    return shards_[SocketAddress::Hash()(client) % shards_.size()];
}

}  // namespace refhost

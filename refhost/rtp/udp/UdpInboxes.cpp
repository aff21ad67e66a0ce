#include "refhost/rtp/udp/UdpInboxes.h"

namespace refhost
{

void UdpInboxes::listen(const UdpAddress& client, std::shared_ptr<TransportInbox> inbox)
{
    Shard& shard = shardOf(client);
    const std::lock_guard<std::mutex> guard(shard.mutex);
    shard.inboxes[client].swap(inbox);
}

void UdpInboxes::unlisten(const UdpAddress& client, const TransportInbox* inbox)
{
    Shard& shard = shardOf(client);
    const std::lock_guard<std::mutex> guard(shard.mutex);
    const auto found = shard.inboxes.find(client);
    if (found != shard.inboxes.end() && found->second.get() == inbox)
    {
        shard.inboxes.erase(found);
    }
}

std::shared_ptr<TransportInbox> UdpInboxes::find(const UdpAddress& client)
{
    Shard& shard = shardOf(client);
    const std::lock_guard<std::mutex> guard(shard.mutex);
    const auto found = shard.inboxes.find(client);
    return found == shard.inboxes.end() ? nullptr : found->second;
}

UdpInboxes::Shard& UdpInboxes::shardOf(const UdpAddress& client)
{
    return shards_[client.hash() % shards_.size()];
}

}  // namespace refhost

#include "bench/watch/LiveViewer.h"

#include <algorithm>
#include <string>

namespace watchload
{

LiveViewer::LiveViewer(const Place& place, rtspload::Poller& poller, const std::string& target,
                       LiveCount& count)
    : HttpClient(place, poller), count_(count)
{
    get(target,
        "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n");
}

void LiveViewer::onReply(int status, std::string_view /*body*/)
{
    constexpr int switching = 101;
    if (status != switching)
    {
        onEnd();
    }
}

/// Frames of a server (RFC 6455, section 5.2).
void LiveViewer::onBytes(std::string_view bytes)
{
    count_.bytes += bytes.size();
    while (!bytes.empty())
    {
        const auto skipped = static_cast<std::size_t>(std::min<std::uint64_t>(skip_, bytes.size()));
        skip_ -= skipped;
        bytes.remove_prefix(skipped);
        if (bytes.empty())
        {
            return;
        }
        head_ += bytes.front();
        bytes.remove_prefix(1);
        const unsigned kind = head_.size() < 2 ? 0 : static_cast<unsigned char>(head_[1]);
        const std::size_t size = kind == 127 ? 10 : kind == 126 ? 4 : 2;
        if (head_.size() < size)
        {
            continue;
        }
        skip_ = size == 2 ? kind : 0;
        for (std::size_t i = 2; i < size; ++i)
        {
            skip_ = skip_ << 8U | static_cast<unsigned char>(head_[i]);
        }
        head_.clear();
        ++count_.messages;
    }
}

void LiveViewer::onEnd()
{
    count_.ended += ended_ ? 0 : 1;
    ended_ = true;
}

}  // namespace watchload

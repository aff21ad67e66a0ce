#include "refhost/rtp/udp/UdpPortPair.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <utility>

namespace refhost
{
namespace
{

constexpr int attempts = 64;

Descriptor bindSocket(const SocketAddress& address)
{
    Descriptor opened(::socket(address.family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!opened)
    {
        return opened;
    }
    if (address.family() == AF_INET6)
    {
        // The wildcard serves IPv4 clients too, as the RTSP socket does.
        const int no = 0;
        (void)setsockopt(opened.get(), IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof(no));
    }
    if (::bind(opened.get(), address.get(), address.size()) != 0)
    {
        return Descriptor();
    }
    return opened;
}

}  // namespace

std::optional<UdpPortPair> UdpPortPair::bind(const SocketAddress& address)
{
    UdpPortPair pair{bindSocket(address), Descriptor(), address};
    if (!pair.rtp)
    {
        return std::nullopt;
    }
    SocketAddress next = address;
    next.setPort(address.port() + 1);
    pair.rtcp = bindSocket(next);
    return pair.rtcp ? std::optional(std::move(pair)) : std::nullopt;
}

std::optional<UdpPortPair> UdpPortPair::bindAny(SocketAddress address)
{
    for (int i = 0; i < attempts; ++i)
    {
        address.setPort(0);
        int port = 0;
        {
            const Descriptor probe = bindSocket(address);
            if (!probe)
            {
                return std::nullopt;
            }
            port = SocketAddress::localOf(probe.get()).port() & ~1;
        }
        address.setPort(port);
        if (port == 0)
        {
            continue;
        }
        if (std::optional<UdpPortPair> pair = bind(address))
        {
            return pair;
        }
    }
    return std::nullopt;
}

}  // namespace refhost

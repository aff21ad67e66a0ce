#include "refhost/base/SocketAddress.h"

#include <arpa/inet.h>

#include <cstring>

namespace refhost
{

std::size_t SocketAddress::KeyHash::operator()(const Key& key) const noexcept
{
    std::uint64_t hash = 1469598103934665603ull;  // FNV-1a
    for (const unsigned char byte : key)
    {
        hash = (hash ^ byte) * 1099511628211ull;
    }
    return static_cast<std::size_t>(hash ^ (hash >> 32));
}

SocketAddress::Key SocketAddress::networkOf(const Key& address)
{
    constexpr unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    if (std::memcmp(address.data(), mapped, sizeof mapped) == 0)
    {
        return address;
    }
    Key network{};
    std::memcpy(network.data(), address.data(), network.size() / 2);
    return network;
}

SocketAddress::SocketAddress() : address_()
{
    address_.sin6_family = AF_UNSPEC;
}

SocketAddress::SocketAddress(const sockaddr* address) : SocketAddress()
{
    if (address->sa_family == AF_INET)
    {
        std::memcpy(&address_, address, sizeof(sockaddr_in));
    }
    else if (address->sa_family == AF_INET6)
    {
        std::memcpy(&address_, address, sizeof(sockaddr_in6));
        if (IN6_IS_ADDR_V4MAPPED(&address_.sin6_addr))
        {
            sockaddr_in plain{};
            plain.sin_family = AF_INET;
            plain.sin_port = address_.sin6_port;
            std::memcpy(&plain.sin_addr, address_.sin6_addr.s6_addr + 12, 4);
            address_ = {};
            std::memcpy(&address_, &plain, sizeof plain);
        }
    }
}

SocketAddress SocketAddress::localOf(int descriptor)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    {
        return SocketAddress();
    }
    return SocketAddress(reinterpret_cast<const sockaddr*>(&address));
}

bool SocketAddress::isIpv6() const
{
    return address_.sin6_family == AF_INET6;
}

int SocketAddress::port() const
{
    return ntohs(address_.sin6_port);  // at the same place in both forms
}

std::string SocketAddress::text() const
{
    char buffer[INET6_ADDRSTRLEN] = "";
    if (isIpv6())
    {
        inet_ntop(AF_INET6, &address_.sin6_addr, buffer, sizeof buffer);
    }
    else if (address_.sin6_family == AF_INET)
    {
        sockaddr_in plain;
        std::memcpy(&plain, &address_, sizeof plain);
        inet_ntop(AF_INET, &plain.sin_addr, buffer, sizeof buffer);
    }
    return buffer;
}

SocketAddress::Key SocketAddress::key() const
{
    Key key{};
    if (isIpv6())
    {
        std::memcpy(key.data(), address_.sin6_addr.s6_addr, key.size());
    }
    else if (address_.sin6_family == AF_INET)
    {
        sockaddr_in plain;
        std::memcpy(&plain, &address_, sizeof plain);
        key[10] = key[11] = 0xff;
        std::memcpy(key.data() + 12, &plain.sin_addr, 4);
    }
    return key;
}

sockaddr_storage SocketAddress::storage() const
{
    sockaddr_storage result{};
    std::memcpy(&result, &address_, sizeof address_);
    return result;
}

sockaddr_storage SocketAddress::mappedStorage() const
{
    if (isIpv6())
    {
        return storage();
    }
    const Key bytes = key();
    sockaddr_in6 mapped{};
    mapped.sin6_family = AF_INET6;
    mapped.sin6_port = address_.sin6_port;
    std::memcpy(mapped.sin6_addr.s6_addr, bytes.data(), bytes.size());
    sockaddr_storage result{};
    std::memcpy(&result, &mapped, sizeof mapped);
    return result;
}

}  // namespace refhost

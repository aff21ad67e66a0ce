#include "refhost/base/SocketAddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>

#include "refhost/base/Decimal.h"

namespace refhost
{
namespace
{

constexpr SocketAddress::Key mappedPrefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
constexpr std::size_t mappedPrefixSize = 12;

}  // namespace

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
    if (std::equal(mappedPrefix.begin(), mappedPrefix.begin() + mappedPrefixSize, address.begin()))
    {
        return address;
    }
    Key network{};
    std::copy_n(address.begin(), network.size() / 2, network.begin());
    return network;
}

SocketAddress::SocketAddress()
{
    std::memset(&address_, 0, sizeof address_);
    address_.any.sa_family = AF_UNSPEC;
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
        *this = forFamily(AF_INET);
    }
}

SocketAddress SocketAddress::any(int family)
{
    SocketAddress wildcard;
    wildcard.address_.any.sa_family = static_cast<sa_family_t>(family);
    return wildcard;
}

std::optional<SocketAddress> SocketAddress::parse(const std::string& numeric, int port)
{
    SocketAddress parsed = any(AF_INET);
    if (inet_pton(AF_INET, numeric.c_str(), &parsed.address_.v4.sin_addr) != 1)
    {
        parsed = any(AF_INET6);
        if (inet_pton(AF_INET6, numeric.c_str(), &parsed.address_.v6.sin6_addr) != 1)
        {
            return std::nullopt;
        }
    }
    parsed.setPort(port);
    return parsed;
}

std::optional<SocketAddress> SocketAddress::parseWithPort(const std::string& text)
{
    constexpr int maxPort = 65535;
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos)
    {
        return std::nullopt;
    }
    const auto port = parseDecimal<int>(std::string_view(text).substr(colon + 1), maxPort);
    std::string numeric = text.substr(0, colon);
    const bool bracketed = numeric.size() >= 2 && numeric.front() == '[' && numeric.back() == ']';
    if (bracketed)
    {
        numeric = numeric.substr(1, numeric.size() - 2);
    }
    if (!port || bracketed != (numeric.find(':') != std::string::npos))
    {
        return std::nullopt;
    }
    return parse(numeric, *port);
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

bool SocketAddress::isLoopback() const
{
    const SocketAddress plain = forFamily(AF_INET);
    if (plain.isIpv6())
    {
        return IN6_IS_ADDR_LOOPBACK(&plain.address_.v6.sin6_addr);
    }
    return plain.family() == AF_INET && (ntohl(plain.address_.v4.sin_addr.s_addr) >> 24U) == IN_LOOPBACKNET;
}

SocketAddress SocketAddress::forFamily(int family) const
{
    if (family == AF_INET6 && this->family() == AF_INET)
    {
        SocketAddress mapped = any(AF_INET6);
        const Key bytes = key();
        std::memcpy(mapped.address_.v6.sin6_addr.s6_addr, bytes.data(), bytes.size());
        mapped.setPort(port());
        return mapped;
    }
    if (family == AF_INET && isIpv6() && IN6_IS_ADDR_V4MAPPED(&address_.v6.sin6_addr))
    {
        SocketAddress plain = any(AF_INET);
        std::memcpy(&plain.address_.v4.sin_addr, address_.v6.sin6_addr.s6_addr + mappedPrefixSize,
                    sizeof(in_addr));
        plain.setPort(port());
        return plain;
    }
    return *this;
}

int SocketAddress::port() const
{
    return ntohs(isIpv6() ? address_.v6.sin6_port : address_.v4.sin_port);
}

void SocketAddress::setPort(int port)
{
    (isIpv6() ? address_.v6.sin6_port : address_.v4.sin_port) = htons(static_cast<std::uint16_t>(port));
}

std::string SocketAddress::text() const
{
    const SocketAddress plain = forFamily(AF_INET);
    if (plain.family() == AF_UNSPEC)
    {
        return {};
    }
    const void* const bytes =
        plain.isIpv6() ? static_cast<const void*>(&plain.address_.v6.sin6_addr) : &plain.address_.v4.sin_addr;
    char numeric[INET6_ADDRSTRLEN] = "";
    inet_ntop(plain.family(), bytes, numeric, sizeof numeric);
    return numeric;
}

std::string SocketAddress::textWithPort() const
{
    const std::string numeric = text();
    const bool six = numeric.find(':') != std::string::npos;
    return (six ? "[" : "") + numeric + (six ? "]:" : ":") + std::to_string(port());
}

SocketAddress::Key SocketAddress::key() const
{
    Key key{};
    if (isIpv6())
    {
        std::memcpy(key.data(), address_.v6.sin6_addr.s6_addr, key.size());
    }
    else if (family() == AF_INET)
    {
        key = mappedPrefix;
        std::memcpy(key.data() + mappedPrefixSize, &address_.v4.sin_addr, sizeof(in_addr));
    }
    return key;
}

bool SocketAddress::operator==(const SocketAddress& other) const
{
    if (family() != other.family() || port() != other.port())
    {
        return false;
    }
    if (isIpv6())
    {
        return std::memcmp(&address_.v6.sin6_addr, &other.address_.v6.sin6_addr, sizeof(in6_addr)) == 0;
    }
    return address_.v4.sin_addr.s_addr == other.address_.v4.sin_addr.s_addr;
}

std::size_t SocketAddress::Hash::operator()(const SocketAddress& address) const noexcept
{
    const void* const bytes = address.isIpv6() ? static_cast<const void*>(&address.address_.v6.sin6_addr)
                                               : &address.address_.v4.sin_addr;
    const std::string_view text(static_cast<const char*>(bytes),
                                address.isIpv6() ? sizeof(in6_addr) : sizeof(in_addr));
    return std::hash<std::string_view>()(text) * 31U + static_cast<std::size_t>(address.port());
}

}  // namespace refhost

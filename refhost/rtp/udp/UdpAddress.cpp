#include "refhost/rtp/udp/UdpAddress.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <string_view>

namespace refhost
{
namespace
{

constexpr std::size_t mappedPrefix = 12;

}  // namespace

UdpAddress::UdpAddress()
{
    std::memset(&address_, 0, sizeof(address_));
    address_.any.sa_family = AF_INET;
}

UdpAddress::UdpAddress(const sockaddr_storage& from) : UdpAddress()
{
    std::memcpy(&address_, &from, from.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
}

bool UdpAddress::parse(const std::string& text, UdpAddress& out)
{
    UdpAddress parsed;
    if (inet_pton(AF_INET, text.c_str(), &parsed.address_.v4.sin_addr) != 1)
    {
        if (inet_pton(AF_INET6, text.c_str(), &parsed.address_.v6.sin6_addr) != 1)
        {
            return false;
        }
        parsed.address_.v6.sin6_family = AF_INET6;
    }
    out = parsed;
    return true;
}

UdpAddress UdpAddress::forFamily(int family) const
{
    if (family == this->family())
    {
        return *this;
    }
    UdpAddress other;
    if (family == AF_INET6)
    {
        other.address_.v6.sin6_family = AF_INET6;
        std::uint8_t* bytes = other.address_.v6.sin6_addr.s6_addr;
        bytes[10] = bytes[11] = 0xff;
        std::memcpy(bytes + mappedPrefix, &address_.v4.sin_addr, sizeof(in_addr));
    }
    else if (IN6_IS_ADDR_V4MAPPED(&address_.v6.sin6_addr))
    {
        std::memcpy(&other.address_.v4.sin_addr, address_.v6.sin6_addr.s6_addr + mappedPrefix,
                    sizeof(in_addr));
    }
    else
    {
        return *this;
    }
    other.setPort(port());
    return other;
}

int UdpAddress::port() const
{
    return ntohs(family() == AF_INET6 ? address_.v6.sin6_port : address_.v4.sin_port);
}

void UdpAddress::setPort(int port)
{
    const in_port_t network = htons(static_cast<std::uint16_t>(port));
    if (family() == AF_INET6)
    {
        address_.v6.sin6_port = network;
    }
    else
    {
        address_.v4.sin_port = network;
    }
}

std::string UdpAddress::text() const
{
    const UdpAddress plain = forFamily(AF_INET);
    const bool six = plain.family() == AF_INET6;
    const void* bytes =
        six ? static_cast<const void*>(&plain.address_.v6.sin6_addr) : &plain.address_.v4.sin_addr;
    char numeric[INET6_ADDRSTRLEN] = {};
    inet_ntop(plain.family(), bytes, numeric, sizeof(numeric));
    return (six ? "[" : "") + std::string(numeric) + (six ? "]:" : ":") + std::to_string(port());
}

bool UdpAddress::operator==(const UdpAddress& other) const
{
    if (family() != other.family() || port() != other.port())
    {
        return false;
    }
    if (family() == AF_INET6)
    {
        return std::memcmp(&address_.v6.sin6_addr, &other.address_.v6.sin6_addr, sizeof(in6_addr)) == 0;
    }
    return address_.v4.sin_addr.s_addr == other.address_.v4.sin_addr.s_addr;
}

std::size_t UdpAddress::hash() const
{
    const bool six = family() == AF_INET6;
    const void* bytes = six ? static_cast<const void*>(&address_.v6.sin6_addr) : &address_.v4.sin_addr;
    const std::string_view text(static_cast<const char*>(bytes), six ? sizeof(in6_addr) : sizeof(in_addr));
    return std::hash<std::string_view>()(text) * 31U + static_cast<std::size_t>(port());
}

}  // namespace refhost

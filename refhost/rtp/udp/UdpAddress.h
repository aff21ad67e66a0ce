#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <string>

namespace refhost
{

/// An IPv4 or IPv6 address with its port: what a datagram is sent to or came from. A plain value.
class UdpAddress
{
public:
    /// The IPv4 wildcard with port 0.
    UdpAddress();
    explicit UdpAddress(const sockaddr_storage& from);

    /// \param text  numeric IPv4 or IPv6 address
    /// \returns false, and `out` is left as it was, when it is neither
    static bool parse(const std::string& text, UdpAddress& out);

    /// The address as a socket of the given family takes it: an IPv4 address becomes a mapped one for
    /// AF_INET6 and a mapped one becomes plain for AF_INET. A true IPv6 address stays.
    UdpAddress forFamily(int family) const;

    int family() const
    {
        return address_.any.sa_family;
    }

    int port() const;
    void setPort(int port);

    /// Numeric address and port: "192.0.2.1:5004", "[2001:db8::1]:5004".
    std::string text() const;

    const sockaddr* get() const
    {
        return &address_.any;
    }

    /// To be filled by the system: room for either family.
    sockaddr* fill()
    {
        return &address_.any;
    }

    static constexpr socklen_t room = sizeof(sockaddr_in6);

    socklen_t size() const
    {
        return family() == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    }

    /// Same family, address and port.
    bool operator==(const UdpAddress& other) const;
    std::size_t hash() const;

private:
    union
    {
        sockaddr any;
        sockaddr_in v4;
        sockaddr_in6 v6;
    } address_;
};

struct UdpAddressHash
{
    std::size_t operator()(const UdpAddress& address) const
    {
        return address.hash();
    }
};

}  // namespace refhost

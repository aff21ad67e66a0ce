#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>

namespace refhost
{

/// IPv4 or IPv6 address and port of one end of a connection or datagram. A plain value of 28 bytes.
class SocketAddress
{
public:
    /// The IPv6 form of an address (IPv4 ones mapped), without port: what limits per address count by.
    using Key = std::array<unsigned char, 16>;
    struct KeyHash
    {
        std::size_t operator()(const Key& key) const noexcept;
    };

    /// What limits count as one address: an IPv4 address, or an IPv6 network of 64 bits, which is the least
    /// that one site has.
    static Key networkOf(const Key& address);

    /// No address, of no family.
    SocketAddress();
    /// An IPv4 address that is mapped into IPv6 becomes plain; another family's becomes none.
    explicit SocketAddress(const sockaddr* address);

    /// The wildcard of a family with port 0.
    static SocketAddress any(int family);
    /// \param numeric  IPv4 or IPv6 address
    /// \returns nothing when it is neither
    static std::optional<SocketAddress> parse(const std::string& numeric, int port = 0);

    /// Our end of a socket; none when it has none.
    static SocketAddress localOf(int descriptor);

    /// AF_INET, AF_INET6, or AF_UNSPEC for none.
    int family() const
    {
        return address_.any.sa_family;
    }

    bool isIpv6() const
    {
        return family() == AF_INET6;
    }

    /// The address as a socket of the given family takes it: an IPv4 address becomes a mapped one for
    /// AF_INET6 and a mapped one becomes plain for AF_INET. A true IPv6 address stays.
    SocketAddress forFamily(int family) const;

    int port() const;
    void setPort(int port);

    /// Numeric, without port: "192.0.2.1", "2001:db8::1"; empty for none. A mapped address shows as IPv4.
    std::string text() const;
    /// The same with port: "192.0.2.1:5004", "[2001:db8::1]:5004".
    std::string textWithPort() const;
    Key key() const;

    /// As the system takes it.
    const sockaddr* get() const
    {
        return &address_.any;
    }

    socklen_t size() const
    {
        return isIpv6() ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    }

    /// To be filled by the system: room for either family.
    sockaddr* fill()
    {
        return &address_.any;
    }

    static constexpr socklen_t room = sizeof(sockaddr_in6);

    /// Same family, address and port.
    bool operator==(const SocketAddress& other) const;

    struct Hash
    {
        std::size_t operator()(const SocketAddress& address) const noexcept;
    };

private:
    union
    {
        sockaddr any;
        sockaddr_in v4;
        sockaddr_in6 v6;
    } address_;
};

}  // namespace refhost

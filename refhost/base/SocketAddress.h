#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>

namespace refhost
{

/// IPv4 or IPv6 address and port of one end of a connection or datagram. A value type of 28 bytes.
class SocketAddress
{
public:
    /// An address in IPv6 form (IPv4 mapped), without port: the key of limits per address.
    using Key = std::array<unsigned char, 16>;
    struct KeyHash
    {
        std::size_t operator()(const Key& key) const noexcept;
    };

    /// The network that limits count as one address: an IPv4 address, or an IPv6 /64, the smallest network
    /// that one site has.
    static Key networkOf(const Key& address);

    /// No address; the family is AF_UNSPEC.
    SocketAddress();
    /// An IPv4-mapped IPv6 address becomes IPv4. An address of another family becomes none.
    explicit SocketAddress(const sockaddr* address);

    /// The wildcard address of a family with port 0.
    static SocketAddress any(int family);
    /// \param numeric  IPv4 or IPv6 address without port
    /// \returns nothing for any other text
    static std::optional<SocketAddress> parse(const std::string& numeric, int port = 0);

    /// \param text  as textWithPort() writes it
    /// \returns nothing for any other text
    static std::optional<SocketAddress> parseWithPort(const std::string& text);

    /// The local address of a socket; none when it has none.
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

    /// Whether it reaches this machine alone: 127.0.0.0/8 or ::1.
    bool isLoopback() const;

    /// The address for a socket of `family`: IPv4 becomes IPv4-mapped for AF_INET6, IPv4-mapped becomes IPv4
    /// for AF_INET. Other IPv6 addresses stay.
    SocketAddress forFamily(int family) const;

    int port() const;
    void setPort(int port);

    /// Numeric, without port: "192.0.2.1", "2001:db8::1"; empty for none. A mapped address is written as IPv4.
    std::string text() const;
    /// The same with port: "192.0.2.1:5004", "[2001:db8::1]:5004".
    std::string textWithPort() const;
    Key key() const;

    /// For calls of the sockets API, with size().
    const sockaddr* get() const
    {
        return &address_.any;
    }

    socklen_t size() const
    {
        return isIpv6() ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    }

    /// Buffer of `room` bytes for the sockets API to fill.
    sockaddr* fill()
    {
        return &address_.any;
    }

    static constexpr socklen_t room = sizeof(sockaddr_in6);

    /// Compares family, address and port.
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

#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace refhost
{

/// Address and port of one end of a connection. A plain value of 28 bytes.
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

    SocketAddress();
    explicit SocketAddress(const sockaddr* address);

    /// Our end of a socket; an unspecified address when it has none.
    static SocketAddress localOf(int descriptor);

    bool isIpv6() const;
    int port() const;
    /// Numeric, without port. An IPv4 client of an IPv6 socket shows as IPv4.
    std::string text() const;
    Key key() const;
    sockaddr_storage storage() const;
    /// As storage(); an IPv4 address in its mapped form, which IPv6 sockets reach it by.
    sockaddr_storage mappedStorage() const;

private:
    sockaddr_in6 address_;  // or a sockaddr_in in its first bytes
};

}  // namespace refhost

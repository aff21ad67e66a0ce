#include "refhost/base/SocketAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace refhost
{
namespace
{

SocketAddress ipv4(const char* text, std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, text, &address.sin_addr);
    return SocketAddress(reinterpret_cast<const sockaddr*>(&address));
}

SocketAddress ipv6(const char* text, std::uint16_t port)
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    inet_pton(AF_INET6, text, &address.sin6_addr);
    return SocketAddress(reinterpret_cast<const sockaddr*>(&address));
}

TEST(SocketAddress, ShowsBothFamilies)
{
    EXPECT_EQ(ipv4("192.0.2.1", 554).text(), "192.0.2.1");
    EXPECT_EQ(ipv4("192.0.2.1", 554).port(), 554);
    EXPECT_FALSE(ipv4("192.0.2.1", 554).isIpv6());
    EXPECT_EQ(ipv6("2001:db8::1", 554).text(), "2001:db8::1");
    EXPECT_TRUE(ipv6("2001:db8::1", 554).isIpv6());
    EXPECT_EQ(SocketAddress().text(), "");
}

TEST(SocketAddress, AMappedAddressIsItsIpv4Address)
{
    const SocketAddress mapped = ipv6("::ffff:192.0.2.1", 554);
    EXPECT_FALSE(mapped.isIpv6());
    EXPECT_EQ(mapped.text(), "192.0.2.1");
    EXPECT_EQ(mapped.port(), 554);
    EXPECT_EQ(mapped.key(), ipv4("192.0.2.1", 1).key());
}

TEST(SocketAddress, KeysTellAddressesApartAndNotPorts)
{
    EXPECT_EQ(ipv4("192.0.2.1", 1).key(), ipv4("192.0.2.1", 2).key());
    EXPECT_NE(ipv4("192.0.2.1", 1).key(), ipv4("192.0.2.2", 1).key());
    EXPECT_NE(ipv6("2001:db8::1", 1).key(), ipv6("2001:db8::2", 1).key());
}

TEST(SocketAddress, NetworksAreIpv4AddressesAndHalvesOfIpv6Ones)
{
    SocketAddress::Key four{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 0, 2, 1};
    EXPECT_EQ(SocketAddress::networkOf(four), four);
    const SocketAddress::Key six{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const SocketAddress::Key network{1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(SocketAddress::networkOf(six), network);
}

TEST(SocketAddress, IsWhatTheSystemTakesBack)
{
    const sockaddr_storage plain = ipv4("192.0.2.1", 554).storage();
    EXPECT_EQ(plain.ss_family, AF_INET);
    EXPECT_EQ(SocketAddress(reinterpret_cast<const sockaddr*>(&plain)).text(), "192.0.2.1");
}

}  // namespace
}  // namespace refhost

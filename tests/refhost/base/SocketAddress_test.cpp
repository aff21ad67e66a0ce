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

TEST(SocketAddress, TextHasBothFamilies)
{
    EXPECT_EQ(ipv4("192.0.2.1", 554).text(), "192.0.2.1");
    EXPECT_EQ(ipv4("192.0.2.1", 554).port(), 554);
    EXPECT_FALSE(ipv4("192.0.2.1", 554).isIpv6());
    EXPECT_EQ(ipv6("2001:db8::1", 554).text(), "2001:db8::1");
    EXPECT_TRUE(ipv6("2001:db8::1", 554).isIpv6());
    EXPECT_EQ(SocketAddress().text(), "");
}

TEST(SocketAddress, MappedAddressEqualsItsIpv4Address)
{
    const SocketAddress mapped = ipv6("::ffff:192.0.2.1", 554);
    EXPECT_FALSE(mapped.isIpv6());
    EXPECT_EQ(mapped.text(), "192.0.2.1");
    EXPECT_EQ(mapped.port(), 554);
    EXPECT_EQ(mapped.key(), ipv4("192.0.2.1", 1).key());
}

TEST(SocketAddress, KeysDifferByAddressAndNotByPort)
{
    EXPECT_EQ(ipv4("192.0.2.1", 1).key(), ipv4("192.0.2.1", 2).key());
    EXPECT_NE(ipv4("192.0.2.1", 1).key(), ipv4("192.0.2.2", 1).key());
    EXPECT_NE(ipv6("2001:db8::1", 1).key(), ipv6("2001:db8::2", 1).key());
}

TEST(SocketAddress, NetworkIsAnIpv4AddressOrAnIpv6Slash64)
{
    SocketAddress::Key four{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 0, 2, 1};
    EXPECT_EQ(SocketAddress::networkOf(four), four);
    const SocketAddress::Key six{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const SocketAddress::Key network{1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(SocketAddress::networkOf(six), network);
}

TEST(SocketAddress, SurvivesTheSocketsApi)
{
    const SocketAddress plain = ipv4("192.0.2.1", 554);
    EXPECT_EQ(plain.get()->sa_family, AF_INET);
    EXPECT_EQ(plain.size(), sizeof(sockaddr_in));
    EXPECT_EQ(SocketAddress(plain.get()), plain);
    EXPECT_EQ(ipv6("2001:db8::1", 1).size(), sizeof(sockaddr_in6));
}

TEST(SocketAddress, ParsesNumericAddresses)
{
    EXPECT_EQ(SocketAddress::parse("192.0.2.1", 554), ipv4("192.0.2.1", 554));
    EXPECT_EQ(SocketAddress::parse("2001:db8::1"), ipv6("2001:db8::1", 0));
    for (const char* const text : {"", "localhost", "192.0.2", "192.0.2.256", "[::1]", "::1 "})
    {
        EXPECT_FALSE(SocketAddress::parse(text)) << text;
    }
}

TEST(SocketAddress, ParsesAnAddressWithAPort)
{
    EXPECT_EQ(SocketAddress::parseWithPort("192.0.2.1:8080"), ipv4("192.0.2.1", 8080));
    EXPECT_EQ(SocketAddress::parseWithPort("0.0.0.0:0"), ipv4("0.0.0.0", 0));
    EXPECT_EQ(SocketAddress::parseWithPort("[2001:db8::1]:65535"), ipv6("2001:db8::1", 65535));
    for (const char* const text :
         {"", ":", "192.0.2.1", "192.0.2.1:", "192.0.2.1:65536", "192.0.2.1:-1", "[192.0.2.1]:80", "::1:80",
          "[::1]", "[::1]80", "[]:80", "[::1:80", "host:80", "192.0.2.1:80 "})
    {
        EXPECT_FALSE(SocketAddress::parseWithPort(text)) << text;
    }
}

TEST(SocketAddress, KnowsTheLoopbackAddresses)
{
    EXPECT_TRUE(ipv4("127.0.0.1", 1).isLoopback());
    EXPECT_TRUE(ipv4("127.255.0.3", 1).isLoopback());
    EXPECT_TRUE(ipv6("::1", 1).isLoopback());
    EXPECT_TRUE(ipv4("127.0.0.1", 1).forFamily(AF_INET6).isLoopback());
    EXPECT_FALSE(ipv4("128.0.0.1", 1).isLoopback());
    EXPECT_FALSE(ipv6("2001:db8::1", 1).isLoopback());
    EXPECT_FALSE(ipv4("0.0.0.0", 1).isLoopback());
    EXPECT_FALSE(SocketAddress().isLoopback());
}

TEST(SocketAddress, ConvertsToTheFamilyOfASocket)
{
    const SocketAddress plain = ipv4("192.0.2.1", 554);
    const SocketAddress mapped = plain.forFamily(AF_INET6);
    EXPECT_TRUE(mapped.isIpv6());
    EXPECT_EQ(mapped.port(), 554);
    EXPECT_EQ(mapped.text(), "192.0.2.1");
    EXPECT_EQ(mapped.forFamily(AF_INET), plain);
    EXPECT_EQ(mapped.key(), plain.key());
    const SocketAddress six = ipv6("2001:db8::1", 7);
    EXPECT_EQ(six.forFamily(AF_INET), six);
    EXPECT_EQ(SocketAddress().forFamily(AF_INET6).family(), AF_UNSPEC);
}

TEST(SocketAddress, TextWithPortHasBracketsForIpv6)
{
    EXPECT_EQ(ipv4("192.0.2.1", 5004).textWithPort(), "192.0.2.1:5004");
    EXPECT_EQ(ipv6("2001:db8::1", 5004).textWithPort(), "[2001:db8::1]:5004");
    EXPECT_EQ(ipv4("192.0.2.1", 5004).forFamily(AF_INET6).textWithPort(), "192.0.2.1:5004");
    EXPECT_EQ(SocketAddress::any(AF_INET).textWithPort(), "0.0.0.0:0");
}

TEST(SocketAddress, EqualAddressesHaveEqualHashes)
{
    const SocketAddress::Hash hash;
    EXPECT_EQ(hash(ipv4("192.0.2.1", 5)), hash(ipv4("192.0.2.1", 5)));
    EXPECT_FALSE(ipv4("192.0.2.1", 5) == ipv4("192.0.2.1", 6));
    EXPECT_FALSE(ipv4("192.0.2.1", 5) == ipv4("192.0.2.2", 5));
    EXPECT_FALSE(ipv4("192.0.2.1", 5) == ipv4("192.0.2.1", 5).forFamily(AF_INET6));
}

}  // namespace
}  // namespace refhost

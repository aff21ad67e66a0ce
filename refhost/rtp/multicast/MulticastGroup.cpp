#include "refhost/rtp/multicast/MulticastGroup.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdlib>

#include "refhost/base/Decimal.h"

namespace refhost
{
namespace
{

constexpr int addressBits = 32;
constexpr int minPort = 1024;
constexpr int maxPort = 65536 - MulticastGroup::ports;
/// 224.0.0.0/4; a range must lie within it whole.
constexpr int multicastBits = 4;
/// 224.0.0.x belongs to the protocols that keep networks running (RFC 5771, section 4).
constexpr std::uint32_t lastReserved = 0xe00000ff;

std::optional<std::uint32_t> parseAddress(std::string_view text)
{
    in_addr address{};
    const bool read = inet_pton(AF_INET, std::string(text).c_str(), &address) == 1;
    const std::uint32_t number = ntohl(address.s_addr);
    if (!read || !IN_MULTICAST(number) || number <= lastReserved)
    {
        return std::nullopt;
    }
    return number;
}

}  // namespace

std::optional<MulticastGroup> MulticastGroup::parse(std::string_view text)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos)
    {
        return std::nullopt;
    }
    const auto address = parseAddress(text.substr(0, colon));
    const auto port = parseDecimal<int>(text.substr(colon + 1), minPort, maxPort);
    if (!address || !port || *port % 2 != 0)
    {
        return std::nullopt;
    }
    return MulticastGroup{*address, *port};
}

std::string MulticastGroup::addressText() const
{
    in_addr network{};
    network.s_addr = htonl(address);
    char text[INET_ADDRSTRLEN] = {};
    return inet_ntop(AF_INET, &network, text, sizeof text);
}

bool MulticastGroup::overlaps(const MulticastGroup& other) const
{
    return address == other.address && std::abs(port - other.port) < ports;
}

std::optional<MulticastRange> MulticastRange::parse(std::string_view text)
{
    const std::size_t slash = text.find('/');
    const auto address = parseAddress(text.substr(0, slash));
    const auto bits = slash == std::string_view::npos
                          ? std::optional<int>(addressBits)
                          : parseDecimal<int>(text.substr(slash + 1), multicastBits, addressBits);
    if (!address || !bits)
    {
        return std::nullopt;
    }
    const std::uint32_t count = std::uint32_t{1} << static_cast<unsigned>(addressBits - *bits);
    const std::uint32_t first = *address & ~(count - 1);
    return first <= lastReserved ? std::nullopt : std::optional<MulticastRange>({first, count});
}

}  // namespace refhost

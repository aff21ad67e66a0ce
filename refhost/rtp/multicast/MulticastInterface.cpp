#include "refhost/rtp/multicast/MulticastInterface.h"

#include <net/if.h>

#include <algorithm>
#include <string>

#include "refhost/base/InterfaceAddresses.h"

namespace refhost
{
namespace
{

/// The name of the interface that has an address; empty when none has.
std::string nameOfInterface(const SocketAddress& address)
{
    const auto all = interfaceAddresses();
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const InterfaceAddress& each) { return each.address == address; });
    return found == all.end() ? std::string() : found->interface;
}

}  // namespace

std::optional<MulticastInterface> MulticastInterface::find(const std::string& text)
{
    const auto address = SocketAddress::parse(text);
    const std::string name = address ? nameOfInterface(*address) : text;
    MulticastInterface found;
    found.index_ = static_cast<int>(if_nametoindex(name.c_str()));
    return found.index_ == 0 ? std::nullopt : std::optional<MulticastInterface>(found);
}

}  // namespace refhost

#include "refhost/rtp/multicast/MulticastInterface.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <cstring>
#include <memory>

#include "refhost/rtp/udp/UdpAddress.h"

namespace refhost
{
namespace
{

/// The name of the interface that has an address; empty when none has.
std::string nameOfInterface(const UdpAddress& wanted)
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
    {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs* i = list; i != nullptr; i = i->ifa_next)
    {
        if (i->ifa_addr == nullptr || i->ifa_addr->sa_family != wanted.family())
        {
            continue;
        }
        UdpAddress address;
        std::memcpy(address.fill(), i->ifa_addr, wanted.size());
        address.setPort(0);
        if (address == wanted)
        {
            return i->ifa_name;
        }
    }
    return {};
}

}  // namespace

std::optional<MulticastInterface> MulticastInterface::find(const std::string& text)
{
    UdpAddress address;
    const std::string name = UdpAddress::parse(text, address) ? nameOfInterface(address) : text;
    MulticastInterface found;
    found.index_ = static_cast<int>(if_nametoindex(name.c_str()));
    return found.index_ == 0 ? std::nullopt : std::optional<MulticastInterface>(found);
}

}  // namespace refhost

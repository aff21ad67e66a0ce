#include "refhost/base/InterfaceAddresses.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <memory>

namespace refhost
{

std::vector<InterfaceAddress> interfaceAddresses()
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
    {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    std::vector<InterfaceAddress> found;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next)
    {
        if (entry->ifa_addr == nullptr)
        {
            continue;
        }
        const SocketAddress address(entry->ifa_addr);
        if (address.family() != AF_UNSPEC)
        {
            constexpr unsigned running = IFF_UP | IFF_RUNNING;
            found.push_back({entry->ifa_name, address, (entry->ifa_flags & running) == running,
                             (entry->ifa_flags & IFF_LOOPBACK) != 0});
        }
    }
    return found;
}

}  // namespace refhost

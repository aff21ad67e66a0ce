#include "refhost/ServerAddress.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstring>

namespace refhost
{

std::string reachableAddress(const std::string& listen)
{
    if (listen != "0.0.0.0" && listen != "::")
    {
        return listen;
    }
    std::string found = "127.0.0.1";
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
    {
        return found;
    }
    for (const ifaddrs* i = list; i != nullptr; i = i->ifa_next)
    {
        constexpr unsigned int wanted = IFF_UP | IFF_RUNNING;
        const bool usable = (i->ifa_flags & (wanted | IFF_LOOPBACK)) == wanted;
        if (!usable || i->ifa_addr == nullptr || i->ifa_addr->sa_family != AF_INET)
        {
            continue;
        }
        char text[INET_ADDRSTRLEN] = {};
        sockaddr_in address{};
        std::memcpy(&address, i->ifa_addr, sizeof(address));
        found = inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text));
        break;
    }
    freeifaddrs(list);
    return found;
}

std::string serverUrl(const std::string& listen, int port)
{
    const std::string address = reachableAddress(listen);
    const bool isSix = address.find(':') != std::string::npos;
    return fmt::format("rtsp://{}{}{}:{}/", isSix ? "[" : "", address, isSix ? "]" : "",
                       port == 0 ? "PORT" : std::to_string(port));
}

}  // namespace refhost

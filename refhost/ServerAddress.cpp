#include "refhost/ServerAddress.h"

#include <fmt/format.h>

#include "refhost/base/InterfaceAddresses.h"

namespace refhost
{

std::string reachableAddress(const std::string& listen)
{
    if (listen != "0.0.0.0" && listen != "::")
    {
        return listen;
    }
    for (const InterfaceAddress& each : interfaceAddresses())
    {
        if (each.running && !each.loopback && each.address.family() == AF_INET)
        {
            return each.address.text();
        }
    }
    return "127.0.0.1";
}

std::string serverUrl(const std::string& listen, int port, const char* scheme)
{
    const std::string address = reachableAddress(listen);
    const bool isSix = address.find(':') != std::string::npos;
    return fmt::format("{}://{}{}{}:{}/", scheme, isSix ? "[" : "", address, isSix ? "]" : "",
                       port == 0 ? "PORT" : std::to_string(port));
}

}  // namespace refhost

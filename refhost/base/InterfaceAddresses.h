#pragma once

#include <string>
#include <vector>

#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// One address of one of this machine's network interfaces.
struct InterfaceAddress
{
    std::string interface;
    SocketAddress address;  ///< without port
    bool running = false;   ///< the interface is up and has its network
    bool loopback = false;
};

/// The IPv4 and IPv6 addresses that the machine has now, in the system's order; none where it does not say.
std::vector<InterfaceAddress> interfaceAddresses();

}  // namespace refhost

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
    bool running = false;   ///< the interface is up and has a carrier
    bool loopback = false;
};

/// The machine's present IPv4 and IPv6 addresses in the system's order; empty when they cannot be read.
std::vector<InterfaceAddress> interfaceAddresses();

}  // namespace refhost

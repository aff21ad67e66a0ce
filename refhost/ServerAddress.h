#pragma once

#include <string>

namespace refhost
{

/// The address under which a player on this machine or its network reaches a configured `listen`: `listen`
/// itself or, for a wildcard, the machine's first address on a network.
std::string reachableAddress(const std::string& listen);

/// \param port  0 when unknown
/// \returns "rtsp://<reachableAddress()>:<port>/"
std::string serverUrl(const std::string& listen, int port);

}  // namespace refhost

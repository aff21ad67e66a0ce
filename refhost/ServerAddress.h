#pragma once

#include <string>

namespace refhost
{

/// The address under which a player on this machine or its network reaches a configured `listen`: `listen`
/// itself or, for a wildcard, the machine's first address on a network.
std::string reachableAddress(const std::string& listen);

/// \param port    0 when unknown
/// \param scheme  "rtsp" or "rtsps"
/// \returns "<scheme>://<reachableAddress()>:<port>/"
std::string serverUrl(const std::string& listen, int port, const char* scheme = "rtsp");

}  // namespace refhost

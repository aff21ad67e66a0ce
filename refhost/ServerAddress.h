#pragma once

#include <string>

namespace refhost
{

/// The address that a player on this machine or its network can use for a configured `listen`: itself, or
/// where that is every address, the first of a network.
std::string reachableAddress(const std::string& listen);

/// \param port  0 when it is not known
/// \returns "rtsp://<reachableAddress()>:<port>/"
std::string serverUrl(const std::string& listen, int port);

}  // namespace refhost

#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <sys/socket.h>

namespace refhost
{

/// Asks for a buffer of so many bytes for a socket; the system may give less.
/// \param option, forced  SO_SNDBUF and SO_SNDBUFFORCE, or those for receiving
inline void setSocketBuffer(int socket, int option, int forced, int bytes)
{
    // The forced form goes beyond the system's limit but needs a privilege; the plain one is cut silently.
    if (::setsockopt(socket, SOL_SOCKET, forced, &bytes, sizeof bytes) != 0)
    {
        (void)::setsockopt(socket, SOL_SOCKET, option, &bytes, sizeof bytes);
    }
}

}  // namespace refhost

#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <sys/socket.h>

namespace refhost
{

/// Requests a socket buffer of `bytes`; the system may grant less.
/// \param option, forced  SO_SNDBUF and SO_SNDBUFFORCE, or SO_RCVBUF and SO_RCVBUFFORCE
inline void setSocketBuffer(int socket, int option, int forced, int bytes)
{
    // The forced option may exceed the system's limit but needs CAP_NET_ADMIN; the plain one is capped.
    if (::setsockopt(socket, SOL_SOCKET, forced, &bytes, sizeof bytes) != 0)
    {
        (void)::setsockopt(socket, SOL_SOCKET, option, &bytes, sizeof bytes);
    }
}

}  // namespace refhost

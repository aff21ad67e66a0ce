#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <optional>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Two non-blocking UDP sockets on an even port and the next one, for RTP and RTCP (RFC 3550, section 11).
struct UdpPortPair
{
    Descriptor rtp;
    Descriptor rtcp;
    SocketAddress bound;  ///< with the port of RTP

    /// Binds `address` with its port, which is even, and the next one.
    /// \returns nothing with errno set when that fails
    static std::optional<UdpPortPair> bind(const SocketAddress& address);

    /// Finds an even port that is free together with the next one; tries a bounded number of them.
    /// \param address  its port is not used
    /// \returns nothing with errno set when that fails
    static std::optional<UdpPortPair> bindAny(SocketAddress address);
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/rtsp/connection/RtspServerTls_test.cpp.

#include <string_view>

#include "refhost/net/ByteStream.h"

namespace refhost
{

/// Clients that take the port of TLS for a plain one. Threads: any; no state.
class PlainClient
{
public:
    /// What a client speaks instead of TLS.
    /// \param first  its first bytes, some 8
    /// \returns "HTTP" or "RTSP"; empty where they are no text
    static std::string_view protocolOf(std::string_view first);

    /// Sends a refusal that says so in what it speaks, and ends sending.
    /// \param protocol  as protocolOf() returns it; not empty
    static void answer(ByteStream& stream, std::string_view protocol);
};

}  // namespace refhost

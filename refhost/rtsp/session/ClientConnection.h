#pragma once
// Tested by tests/refhost/rtsp/connection/RtspConnection_test.cpp.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/InterleavedTransport.h"

namespace refhost
{

/// The connection of a request, as a RequestHandler sees it.
///
/// Together with RtspRequest it separates the protocol from sockets and loops, so that tests and fuzz targets
/// can replace those.
class ClientConnection
{
public:
    virtual ~ClientConnection() = default;

    /// Queues one whole response, ahead of every interleaved frame written later. Never blocks.
    virtual void sendResponse(std::string_view response) = 0;

    /// Sends the queued responses now, before packets on other transports. Never blocks.
    virtual void flush() = 0;

    /// The writer of interleaved transports; ends with the connection.
    virtual std::weak_ptr<FrameWriter> frameWriter() = 0;

    virtual const SocketAddress& peer() const = 0;
    virtual const SocketAddress& local() const = 0;
    /// The unique number of this connection, never reused; not 0.
    virtual std::uint64_t serial() const = 0;
    /// Whether others cannot read what is sent.
    virtual bool encrypted() const
    {
        return false;
    }
    /// The common name of the certificate that the client proved to have; empty without one.
    virtual std::string certificateName() const
    {
        return {};
    }
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/rtsp/connection/RtspConnection_test.cpp.

#include <cstdint>
#include <memory>
#include <string_view>

#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/InterleavedTransport.h"

namespace refhost
{

/// What a RequestHandler sees of the engine: the connection that a request came on.
///
/// With RtspRequest on the way in, this is all that stands between the protocol and the engine, so that a
/// test or a fuzz target takes the engine's place.
class ClientConnection
{
public:
    virtual ~ClientConnection() = default;

    /// Queues one whole response, before every interleaved frame that is written after the return. Never
    /// blocks.
    virtual void sendResponse(std::string_view response) = 0;

    /// Lets every response queued so far leave now, before packets that take another way. Never blocks.
    virtual void flush() = 0;

    /// Where interleaved transports write to; goes with the connection.
    virtual std::weak_ptr<FrameWriter> frameWriter() = 0;

    virtual const SocketAddress& peer() const = 0;
    virtual const SocketAddress& local() const = 0;
    /// A number of this connection that no other one had or will have; not 0.
    virtual std::uint64_t serial() const = 0;
};

}  // namespace refhost

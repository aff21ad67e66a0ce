#pragma once

#include <functional>
#include <memory>
#include <string>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/net/HostResolver.h"
#include "refhost/net/StreamConnector.h"

namespace refhost
{

/// Makes plain TCP connections: looks the host up and tries its addresses one after the other, each for its share
/// of the time that is left. Threads: any.
class TcpConnector final : public StreamConnector
{
public:
    /// Makes a stream of a connected, non-blocking socket.
    using MakeStream =
        std::function<std::unique_ptr<ByteStream>(Descriptor socket, const SocketAddress& peer)>;

    /// \param resolver    outlives the attempts
    /// \param makeStream  called on the loops' threads; empty: a TcpStream
    explicit TcpConnector(HostResolver& resolver, MakeStream makeStream = nullptr);

    std::unique_ptr<Attempt> connect(EventLoop& loop, const std::string& host, int port, Duration timeout,
                                     Connected connected) override;

private:
    HostResolver& resolver_;
    const MakeStream makeStream_;
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/net/TcpConnector_test.cpp.

#include <functional>
#include <memory>
#include <string>

#include "refhost/base/Times.h"
#include "refhost/net/ByteStream.h"

namespace refhost
{

/// Makes outgoing connections, whatever carries them. Never blocks. Threads: any.
class StreamConnector
{
public:
    /// One connection on its way. Its end gives it up; the callback is not called any more then.
    /// Threads: the loop's.
    class Attempt
    {
    public:
        virtual ~Attempt() = default;
    };

    /// \param stream  detached; null where there is no connection
    /// \param error   why not: one line
    using Connected = std::function<void(std::unique_ptr<ByteStream> stream, const std::string& error)>;

    virtual ~StreamConnector() = default;

    /// Connects to a port of a host.
    /// \param host       name, IPv4 or IPv6 address, without brackets
    /// \param timeout    for everything together
    /// \param connected  called once on the thread of `loop`, after the return; it may end the attempt
    /// Requires: on the thread of `loop`.
    virtual std::unique_ptr<Attempt> connect(EventLoop& loop, const std::string& host, int port,
                                             Duration timeout, Connected connected) = 0;
};

}  // namespace refhost

#pragma once

#include "refhost/net/HostResolver.h"
#include "refhost/net/StreamConnector.h"

namespace refhost
{

/// Makes plain TCP connections: looks the host up and tries its addresses one after the other, each for its share
/// of the time that is left. Threads: any.
class TcpConnector final : public StreamConnector
{
public:
    /// \param resolver  outlives the attempts
    explicit TcpConnector(HostResolver& resolver);

    std::unique_ptr<Attempt> connect(EventLoop& loop, const std::string& host, int port, Duration timeout,
                                     Connected connected) override;

private:
    HostResolver& resolver_;
};

}  // namespace refhost

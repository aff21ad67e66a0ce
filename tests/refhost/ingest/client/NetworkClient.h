#pragma once

#include <functional>
#include <memory>
#include <string>

#include "refhost/ingest/client/RtspClient.h"
#include "refhost/net/HostResolver.h"
#include "refhost/net/TcpConnector.h"
#include "tests/refhost/ingest/client/ScriptedCamera.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace test
{

/// A client that reads a real server over loopback.
class NetworkClient
{
public:
    using MakeConnector = std::function<std::unique_ptr<StreamConnector>(HostResolver& resolver)>;

    explicit NetworkClient(const MakeConnector& makeConnector = [](HostResolver& resolver)
                           { return std::make_unique<TcpConnector>(resolver); })
        : connector_(makeConnector(resolver_))
    {
    }

    ~NetworkClient()
    {
        runOn(loop, [&] { client = nullptr; });
    }

    void start(const std::string& url)
    {
        runOn(loop,
              [&]
              {
                  client = std::make_unique<RtspClient>(loop, *connector_, url, options, events);
                  client->start();
              });
    }

    /// Stops and waits until the connection is closed.
    bool stopAndWait()
    {
        Signal closed;
        runOn(loop, [&] { client->stop([&] { closed.set(); }); });
        return closed.wait();
    }

    EventLoop loop{"client"};
    RtspClientOptions options;
    CollectedEvents events;
    std::unique_ptr<RtspClient> client;

private:
    HostResolver resolver_;
    const std::unique_ptr<StreamConnector> connector_;
};

}  // namespace test
}  // namespace refhost

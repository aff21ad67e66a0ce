#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "refhost/access/UserAccess.h"
#include "refhost/base/Descriptor.h"
#include "refhost/base/HostClock.h"
#include "refhost/config/Config.h"
#include "refhost/http/BackgroundWork.h"
#include "refhost/http/HttpConnection.h"
#include "refhost/http/HttpDispatcher.h"
#include "refhost/http/HttpGuard.h"
#include "refhost/http/HttpRouter.h"
#include "refhost/net/TcpListener.h"
#include "refhost/rtsp/connection/TlsAcceptor.h"
#include "refhost/rtsp/session/AddressLimiter.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// The HTTP service: listens, serves its connections on one event loop of its own, so that neither RTSP nor media ever
/// waits for it, and has work that may block done by a small pool.
///
///     HttpService service(config, users);
///     service.router().add({"GET", "/healthz", HttpAccess::open(), handler});
///     if (!service.start(error)) …
///
/// Threads: one, before start() and for start() and stop(); port() and the counts any.
class HttpService
{
public:
    /// \param users  outlives the service, as `clock` does; shared with RTSP, so that a guesser who changes the protocol gains
    ///               nothing
    HttpService(const ServerConfig& config, UserAccess& users, const HostClock& clock = HostClock::system());
    /// Stops.
    ~HttpService();
    HttpService(const HttpService&) = delete;
    HttpService& operator=(const HttpService&) = delete;

    /// For routes, before start().
    HttpRouter& router();
    /// Those of the constructor.
    UserAccess& users();
    /// Decides who may send which request; as long as the service.
    const HttpGuard& guard() const;
    /// For bodies that are made in the background; outlives every handler.
    BackgroundWork& background();

    /// Opens the port and starts to serve. Does nothing, successfully, where the configuration switches it off.
    /// \param[out] error  a sentence, on failure; nothing is left open then
    bool start(std::string& error);
    /// Ends every connection and thread. Waits for what runs in the background.
    void stop();

    /// The TCP port; 0 while stopped.
    int port() const;
    /// Reads the TLS certificate again when it has changed. \see TlsContext::refresh()
    void refreshCertificate();

    std::size_t connectionCount() const;
    /// Number of requests so far.
    std::uint64_t requestCount() const;

private:
    void accept();
    void adopt(Descriptor socket, const SocketAddress& peer);
    void forget(const HttpConnection& connection);
    void sweep();
    void closeAll();

    const ServerConfig config_;
    const HostClock& clock_;
    HttpRouter router_;
    UserAccess& users_;
    const HttpGuard guard_;
    BackgroundWork work_;
    HttpDispatcher dispatcher_;
    AddressLimiter places_;
    std::unique_ptr<TlsAcceptor> tls_;
    std::unique_ptr<TcpListener> listener_;
    std::atomic<std::uint64_t> requests_{0};
    std::uint64_t serial_ = 0;                                                            // the loop's
    std::unordered_map<const HttpConnection*, std::shared_ptr<HttpConnection>> clients_;  // the loop's
    std::unique_ptr<EventLoop> loop_;  // last: its thread ends before what it uses is destroyed
};

}  // namespace refhost

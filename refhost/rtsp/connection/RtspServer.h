#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/Replaceable.h"
#include "refhost/config/Config.h"
#include "refhost/net/TcpListener.h"
#include "refhost/rtsp/connection/ConnectionLoop.h"
#include "refhost/rtsp/connection/ConnectionSlots.h"
#include "refhost/rtsp/connection/HttpEntrance.h"
#include "refhost/rtsp/connection/TlsAcceptor.h"
#include "refhost/rtsp/session/AddressLimiter.h"
#include "refhost/rtsp/session/MediaRoutes.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/service/PassedSockets.h"

namespace refhost
{

/// The RTSP server: listens, spreads connections over its event loops, and ends everything on stop().
///
///     RtspServer server(config, routes);
///     if (!server.start(error)) …
///
/// Device::setStreams() comes before start(). Threads: start() and stop() by one thread; the rest any.
class RtspServer
{
public:
    struct Options
    {
        /// Not null, outlives the server.
        const HostClock* clock = &HostClock::system();
        std::chrono::milliseconds sweepInterval =
            std::chrono::seconds(1);  ///< interval of the timeout checks
        /// Those named "rtsp" and "rtsps" are served instead of opening the configured ports. May be null;
        /// outlives start().
        PassedSockets* sockets = nullptr;
    };

    RtspServer(const ServerConfig& config, MediaRoutes routes);
    RtspServer(const ServerConfig& config, MediaRoutes routes, Options options);
    /// Stops.
    ~RtspServer();
    RtspServer(const RtspServer&) = delete;
    RtspServer& operator=(const RtspServer&) = delete;

    /// Opens the ports and starts to serve.
    /// \param[out] error  a sentence, on failure; nothing is left open then
    bool start(std::string& error);

    /// Ends every session, connection and thread of the server. Does nothing on a stopped server.
    void stop();

    /// \see RtspServices::setUsers()
    std::size_t setUsers(const std::vector<UserConfig>& users, const std::vector<GroupConfig>& groups);

    /// Applies another configuration: users and rights, limits, security, TLS and tunnels. The port of TLS is opened,
    /// closed or moved as it says; connections stay. What needs a restart is left out. Threads: that of start().
    /// \param[out] error  a sentence, on failure; nothing changed then
    bool setConfig(const ServerConfig& config, std::string& error);

    /// Ends the live sessions of the streams that `which` names, each with BYE.
    /// \param why  for the log, such as "its camera was removed"
    /// \returns how many
    std::size_t endSessions(const std::function<bool(int camera, int stream)>& which, const std::string& why);

    /// The TCP port, even if the configuration requests any free one; 0 while stopped.
    int port() const;
    /// The TCP port of RTSP over TLS; 0 while stopped, and without TLS.
    int tlsPort() const;
    /// SHA-256 of the TLS certificate; empty without TLS.
    std::string tlsFingerprint() const;
    /// Reads the TLS certificate again when it has changed. \see TlsContext::refresh()
    void refreshCertificate();
    /// The UDP port of RTP; 0 while stopped.
    int rtpPort() const;

    /// What its connections share: users, rights and sessions. Lives as long as the server.
    RtspServices& services();

    std::size_t connectionCount() const;
    std::size_t sessionCount() const;

private:
    bool listen(std::string& error);
    std::unique_ptr<TcpListener> listenerFor(const char* name, const std::string& address, int port,
                                             std::string& error) const;
    bool openTls(const ServerConfig& config, std::shared_ptr<TlsAcceptor>& acceptor,
                 std::unique_ptr<TcpListener>& listener, std::string& error) const;
    void closeListener(std::unique_ptr<TcpListener>& listener);
    std::shared_ptr<TlsAcceptor> tls() const;
    void startLoops();
    void acceptFrom(TcpListener& listener, bool encrypted);
    void adopt(ConnectionLoop& acceptor, Descriptor socket, const SocketAddress& peer, bool encrypted);
    ConnectionLoop& loopFor(ConnectionLoop& acceptor) const;

    const ServerConfig config_;  ///< that it was started with
    const std::shared_ptr<Replaceable<ServerConfig>> present_;
    const Options options_;
    RtspServices services_;
    ConnectionSlots slots_;
    AddressLimiter refused_;
    HttpEntrance http_;
    std::vector<std::unique_ptr<ConnectionLoop>> loops_;
    std::unique_ptr<TcpListener> plain_;
    mutable Mutex tlsMutex_;
    std::shared_ptr<TlsAcceptor> tls_ OV_GUARDED_BY(tlsMutex_);
    std::unique_ptr<TcpListener> encrypted_ OV_GUARDED_BY(tlsMutex_);
    int subscription_ = 0;
    bool subscribed_ = false;
};

}  // namespace refhost

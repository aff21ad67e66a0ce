#pragma once
// Tested by tests/refhost/rtsp/connection/RtspServerLimits_test.cpp.

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "refhost/base/Descriptor.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// A TCP port that connections are accepted from. Accepted sockets are non-blocking, send without delay, have
/// small buffers, and their peers are probed (\see TcpLiveness).
/// Threads: any; several may accept at the same time.
class TcpListener
{
public:
    /// \param socket  connected
    using Accepted = std::function<void(Descriptor socket, const SocketAddress& peer)>;

    /// \param address   numeric IPv4 or IPv6 address
    /// \param port      0: any free one
    /// \param liveness  a dead peer is noticed within this time
    /// \param[out] error  one sentence, when null is returned
    static std::unique_ptr<TcpListener> open(const std::string& address, int port,
                                             std::chrono::seconds liveness, std::string& error);

    /// The same on a socket that listens already.
    /// \param socket  non-blocking
    static std::unique_ptr<TcpListener> adopt(Descriptor socket, std::chrono::seconds liveness);

    /// Accepts the connections that wait, so many at a time that others have their turn. Without a free
    /// descriptor it closes one of them instead, and logs it.
    void acceptAll(const Accepted& accepted);

    int descriptor() const;
    int port() const;

private:
    TcpListener() = default;
    static std::unique_ptr<TcpListener> listening(Descriptor socket);
    bool acceptOne(const Accepted& accepted);
    void shedOne();

    Descriptor socket_;
    Mutex spareMutex_;
    Descriptor spare_ OV_GUARDED_BY(spareMutex_);  // one to give up when there are no more
    int port_ = 0;
};

}  // namespace refhost

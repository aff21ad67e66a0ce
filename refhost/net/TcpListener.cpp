#include "refhost/net/TcpListener.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/net/TcpLiveness.h"

namespace refhost
{
namespace
{

constexpr int backlog = 4096;
constexpr int acceptedAtOnce = 64;
// The system's buffer per direction of a connection without interleaved frames, so that nobody can make it
// hold megabytes. Interleaved frames get a larger send buffer.
constexpr int sendBufferSize = 32 * 1024;
constexpr int receiveBufferSize = 32 * 1024;

void setOption(int descriptor, int level, int name, int value)
{
    if (::setsockopt(descriptor, level, name, &value, sizeof value) != 0)
    {
        Log::debug("setsockopt {}/{}: {}", level, name, std::strerror(errno));
    }
}

// Accepted sockets inherit these from the listener, without system calls.
void setInherited(int listener, std::chrono::seconds liveness)
{
    setOption(listener, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(listener, SOL_SOCKET, SO_SNDBUF, sendBufferSize);
    setOption(listener, SOL_SOCKET, SO_RCVBUF, receiveBufferSize);
    TcpLiveness::configure(listener, liveness);
}

Descriptor openSpare()
{
    return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

std::unique_ptr<TcpListener> TcpListener::open(const std::string& numeric, int port,
                                               std::chrono::seconds liveness, std::string& error)
{
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(port);
    if (::getaddrinfo(numeric.c_str(), service.c_str(), &hints, &found) != 0)
    {
        error = "\"" + numeric + "\" is no numeric address";
        return nullptr;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> address(found, &::freeaddrinfo);
    Descriptor socket(::socket(address->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket)
    {
        error = std::string("no socket: ") + std::strerror(errno);
        return nullptr;
    }
    setOption(socket.get(), SOL_SOCKET, SO_REUSEADDR, 1);
    setInherited(socket.get(), liveness);
    if (::bind(socket.get(), address->ai_addr, address->ai_addrlen) != 0 ||
        ::listen(socket.get(), backlog) != 0)
    {
        error = "cannot listen on " + numeric + " port " + service + ": " + std::strerror(errno);
        return nullptr;
    }
    return listening(std::move(socket));
}

std::unique_ptr<TcpListener> TcpListener::adopt(Descriptor socket, std::chrono::seconds liveness)
{
    setInherited(socket.get(), liveness);
    ::listen(socket.get(), backlog);
    return listening(std::move(socket));
}

std::unique_ptr<TcpListener> TcpListener::listening(Descriptor socket)
{
    std::unique_ptr<TcpListener> made(new TcpListener);
    made->port_ = SocketAddress::localOf(socket.get()).port();
    made->socket_ = std::move(socket);
    const MutexLock guard(made->spareMutex_);
    made->spare_ = openSpare();
    return made;
}

void TcpListener::acceptAll(const Accepted& accepted)
{
    for (int i = 0; i < acceptedAtOnce; ++i)
    {
        if (!acceptOne(accepted))
        {
            return;
        }
    }
}

/// \returns false when no connection waits
bool TcpListener::acceptOne(const Accepted& accepted)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    Descriptor socket(
        ::accept4(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket)
    {
        if (errno == EMFILE || errno == ENFILE)
        {
            shedOne();
        }
        // Any other failure concerns that connection only.
        return errno != EAGAIN && errno != EWOULDBLOCK && errno != EMFILE && errno != ENFILE &&
               errno != ENOBUFS && errno != ENOMEM;
    }
    accepted(std::move(socket), SocketAddress(reinterpret_cast<const sockaddr*>(&address)));
    return true;
}

/// Without a free descriptor the waiting connection would keep the listener readable.
void TcpListener::shedOne()
{
    const int reason = errno;
    const MutexLock guard(spareMutex_);
    if (spare_)
    {
        spare_.reset();
        const Descriptor refused(::accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    }
    spare_ = openSpare();
    Log::limited(Log::Level::warning, "connections without a descriptor", "connection refused: {}",
                 std::strerror(reason));
    errno = reason;
}

int TcpListener::descriptor() const
{
    return socket_.get();
}

int TcpListener::port() const
{
    return port_;
}

}  // namespace refhost

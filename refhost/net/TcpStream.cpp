#include "refhost/net/TcpStream.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/net/TcpLiveness.h"

namespace refhost
{
namespace
{

bool transient(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

TcpStream::TcpStream(Descriptor socket, const SocketAddress& peer) : socket_(std::move(socket)), peer_(peer)
{
}

TcpStream::~TcpStream()
{
    close();
}

void TcpStream::attach(EventLoop& loop, Handler handler)
{
    const SmallMutexLock guard(mutex_);
    loop.add(socket_.get(), watched_, std::move(handler));
    loop_ = &loop;
}

void TcpStream::detach()
{
    EventLoop* loop = nullptr;
    {
        const SmallMutexLock guard(mutex_);
        loop = std::exchange(loop_, nullptr);
    }
    // Without the lock: remove() waits for a handler, which may take it.
    if (loop != nullptr)
    {
        loop->remove(socket_.get());
    }
}

void TcpStream::watchReceive(bool on)
{
    watch(receivable, on);
}

void TcpStream::watchSend(bool on)
{
    watch(sendable, on);
}

void TcpStream::watch(std::uint32_t event, bool on)
{
    const SmallMutexLock guard(mutex_);
    watched_ = on ? watched_ | event : watched_ & ~event;
    if (loop_ != nullptr)
    {
        loop_->modify(socket_.get(), watched_);
    }
}

ByteStream::Result TcpStream::receive(char* bytes, std::size_t size)
{
    const ssize_t count = ::recv(socket_.get(), bytes, size, MSG_DONTWAIT);
    if (count > 0)
    {
        return {Status::done, static_cast<std::size_t>(count)};
    }
    if (count == 0)
    {
        return {Status::ended};
    }
    return {transient(errno) ? Status::blocked : Status::failed};
}

ByteStream::Result TcpStream::send(const std::string_view* parts, std::size_t count, bool more)
{
    iovec vectors[maxParts];
    std::size_t used = 0;
    for (std::size_t i = 0; i < std::min(count, maxParts); ++i)
    {
        if (!parts[i].empty())
        {
            vectors[used++] = {const_cast<char*>(parts[i].data()), parts[i].size()};
        }
    }
    msghdr message{};
    message.msg_iov = vectors;
    message.msg_iovlen = used;
    ssize_t taken = -1;
    do
    {
        taken = ::sendmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL | (more ? MSG_MORE : 0));
    } while (taken < 0 && errno == EINTR);
    if (taken > 0)
    {
        return {Status::done, static_cast<std::size_t>(taken)};
    }
    return {taken < 0 && transient(errno) ? Status::blocked : Status::failed};
}

void TcpStream::endSending()
{
    ::shutdown(socket_.get(), SHUT_WR);
}

void TcpStream::close()
{
    detach();
    socket_ = Descriptor();
}

const SocketAddress& TcpStream::peer() const
{
    return peer_;
}

const SocketAddress& TcpStream::local() const
{
    if (!local_)
    {
        local_ = SocketAddress::localOf(socket_.get());
    }
    return *local_;
}

void TcpStream::setSendBuffer(std::size_t bytes)
{
    const int size = static_cast<int>(bytes);
    if (::setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size) != 0)
    {
        Log::debug("{}: no larger send buffer: {}", peer_.text(), std::strerror(errno));
    }
}

std::optional<std::chrono::milliseconds> TcpStream::silence() const
{
    return TcpLiveness::silence(socket_.get());
}

int TcpStream::descriptor() const
{
    return socket_.get();
}

}  // namespace refhost

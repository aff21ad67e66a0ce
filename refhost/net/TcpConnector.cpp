#include "refhost/net/TcpConnector.h"

#include <netinet/tcp.h>

#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/net/ConnectFailure.h"
#include "refhost/net/TcpStream.h"

namespace refhost
{
namespace
{

using Clock = std::chrono::steady_clock;

class TcpAttempt final : public StreamConnector::Attempt
{
public:
    TcpAttempt(EventLoop& loop, TcpConnector::MakeStream makeStream, std::string host, int port,
               Duration timeout, StreamConnector::Connected connected)
        : loop_(loop),
          makeStream_(std::move(makeStream)),
          host_(std::move(host)),
          port_(port),
          deadline_(Clock::now() + timeout),
          connected_(std::move(connected))
    {
    }
    ~TcpAttempt() override
    {
        leaveAddress();
        loop_.cancel(timer_);
    }
    TcpAttempt(const TcpAttempt&) = delete;
    TcpAttempt& operator=(const TcpAttempt&) = delete;

    void start(HostResolver& resolver);

private:
    void tryNext();
    bool tryAddress(const SocketAddress& address);
    void onReady();
    void onTimeout();
    void leaveAddress();
    void arm(Clock::time_point due);
    void finish(std::unique_ptr<ByteStream> stream);

    EventLoop& loop_;
    const TcpConnector::MakeStream makeStream_;
    const std::string host_;
    const int port_;
    const Clock::time_point deadline_;
    StreamConnector::Connected connected_;
    std::unique_ptr<HostResolver::Query> query_;
    std::vector<SocketAddress> addresses_;
    std::size_t next_ = 0;  // of addresses_
    Descriptor socket_;     // of the address that is being tried
    bool watched_ = false;
    EventLoop::TimerId timer_;
    std::string error_ = "its name is not found in time";
    int problem_ = 0;  // where that is why, an errno
};

void TcpAttempt::start(HostResolver& resolver)
{
    if (const std::optional<SocketAddress> address = SocketAddress::parse(host_))
    {
        addresses_ = {*address};
        timer_ = loop_.after(Duration::zero(), [this] { tryNext(); });
        return;
    }
    query_ = resolver.find(loop_, host_,
                           [this](const HostResolver::Result& result)
                           {
                               addresses_ = result.addresses;
                               error_ = result.error;
                               tryNext();
                           });
    arm(deadline_);
}

/// Goes on with the next address; ends when there is none.
void TcpAttempt::tryNext()
{
    leaveAddress();
    while (next_ < addresses_.size() && Clock::now() < deadline_)
    {
        if (tryAddress(addresses_[next_++]))
        {
            const auto left = static_cast<std::int64_t>(addresses_.size() - next_ + 1);
            arm(Clock::now() + (deadline_ - Clock::now()) / left);
            return;
        }
        problem_ = errno;
        leaveAddress();
    }
    finish(nullptr);
}

/// \returns false with errno set when the address cannot be tried
bool TcpAttempt::tryAddress(const SocketAddress& address)
{
    SocketAddress peer = address;
    peer.setPort(port_);
    socket_ = Descriptor(::socket(peer.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_)
    {
        return false;
    }
    const int on = 1;
    (void)::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(socket_.get(), peer.get(), peer.size()) != 0 && errno != EINPROGRESS)
    {
        return false;
    }
    try
    {
        loop_.add(socket_.get(), EventLoop::writable, [this](std::uint32_t) { onReady(); });
    }
    catch (const std::system_error& error)
    {
        errno = error.code().value();
        return false;
    }
    watched_ = true;
    return true;
}

void TcpAttempt::onReady()
{
    int problem = 0;
    socklen_t length = sizeof problem;
    (void)::getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &problem, &length);
    if (problem != 0)
    {
        problem_ = problem;
        tryNext();
        return;
    }
    loop_.remove(socket_.get());
    watched_ = false;
    SocketAddress peer = addresses_[next_ - 1];
    peer.setPort(port_);
    finish(makeStream_ ? makeStream_(std::move(socket_), peer)
                       : std::make_unique<TcpStream>(std::move(socket_), peer));
}

void TcpAttempt::onTimeout()
{
    if (query_ == nullptr || !addresses_.empty())
    {
        problem_ = ETIMEDOUT;
    }
    tryNext();
}

void TcpAttempt::leaveAddress()
{
    if (std::exchange(watched_, false))
    {
        loop_.remove(socket_.get());
    }
    socket_ = Descriptor();
}

void TcpAttempt::arm(Clock::time_point due)
{
    loop_.cancel(timer_);
    timer_ = loop_.after(due - Clock::now(), [this] { onTimeout(); });
}

void TcpAttempt::finish(std::unique_ptr<ByteStream> stream)
{
    loop_.cancel(timer_);
    query_ = nullptr;
    std::string error;
    if (stream == nullptr)
    {
        error = problem_ != 0 ? ConnectFailure::text(host_, port_, problem_)
                              : ConnectFailure::text(host_, port_, error_);
    }
    const StreamConnector::Connected connected = std::move(connected_);
    connected(std::move(stream), error);  // which may be the end of this attempt
}

}  // namespace

TcpConnector::TcpConnector(HostResolver& resolver, MakeStream makeStream)
    : resolver_(resolver), makeStream_(std::move(makeStream))
{
}

std::unique_ptr<StreamConnector::Attempt> TcpConnector::connect(EventLoop& loop, const std::string& host,
                                                                int port, Duration timeout,
                                                                Connected connected)
{
    auto attempt = std::make_unique<TcpAttempt>(loop, makeStream_, host, port, timeout, std::move(connected));
    attempt->start(resolver_);
    return attempt;
}

}  // namespace refhost

#include "refhost/capture/CameraConversation.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Decimal.h"
#include "refhost/net/ConnectFailure.h"

namespace refhost
{
namespace
{

constexpr std::chrono::seconds connectTime(5);
constexpr std::chrono::seconds answerTime(5);
constexpr std::chrono::seconds sendTime(5);
constexpr int statusUnauthorized = 401;
constexpr std::size_t readSize = 65536;
constexpr const char* stoppedText = "the source is stopped";

/// Cameras that leave CSeq out answer in order.
bool isAnswerTo(const CameraMessage& message, unsigned sequence)
{
    return leadingDecimal<unsigned>(message.header("cseq")).value_or(sequence) == sequence;
}

}  // namespace

CameraConversation::CameraConversation(OnPacket onPacket)
    : onPacket_(std::move(onPacket)), stopDescriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!stopDescriptor_)
    {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

CameraConversation::~CameraConversation()
{
    close();
}

void CameraConversation::stop()
{
    // The counter is never read: whoever polls it from now on returns at once.
    ::eventfd_write(stopDescriptor_.get(), 1);
}

bool CameraConversation::connect(const std::string& host, int port, CameraLogin login, std::string& error)
{
    close();
    login_ = std::move(login);
    messages_ = CameraMessages();
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo* found = nullptr;
    const int failure = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (failure != 0)
    {
        error = fmt::format("cannot find {}: {}", host, ::gai_strerror(failure));
        return false;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found, &::freeaddrinfo);
    const Clock::time_point deadline = Clock::now() + connectTime;
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next)
    {
        if (connectTo(address->ai_addr, address->ai_addrlen, address->ai_family, deadline))
        {
            open_ = true;
            return true;
        }
        error = ConnectFailure::text(host, port, errno);
        close();
    }
    return false;
}

bool CameraConversation::request(const std::string& method, const std::string& uri, const Headers& headers,
                                 CameraMessage& answer, std::string& error)
{
    for (const bool again : {false, true})
    {
        if (!sendRequest(method, uri, headers, error))
        {
            return false;
        }
        const Clock::time_point deadline = Clock::now() + answerTime;
        bool answered = false;
        while (!answered)
        {
            bool timedOut = false;
            if (!takeNext(answered, error) || (!answered && !readMore(deadline, timedOut, error)))
            {
                return false;
            }
            if (timedOut && !answered)
            {
                error = "the camera does not answer " + method;
                return false;
            }
        }
        answer = std::move(messages_.message());
        if (again || answer.status != statusUnauthorized || !login_.challenge(answer))
        {
            return true;
        }
    }
    return true;
}

bool CameraConversation::sendRequest(const std::string& method, const std::string& uri,
                                     const Headers& headers, std::string& error)
{
    std::string text =
        fmt::format("{} {} RTSP/1.0\r\nCSeq: {}\r\nUser-Agent: ovrtspd\r\n", method, uri, ++sequence_);
    const std::string authorization = login_.authorization(method, uri);
    if (!authorization.empty())
    {
        text += fmt::format("Authorization: {}\r\n", authorization);
    }
    for (const auto& [name, value] : headers)
    {
        text += fmt::format("{}: {}\r\n", name, value);
    }
    text += "\r\n";
    return send(text.data(), text.size(), error);
}

bool CameraConversation::sendPacket(int channel, const std::uint8_t* data, std::size_t size,
                                    std::string& error)
{
    std::uint8_t framing[4] = {'$', static_cast<std::uint8_t>(channel)};
    writeBig16(framing + 2, static_cast<std::uint16_t>(size));
    std::string framed(reinterpret_cast<const char*>(framing), sizeof(framing));
    framed.append(reinterpret_cast<const char*>(data), size);
    return send(framed.data(), framed.size(), error);
}

bool CameraConversation::receive(Clock::time_point deadline, std::string& error)
{
    for (bool timedOut = false; !timedOut;)
    {
        bool answered = true;
        while (answered)
        {
            if (!takeNext(answered, error))
            {
                return false;
            }
        }
        if (!readMore(deadline, timedOut, error))
        {
            return false;
        }
    }
    return true;
}

CameraConversation::Wait CameraConversation::waitFor(short events, Clock::time_point deadline) const
{
    for (;;)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        std::array<pollfd, 2> watched{pollfd{socket_.get(), events, 0},
                                      pollfd{stopDescriptor_.get(), POLLIN, 0}};
        const int count =
            ::poll(watched.data(), watched.size(), static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (watched[1].revents != 0)
        {
            return Wait::stopped;
        }
        return watched[0].revents != 0 ? Wait::ready : Wait::timeout;
    }
}

bool CameraConversation::connectTo(const void* address, unsigned size, int family, Clock::time_point deadline)
{
    socket_ = Descriptor(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_)
    {
        return false;
    }
    const int on = 1;
    ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(socket_.get(), static_cast<const sockaddr*>(address), size) == 0)
    {
        return true;
    }
    if (errno != EINPROGRESS)
    {
        return false;
    }
    if (waitFor(POLLOUT, deadline) != Wait::ready)
    {
        errno = ETIMEDOUT;
        return false;
    }
    int problem = 0;
    socklen_t length = sizeof problem;
    ::getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &problem, &length);
    errno = problem;
    return problem == 0;
}

bool CameraConversation::send(const char* data, std::size_t size, std::string& error)
{
    const Clock::time_point deadline = Clock::now() + sendTime;
    while (size > 0)
    {
        const ssize_t sent = ::send(socket_.get(), data, size, MSG_NOSIGNAL);
        if (sent > 0)
        {
            data += sent;
            size -= static_cast<std::size_t>(sent);
            continue;
        }
        if (errno == EINTR)
        {
            continue;
        }
        if (errno != EAGAIN || waitFor(POLLOUT, deadline) != Wait::ready)
        {
            open_ = false;
            error = "the camera takes no requests any more";
            return false;
        }
    }
    return true;
}

bool CameraConversation::readMore(Clock::time_point deadline, bool& timedOut, std::string& error)
{
    const Wait result = waitFor(POLLIN, deadline);
    // Whoever always has something to read must still come to an end.
    timedOut = result == Wait::timeout || (result == Wait::ready && Clock::now() >= deadline);
    if (result != Wait::ready)
    {
        error = stoppedText;
        open_ = open_ && timedOut;
        return timedOut;
    }
    std::array<std::uint8_t, readSize> block;
    const ssize_t size = ::recv(socket_.get(), block.data(), block.size(), 0);
    if (size > 0)
    {
        messages_.append(block.data(), static_cast<std::size_t>(size));
        return true;
    }
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
    {
        return true;
    }
    open_ = false;
    error = size == 0 ? "the camera closed the connection"
                      : fmt::format("the connection to the camera broke: {}", std::strerror(errno));
    return false;
}

bool CameraConversation::takeNext(bool& answered, std::string& error)
{
    for (answered = false; !answered;)
    {
        const CameraMessages::Next next = messages_.next();
        if (next == CameraMessages::Next::incomplete)
        {
            return true;
        }
        if (next == CameraMessages::Next::broken)
        {
            open_ = false;
            error = "the camera sends what is not RTSP";
            return false;
        }
        if (next == CameraMessages::Next::packet)
        {
            onPacket_(messages_.channel(), messages_.packet(), messages_.packetSize());
        }
        else
        {
            // Not the camera's own requests, nor late answers to requests that nobody waited for.
            answered = messages_.message().status != 0 && isAnswerTo(messages_.message(), sequence_);
        }
    }
    return true;
}

void CameraConversation::close()
{
    socket_.reset();
    open_ = false;
}

}  // namespace refhost

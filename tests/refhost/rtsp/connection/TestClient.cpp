#include "tests/refhost/rtsp/connection/TestClient.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "refhost/base/SocketAddress.h"

namespace refhost
{
namespace test
{
namespace
{

SocketAddress loopback(int family, int port)
{
    return *SocketAddress::parse(family == AF_INET6 ? "::1" : "127.0.0.1", port);
}

int portOf(int descriptor)
{
    return SocketAddress::localOf(descriptor).port();
}

std::uint32_t number(const std::string& bytes, std::size_t at, std::size_t size)
{
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + size && i < bytes.size(); ++i)
    {
        value = value << 8 | static_cast<std::uint8_t>(bytes[i]);
    }
    return value;
}

}  // namespace

std::string Received::header(const std::string& name) const
{
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

std::string Received::session() const
{
    const std::string value = header("Session");
    return value.substr(0, value.find(';'));
}

bool Received::isRtp() const
{
    return kind == Kind::frame && payload.size() >= 12 && channel % 2 == 0;
}

std::uint16_t Received::sequence() const
{
    return static_cast<std::uint16_t>(number(payload, 2, 2));
}

std::uint32_t Received::timestamp() const
{
    return number(payload, 4, 4);
}

std::uint32_t Received::ssrc() const
{
    return number(payload, 8, 4);
}

TestClient::TestClient(int port, int receiveBuffer, int family, const char* from)
    : descriptor_(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (receiveBuffer > 0)
    {
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    if (from != nullptr)
    {
        const SocketAddress local = *SocketAddress::parse(from);
        EXPECT_EQ(::bind(descriptor_, local.get(), local.size()), 0) << std::strerror(errno);
    }
    const SocketAddress address = loopback(family, port);
    EXPECT_EQ(::connect(descriptor_, address.get(), address.size()), 0) << std::strerror(errno);
}

TestClient::~TestClient()
{
    close();
}

void TestClient::send(const std::string& bytes)
{
    EXPECT_TRUE(trySend(bytes)) << std::strerror(errno);
}

bool TestClient::trySend(const std::string& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size())
    {
        const ssize_t count = ::send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0)
        {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::size_t TestClient::sendSome(std::string_view bytes, int milliseconds)
{
    std::size_t sent = 0;
    while (sent < bytes.size())
    {
        pollfd poll{descriptor_, POLLOUT, 0};
        if (::poll(&poll, 1, milliseconds) <= 0)
        {
            break;
        }
        const ssize_t count =
            ::send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0)
        {
            break;
        }
        sent += static_cast<std::size_t>(count);
    }
    return sent;
}

std::string TestClient::wait(int milliseconds)
{
    pollfd poll{descriptor_, POLLIN, 0};
    if (end_ || ::poll(&poll, 1, milliseconds) <= 0)
    {
        return "";
    }
    char bytes[65536];
    const ssize_t count = ::recv(descriptor_, bytes, sizeof bytes, 0);
    if (count <= 0)
    {
        end_ = true;
        return "";
    }
    return std::string(bytes, static_cast<std::size_t>(count));
}

bool TestClient::fill(int milliseconds)
{
    const std::string bytes = wait(milliseconds);
    buffer_ += bytes;
    return !bytes.empty();
}

bool TestClient::takeFrame(Received& out)
{
    if (buffer_.size() < 4 || buffer_.size() < 4 + number(buffer_, 2, 2))
    {
        return false;
    }
    const std::size_t size = number(buffer_, 2, 2);
    out.kind = Received::Kind::frame;
    out.channel = static_cast<std::uint8_t>(buffer_[1]);
    out.payload = buffer_.substr(4, size);
    buffer_.erase(0, 4 + size);
    return true;
}

bool TestClient::takeResponse(Received& out)
{
    const std::size_t headEnd = buffer_.find("\r\n\r\n");
    if (headEnd == std::string::npos)
    {
        return false;
    }
    Received response;
    response.kind = Received::Kind::response;
    EXPECT_EQ(buffer_.substr(0, 9), "RTSP/1.0 ");
    response.status = std::atoi(buffer_.c_str() + 9);
    std::size_t line = buffer_.find("\r\n") + 2;
    while (line < headEnd + 2)
    {
        const std::size_t end = buffer_.find("\r\n", line);
        const std::size_t colon = buffer_.find(": ", line);
        EXPECT_LT(colon, end);
        response.headers.emplace(buffer_.substr(line, colon - line),
                                 buffer_.substr(colon + 2, end - colon - 2));
        line = end + 2;
    }
    const std::string length = response.header("Content-Length");
    const std::size_t bodySize = length.empty() ? 0 : std::stoul(length);
    if (buffer_.size() < headEnd + 4 + bodySize)
    {
        return false;
    }
    response.body = buffer_.substr(headEnd + 4, bodySize);
    buffer_.erase(0, headEnd + 4 + bodySize);
    out = std::move(response);
    return true;
}

Received TestClient::receive(int milliseconds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    bool looked = false;
    for (;;)
    {
        Received out;
        if (!buffer_.empty() && (buffer_[0] == '$' ? takeFrame(out) : takeResponse(out)))
        {
            return out;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        // Checks at least once, however late this thread is.
        const bool late = left.count() < 0;
        if ((late && looked) || !fill(late ? 0 : static_cast<int>(left.count())))
        {
            out.kind = end_ ? Received::Kind::end : Received::Kind::nothing;
            return out;
        }
        looked = true;
    }
}

Received TestClient::response()
{
    for (;;)
    {
        Received received = receive();
        if (received.kind != Received::Kind::frame)
        {
            return received;
        }
        kept_.push_back(std::move(received));
    }
}

Received TestClient::frame(int channel, int milliseconds)
{
    for (auto kept = kept_.begin(); kept != kept_.end(); ++kept)
    {
        if (kept->channel == channel)
        {
            Received found = std::move(*kept);
            kept_.erase(kept);
            return found;
        }
    }
    for (;;)
    {
        Received received = receive(milliseconds);
        if (received.kind != Received::Kind::frame || received.channel == channel)
        {
            return received;
        }
        kept_.push_back(std::move(received));
    }
}

std::string TestClient::text(const std::string& method, const std::string& url, int cseq,
                             const std::string& headers, const std::string& body)
{
    std::string request =
        method + " " + url + " RTSP/1.0\r\nCSeq: " + std::to_string(cseq) + "\r\n" + headers;
    if (!body.empty())
    {
        request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    }
    return request + "\r\n" + body;
}

Received TestClient::request(const std::string& method, const std::string& url, const std::string& headers,
                             const std::string& body)
{
    ++cseq_;
    send(text(method, url, cseq_, headers, body));
    Received received = response();
    EXPECT_EQ(received.header("CSeq"), std::to_string(cseq_)) << method << " " << url;
    return received;
}

bool TestClient::ended(int milliseconds)
{
    while (fill(milliseconds))
    {
    }
    return end_;
}

void TestClient::close(bool reset)
{
    if (descriptor_ < 0)
    {
        return;
    }
    if (reset)
    {
        const linger now{1, 0};
        setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }
    ::close(descriptor_);
    descriptor_ = -1;
}

void TestClient::endSending()
{
    ::shutdown(descriptor_, SHUT_WR);
}

int TestClient::localPort() const
{
    return portOf(descriptor_);
}

UdpPort::UdpPort(int family) : pair_(UdpPortPair::bindAny(loopback(family, 0))), family_(family)
{
    EXPECT_TRUE(pair_);
}

int UdpPort::port() const
{
    return pair_->bound.port();
}

std::string UdpPort::receive(int milliseconds)
{
    pollfd poll{pair_->rtp.get(), POLLIN, 0};
    if (::poll(&poll, 1, milliseconds) <= 0)
    {
        return "";
    }
    char bytes[65536];
    const ssize_t count = ::recv(pair_->rtp.get(), bytes, sizeof bytes, 0);
    return count <= 0 ? "" : std::string(bytes, static_cast<std::size_t>(count));
}

void UdpPort::sendTo(int port, const std::string& datagram)
{
    const SocketAddress address = loopback(family_, port);
    EXPECT_EQ(::sendto(pair_->rtp.get(), datagram.data(), datagram.size(), 0, address.get(), address.size()),
              static_cast<ssize_t>(datagram.size()));
}

}  // namespace test
}  // namespace refhost

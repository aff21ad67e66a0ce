#include "bench/watch/HttpClient.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace watchload
{
namespace
{

constexpr std::size_t readSize = std::size_t{256} * 1024;
constexpr int switching = 101;

/// A field's value; names are written as the servers write them.
std::string_view field(std::string_view head, std::string_view name)
{
    const std::size_t at = head.find(name);
    return at == std::string_view::npos ? std::string_view() : head.substr(at + name.size());
}

}  // namespace

HttpClient::HttpClient(const Place& place, rtspload::Poller& poller)
    : place_(place), socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(place.port));
    if (inet_pton(AF_INET, place.host.c_str(), &address.sin_addr) != 1 ||
        (ntohl(address.sin_addr.s_addr) >> 24U) != 127U)
    {
        throw std::runtime_error("only loopback addresses are put under load");
    }
    if (socket_ < 0 || connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
    {
        throw std::runtime_error("the server cannot be reached");
    }
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    poller.add(socket_, *this);
}

HttpClient::~HttpClient()
{
    ::close(socket_);
}

void HttpClient::get(const std::string& target, const std::string& fields)
{
    const std::string text = "GET " + target + " HTTP/1.1\r\nHost: " + place_.host + ":" +
                             std::to_string(place_.port) + "\r\n" + fields + "\r\n";
    if (::send(socket_, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size()))
    {
        onEnd();
    }
}

void HttpClient::onReadable()
{
    static std::array<char, readSize> buffer;
    const ssize_t count = ::recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
    {
        return;
    }
    if (count <= 0)
    {
        onEnd();
        return;
    }
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    if (switched_)
    {
        onBytes(bytes);
        return;
    }
    received_ += bytes;
    readReplies();
}

void HttpClient::readReplies()
{
    const std::size_t end = received_.find("\r\n\r\n");
    if (end == std::string::npos)
    {
        return;
    }
    const std::size_t start = end + 4;
    const std::string_view head = std::string_view(received_).substr(0, end + 2);
    const int status = std::atoi(received_.c_str() + 9);
    if (status == switching)
    {
        switched_ = true;
        const std::string rest = received_.substr(start);
        received_.clear();
        onReply(status, {});
        onBytes(rest);
        return;
    }
    const std::size_t length =
        std::strtoul(std::string(field(head, "Content-Length: ")).c_str(), nullptr, 10);
    if (received_.size() < start + length)
    {
        return;
    }
    const std::string body = received_.substr(start, length);
    received_.erase(0, start + length);
    onReply(status, body);
}

}  // namespace watchload

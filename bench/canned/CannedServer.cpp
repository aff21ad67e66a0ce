#include "bench/canned/CannedServer.h"

#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <system_error>
#include <utility>

namespace rtspcanned
{
namespace
{

constexpr const char* session = "00000000000000000000000000000000";
constexpr int sendBufferBytes = 512 * 1024;
constexpr std::size_t requestBytes = 16'384;

int checked(int result, const char* what)
{
    if (result < 0)
    {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void setOption(int descriptor, int level, int name, int value)
{
    checked(setsockopt(descriptor, level, name, &value, sizeof value), "setsockopt");
}

/// A socket on the loopback address; `port` 0: any.
int boundSocket(int type, int port, bool shared)
{
    const int descriptor = checked(socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    if (type == SOCK_STREAM || shared)
    {
        setOption(descriptor, SOL_SOCKET, type == SOCK_STREAM ? SO_REUSEADDR : SO_REUSEPORT, 1);
    }
    const sockaddr_in address = loopback(port);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

int portOf(int descriptor)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    checked(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
    return ntohs(address.sin_port);
}

/// What follows `name` in a request up to the end of its number or line.
std::string_view after(std::string_view request, std::string_view name, std::string_view ends)
{
    const std::size_t at = request.find(name);
    if (at == std::string_view::npos)
    {
        return {};
    }
    const std::string_view value = request.substr(at + name.size());
    return value.substr(0, value.find_first_of(ends));
}

}  // namespace

CannedServer::CannedServer(int port, CannedMedia media, bool connected)
    : media_(std::move(media)), connected_(connected), keyFrame_(media_.units.front())
{
    listener_ = checked(boundSocket(SOCK_STREAM, port, false), "bind");
    setOption(listener_, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(listener_, SOL_SOCKET, SO_SNDBUF, sendBufferBytes);
    checked(listen(listener_, 4096), "listen");
    port_ = portOf(listener_);
    openUdp();
    epoll_ = checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
    timer_ = checked(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC), "timerfd_create");
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    signals_ = checked(signalfd(-1, &ending, SFD_CLOEXEC), "signalfd");
    for (const int descriptor : {listener_, timer_, signals_})
    {
        watch(descriptor);
    }
    description_ = "\r\nContent-Type: application/sdp\r\nContent-Base: " + url() +
                   "/\r\nContent-Length: " + std::to_string(media_.description.size()) + "\r\n\r\n" +
                   media_.description;
    beginning_.load(keyFrame_);
}

CannedServer::~CannedServer()
{
    for (const int descriptor : {listener_, rtp_, rtcp_, epoll_, timer_, signals_})
    {
        close(descriptor);
    }
}

std::string CannedServer::url() const
{
    return "rtsp://127.0.0.1:" + std::to_string(port_) + "/canned";
}

/// An even port and the one after it.
void CannedServer::openUdp()
{
    for (int attempt = 0; attempt < 200; ++attempt)
    {
        rtp_ = checked(boundSocket(SOCK_DGRAM, 0, connected_), "bind");
        udpPort_ = portOf(rtp_);
        rtcp_ = udpPort_ % 2 == 0 ? boundSocket(SOCK_DGRAM, udpPort_ + 1, false) : -1;
        if (rtcp_ >= 0)
        {
            return;
        }
        close(rtp_);
    }
    throw std::system_error(EADDRINUSE, std::generic_category(), "a pair of UDP ports");
}

void CannedServer::watch(int descriptor)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    checked(epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event), "epoll_ctl");
}

void CannedServer::run()
{
    std::array<epoll_event, 128> events;
    while (!ended_)
    {
        const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i)
        {
            dispatch(events[static_cast<std::size_t>(i)].data.fd);
        }
    }
}

void CannedServer::dispatch(int descriptor)
{
    if (descriptor == timer_)
    {
        sendNext();
    }
    else if (descriptor == listener_)
    {
        accept();
    }
    else if (descriptor == signals_)
    {
        ended_ = true;
    }
    else
    {
        receive(descriptor);
    }
}

void CannedServer::accept()
{
    for (int descriptor = 0;
         (descriptor = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0;)
    {
        if (clients_.size() <= static_cast<std::size_t>(descriptor))
        {
            clients_.resize(static_cast<std::size_t>(descriptor) + 1);
        }
        clients_[static_cast<std::size_t>(descriptor)] = {};
        watch(descriptor);
    }
}

void CannedServer::receive(int descriptor)
{
    std::array<char, requestBytes> buffer;
    const ssize_t size = recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
    std::string_view requests(buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    bool good = size > 0 || (size < 0 && errno == EAGAIN);
    while (good && !requests.empty())
    {
        constexpr std::string_view blank = "\r\n\r\n";
        const std::size_t end = requests.find(blank);
        good = end != std::string_view::npos && answer(descriptor, requests.substr(0, end));
        requests.remove_prefix(good ? end + blank.size() : 0);
    }
    if (!good)
    {
        this->end(descriptor);
    }
}

/// \returns false when the connection is of no use any more
bool CannedServer::answer(int descriptor, std::string_view request)
{
    std::string text = "RTSP/1.0 200 OK\r\nCSeq: ";
    text.append(after(request, "CSeq: ", "\r\n"));
    const std::string ofSession = std::string("\r\nSession: ") + session + ";timeout=60\r\n";
    switch (request.substr(0, 2) == "PL" ? 'L' : request.front())
    {
        case 'O':  // OPTIONS
            text += "\r\nPublic: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN\r\n\r\n";
            break;
        case 'D':  // DESCRIBE
            text += description_;
            break;
        case 'S':  // SETUP
            setUp(descriptor, request);
            text += "\r\nTransport: RTP/AVP" + transportOf(descriptor) + ofSession + "\r\n";
            break;
        case 'L':  // PLAY
            return play(descriptor, text + ofSession);
        default:  // TEARDOWN
            stopPlaying(descriptor);
            text += ofSession + "\r\n";
            break;
    }
    return ::send(descriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
}

void CannedServer::setUp(int descriptor, std::string_view request)
{
    Client& client = clients_[static_cast<std::size_t>(descriptor)];
    const std::string_view port = after(request, "client_port=", "-;\r\n");
    client.transport = port.empty() ? Transport::tcp : Transport::udp;
    if (port.empty())
    {
        return;
    }
    int number = 0;
    std::from_chars(port.data(), port.data() + port.size(), number);
    client.rtp = loopback(number);
    if (connected_)
    {
        client.socket = checked(boundSocket(SOCK_DGRAM, udpPort_, true), "bind");
        checked(connect(client.socket, reinterpret_cast<const sockaddr*>(&client.rtp), sizeof client.rtp),
                "connect");
    }
}

std::string CannedServer::transportOf(int descriptor) const
{
    const Client& client = clients_[static_cast<std::size_t>(descriptor)];
    std::array<char, 160> text;
    const int rtp = ntohs(client.rtp.sin_port);
    if (client.transport == Transport::udp)
    {
        std::snprintf(text.data(), text.size(), ";unicast;client_port=%d-%d;server_port=%d-%d;ssrc=%08X", rtp,
                      rtp + 1, udpPort_, udpPort_ + 1, media_.ssrc);
    }
    else
    {
        std::snprintf(text.data(), text.size(), "/TCP;unicast;interleaved=0-1;ssrc=%08X", media_.ssrc);
    }
    return text.data();
}

/// The key frame follows at once, with the numbers before the next unit's.
bool CannedServer::play(int descriptor, std::string text)
{
    const auto count = static_cast<std::uint16_t>(keyFrame_.packets.size());
    const auto first = static_cast<std::uint16_t>(sequence_ - count);
    text += "RTP-Info: url=" + url() + "/" + media_.track + ";seq=" + std::to_string(first) + "\r\n\r\n";
    keyFrame_.stamp(first, timestamp_);
    viewers_.push_back(descriptor);
    clients_[static_cast<std::size_t>(descriptor)].viewer = viewers_.size();
    if (viewers_.size() == 1)
    {
        schedule(true);
    }
    return send(beginning_, descriptor, text);
}

void CannedServer::stopPlaying(int descriptor)
{
    Client& client = clients_[static_cast<std::size_t>(descriptor)];
    if (client.viewer == 0)
    {
        return;
    }
    const int last = viewers_.back();
    viewers_[client.viewer - 1] = last;
    clients_[static_cast<std::size_t>(last)].viewer = client.viewer;
    client.viewer = 0;
    viewers_.pop_back();
    if (viewers_.empty())
    {
        schedule(false);
    }
}

void CannedServer::end(int descriptor)
{
    stopPlaying(descriptor);
    Client& client = clients_[static_cast<std::size_t>(descriptor)];
    if (client.socket >= 0)
    {
        close(client.socket);
    }
    close(descriptor);
}

/// \param before  goes ahead of the packets on the connection
/// \returns false when the connection is of no use any more
bool CannedServer::send(MediaSender& sender, int descriptor, std::string_view before)
{
    const Client& client = clients_[static_cast<std::size_t>(descriptor)];
    if (client.transport == Transport::tcp)
    {
        return sender.sendFramed(descriptor, before);
    }
    if (!before.empty())
    {
        (void)::send(descriptor, before.data(), before.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    connected_ ? sender.sendDatagrams(client.socket, nullptr) : sender.sendDatagrams(rtp_, &client.rtp);
    return true;
}

void CannedServer::sendNext()
{
    std::uint64_t expirations = 0;
    (void)read(timer_, &expirations, sizeof expirations);
    CannedUnit& unit = media_.units[next_];
    const auto ticks = [this](std::chrono::nanoseconds time)
    { return static_cast<std::uint32_t>(time.count() / 1000 * media_.clockRate / 1'000'000); };
    unit.stamp(sequence_, timestamp_ + ticks(unit.time));
    sequence_ = static_cast<std::uint16_t>(sequence_ + unit.packets.size());
    sender_.load(unit);
    std::vector<int> lost;
    for (const int descriptor : viewers_)
    {
        if (!send(sender_, descriptor, {}))
        {
            lost.push_back(descriptor);
        }
    }
    for (const int descriptor : lost)
    {
        shutdown(descriptor, SHUT_RDWR);
        stopPlaying(descriptor);
    }
    if (++next_ == media_.units.size())
    {
        next_ = 0;
        loopStart_ += media_.length;
        timestamp_ += ticks(media_.length);
    }
    if (!viewers_.empty())
    {
        schedule(true);
    }
}

/// Sets the timer to the next unit; where none was sent for long, the stream goes on from now.
void CannedServer::schedule(bool on)
{
    itimerspec spec{};
    if (on)
    {
        const Clock::time_point now = Clock::now();
        Clock::time_point due = loopStart_ + media_.units[next_].time;
        if (now - due > std::chrono::seconds(1))
        {
            loopStart_ += now - due;
            due = now;
        }
        const std::chrono::nanoseconds time = due.time_since_epoch();
        spec.it_value.tv_sec = time.count() / 1'000'000'000;
        spec.it_value.tv_nsec = time.count() % 1'000'000'000;
    }
    checked(timerfd_settime(timer_, TFD_TIMER_ABSTIME, &spec, nullptr), "timerfd_settime");
}

}  // namespace rtspcanned

#include "bench/load/ClientSession.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

namespace rtspload
{
namespace
{

constexpr int receiveBufferBytes = 4 << 20;
constexpr std::size_t readBytes = std::size_t{256} * 1024;

/// The value of `name=` in a list whose fields are separated by `separator`.
std::optional<std::string_view> field(std::string_view list, std::string_view name, char separator)
{
    while (!list.empty())
    {
        const std::size_t end = list.find(separator);
        const std::string_view item = list.substr(0, end);
        list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
        if (item.size() > name.size() && item[name.size()] == '=' && item.compare(0, name.size(), name) == 0)
        {
            return item.substr(name.size() + 1);
        }
    }
    return std::nullopt;
}

template <class Number>
std::optional<Number> number(std::optional<std::string_view> text, int base)
{
    Number value = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), value, base).ec != std::errc())
    {
        return std::nullopt;
    }
    return value;
}

}  // namespace

ClientSession::ClientSession(Poller& poller, const RtspUrl& url, Transport transport, bool allTracks,
                             bool wideBuffers, bool tls, Srtp srtp, SessionListener& listener)
    : poller_(poller),
      url_(url),
      transport_(transport),
      allTracks_(allTracks),
      wideBuffers_(wideBuffers),
      tls_(tls),
      srtp_(srtp),
      listener_(listener)
{
}

ClientSession::~ClientSession()
{
    closeConnection();
}

void ClientSession::start()
{
    reader_.reset();
    sessionId_.clear();
    cseq_ = 0;
    track_ = 0;
    packets_ = 0;
    for (const auto& pair : pairs_)
    {
        pair->drain();
    }
    descriptor_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor_ < 0)
    {
        fail("socket: " + std::string(std::strerror(errno)));
        return;
    }
    if (wideBuffers_ && transport_ == Transport::tcp)
    {
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    }
    const int yes = 1;
    setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    // Blocking: on loopback it connects at once, and a full backlog counts as time.
    if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&url_.address), sizeof url_.address) != 0)
    {
        fail("connect: " + std::string(std::strerror(errno)));
        return;
    }
    if (tls_ && !encryption_.open(descriptor_))
    {
        fail("TLS handshake failed");
        return;
    }
    poller_.add(descriptor_, *this);
    state_ = State::options;
    request("OPTIONS", url_.text, "");
}

void ClientSession::teardown()
{
    state_ = State::teardown;
    request("TEARDOWN", description_.url, "");
}

void ClientSession::keepAlive()
{
    request("OPTIONS", description_.url, "");
}

void ClientSession::request(const char* method, const std::string& url, const std::string& headers)
{
    std::string text;
    text.reserve(512);
    text.append(method).append(" ").append(url).append(" RTSP/1.0\r\nCSeq: ").append(std::to_string(++cseq_));
    text.append("\r\nUser-Agent: rtsp_load\r\n").append(headers);
    if (!sessionId_.empty())
    {
        text.append("Session: ").append(sessionId_).append("\r\n");
    }
    text.append("\r\n");
    if (!sendAll(text))
    {
        fail(std::string(method) + " could not be sent");
    }
}

bool ClientSession::sendAll(const std::string& text)
{
    if (tls_)
    {
        return encryption_.send(text);
    }
    return send(descriptor_, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(text.size());
}

/// As recv().
ssize_t ClientSession::receive(char* bytes, std::size_t size)
{
    return tls_ ? encryption_.receive(bytes, size) : recv(descriptor_, bytes, size, MSG_DONTWAIT);
}

void ClientSession::onReadable()
{
    static std::array<char, readBytes> buffer;
    if (descriptor_ < 0)
    {
        return;
    }
    const ssize_t size = receive(buffer.data(), buffer.size());
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
    {
        return;
    }
    if (size <= 0)
    {
        fail(size == 0 ? "the server closed the connection" : std::strerror(errno));
        return;
    }
    if (!reader_.feed(buffer.data(), static_cast<std::size_t>(size), *this))
    {
        fail("the server's answer is no RTSP");
    }
    // Only here, as the listener may start the session again and the reader is not to be reset under its own
    // feet.
    if (ended_)
    {
        ended_ = false;
        closeConnection();
        listener_.onEnded(*this);
    }
}

void ClientSession::onReply(const RtspReply& reply)
{
    if (state_ == State::idle)
    {
        return;
    }
    if (reply.status != 200)
    {
        fail("the server answered " + std::string(reply.head.substr(9, reply.head.find('\r') - 9)));
        return;
    }
    switch (state_)
    {
        case State::options:
            state_ = State::describe;
            request("DESCRIBE", url_.text, "Accept: application/sdp\r\n");
            break;
        case State::describe:
            takeDescription(reply);
            break;
        case State::setup:
            takeSetup(reply);
            break;
        case State::play:
            takePlay(reply);
            break;
        case State::teardown:
            ended_ = true;
            break;
        case State::playing:
        case State::idle:
            break;
    }
}

void ClientSession::takeDescription(const RtspReply& reply)
{
    const std::string_view base = reply.header("Content-Base");
    description_ = SessionDescription::parse(reply.body, base.empty() ? std::string_view(url_.text) : base);
    if (!allTracks_)
    {
        std::vector<DescribedTrack> kept;
        for (DescribedTrack& track : description_.tracks)
        {
            if (track.media == "video" && kept.empty())
            {
                kept.push_back(std::move(track));
            }
        }
        description_.tracks = std::move(kept);
    }
    if (description_.tracks.empty())
    {
        fail("the description holds no track to set up");
        return;
    }
    watches_.resize(description_.tracks.size());
    for (std::size_t i = 0; i < watches_.size(); ++i)
    {
        // What is not opened has no frames to see.
        watches_[i].start(srtp_ == Srtp::headers ? std::string() : description_.tracks[i].encoding,
                          transport_ == Transport::tcp);
    }
    if (srtp_ != Srtp::none && !startDecryption())
    {
        fail("the description holds no key for a track");
        return;
    }
    while (transport_ == Transport::udp && pairs_.size() < watches_.size())
    {
        UdpPairSink& sink = *this;
        pairs_.push_back(std::make_unique<UdpPair>(poller_, pairs_.size(), sink));
    }
    state_ = State::setup;
    requestSetup();
}

void ClientSession::requestSetup()
{
    std::string transport = srtp_ == Srtp::none ? "Transport: RTP/AVP" : "Transport: RTP/SAVP";
    const int first = transport_ == Transport::udp ? pairs_[track_]->port() : static_cast<int>(2 * track_);
    transport += transport_ == Transport::udp ? ";unicast;client_port=" : "/TCP;unicast;interleaved=";
    transport += std::to_string(first) + "-" + std::to_string(first + 1) + "\r\n";
    request("SETUP", description_.tracks[track_].url, transport);
}

void ClientSession::takeSetup(const RtspReply& reply)
{
    const std::string_view session = reply.header("Session");
    sessionId_ = std::string(session.substr(0, session.find(';')));
    if (const auto ssrc = number<std::uint32_t>(field(reply.header("Transport"), "ssrc", ';'), 16))
    {
        watches_[track_].expectSsrc(*ssrc);
    }
    if (++track_ < watches_.size())
    {
        requestSetup();
        return;
    }
    state_ = State::play;
    playSentNs_ = nowNs();
    request("PLAY", description_.url, "Range: npt=0.000-\r\n");
}

void ClientSession::takePlay(const RtspReply& reply)
{
    std::string_view info = reply.header("RTP-Info");
    while (!info.empty())
    {
        const std::size_t end = info.find(',');
        std::string_view item = info.substr(0, end);
        info.remove_prefix(end == std::string_view::npos ? info.size() : end + 1);
        while (!item.empty() && item.front() == ' ')
        {
            item.remove_prefix(1);
        }
        const auto url = field(item, "url", ';');
        const auto sequence = number<std::uint16_t>(field(item, "seq", ';'), 10);
        for (std::size_t i = 0; url && sequence && i < watches_.size(); ++i)
        {
            if (description_.tracks[i].url == *url)
            {
                watches_[i].expectFirst(*sequence, number<std::uint32_t>(field(item, "rtptime", ';'), 10));
            }
        }
    }
    state_ = State::playing;
    listener_.onPlaying(*this);
}

void ClientSession::onInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size)
{
    takeMedia(channel / 2, channel % 2 != 0, data, size);
}

void ClientSession::onUdp(std::size_t track, bool rtcp, const std::uint8_t* data, std::size_t size)
{
    takeMedia(track, rtcp, data, size);
}

/// \returns false when a track has no key
bool ClientSession::startDecryption()
{
    decryption_.clear();
    for (const DescribedTrack& track : description_.tracks)
    {
        decryption_.push_back(std::make_unique<SrtpReader>());
        if (track.keyManagement.empty() ||
            (srtp_ == Srtp::opened && !decryption_.back()->start(track.keyManagement)))
        {
            return false;
        }
    }
    return true;
}

void ClientSession::takeMedia(std::size_t track, bool rtcp, const std::uint8_t* data, std::size_t size)
{
    if (track >= watches_.size() || (state_ != State::play && state_ != State::playing))
    {
        return;
    }
    std::vector<std::uint8_t> opened;
    if (srtp_ == Srtp::opened)
    {
        opened.assign(data, data + size);
        // A packet that is not authentic is judged as one that is no RTP.
        size = (rtcp ? decryption_[track]->openRtcp(opened.data(), size)
                     : decryption_[track]->open(opened.data(), size))
                   ? size
                   : 0;
        data = opened.data();
    }
    if (rtcp)
    {
        // The first report of an encrypted compound is readable to its header alone.
        if (srtp_ != Srtp::headers)
        {
            watches_[track].onRtcp(data, size);
        }
        return;
    }
    const FrameStart frame = watches_[track].onRtp(data, size);
    ++packets_;
    silence_.onPacket(nowNs());
    listener_.onPacket(*this, frame);
}

void ClientSession::fail(const std::string& why)
{
    static constexpr std::array<const char*, 7> names = {"connecting", "OPTIONS", "DESCRIBE", "SETUP",
                                                         "PLAY",       "playing", "TEARDOWN"};
    const std::string where = names[static_cast<std::size_t>(state_)];
    closeConnection();
    listener_.onFailed(*this, where + ": " + why);
}

void ClientSession::closeConnection()
{
    state_ = State::idle;
    encryption_.close();
    if (descriptor_ >= 0)
    {
        close(descriptor_);
        descriptor_ = -1;
    }
}

}  // namespace rtspload

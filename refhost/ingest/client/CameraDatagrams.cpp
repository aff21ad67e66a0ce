#include "refhost/ingest/client/CameraDatagrams.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/SocketOptions.h"
#include "refhost/rtp/RtpReader.h"
#include "refhost/rtp/udp/DatagramReader.h"

namespace refhost
{
namespace
{

/// Room for a large key frame that is sent at once.
constexpr int receiveBufferBytes = 1 << 20;

using Reader = BoundedDatagramReader<CameraDatagrams::maxDatagram, 4>;

/// Only their sequence is of interest.
constexpr std::uint32_t anyClockRate = 90000;

}  // namespace

std::unique_ptr<CameraDatagrams> CameraDatagrams::open(EventLoop& loop, const SocketAddress& local,
                                                       const SocketAddress& camera, std::size_t track,
                                                       Events& events, const std::weak_ptr<void>& owner,
                                                       std::string& error)
{
    std::optional<UdpPortPair> ports =
        local.family() == AF_UNSPEC ? std::nullopt : UdpPortPair::bindAny(local);
    if (!ports)
    {
        error = fmt::format("cannot open UDP ports: {}", local.family() == AF_UNSPEC
                                                             ? "the local address is not known"
                                                             : std::strerror(errno));
        return nullptr;
    }
    setSocketBuffer(ports->rtp.get(), SO_RCVBUF, SO_RCVBUFFORCE, receiveBufferBytes);
    std::unique_ptr<CameraDatagrams> made(
        new CameraDatagrams(loop, std::move(*ports), camera, track, events));
    try
    {
        made->watch(owner);
    }
    catch (const std::system_error& failure)
    {
        error = fmt::format("cannot watch UDP ports: {}", failure.what());
        return nullptr;
    }
    return made;
}

CameraDatagrams::CameraDatagrams(EventLoop& loop, UdpPortPair ports, const SocketAddress& camera,
                                 std::size_t track, Events& events)
    : loop_(loop),
      ports_(std::move(ports)),
      camera_(camera),
      track_(track),
      events_(events),
      since_(HostClock::system().now()),
      counted_(RtpClock(anyClockRate))
{
}

CameraDatagrams::~CameraDatagrams()
{
    close();
}

void CameraDatagrams::watch(const std::weak_ptr<void>& owner)
{
    owner_ = owner;
    for (const bool reports : {false, true})
    {
        loop_.add(reports ? ports_.rtcp.get() : ports_.rtp.get(), EventLoop::readable,
                  [this, owner, reports](std::uint32_t)
                  {
                      if (const auto held = owner.lock())
                      {
                          receive(reports);
                      }
                  });
    }
}

void CameraDatagrams::close()
{
    if (std::exchange(open_, false))
    {
        loop_.remove(ports_.rtp.get());
        loop_.remove(ports_.rtcp.get());
        loop_.cancel(timer_);
    }
}

int CameraDatagrams::port() const
{
    return ports_.bound.port();
}

void CameraDatagrams::setSource(const TransportReply& reply)
{
    rtp_ = {reply.serverPort.value_or(0), false};
    rtcp_ = {reply.serverReportPort.value_or(rtp_.port == 0 ? 0 : rtp_.port + 1), false};
    source_ = reply.source;
}

void CameraDatagrams::punch()
{
    since_ = HostClock::system().now();
    constexpr std::array<std::uint8_t, 12> packet{0x80};
    constexpr std::array<std::uint8_t, 8> report{0x80, 201, 0, 1};  // a receiver report without blocks
    sendTo(ports_.rtp.get(), rtp_.port, packet.data(), packet.size());
    sendTo(ports_.rtcp.get(), rtcp_.port, report.data(), report.size());
}

bool CameraDatagrams::sendReport(const std::uint8_t* data, std::size_t size)
{
    return sendTo(ports_.rtcp.get(), rtcp_.port, data, size);
}

/// Sends to the host of the RTSP connection alone, whatever a camera names as its source.
bool CameraDatagrams::sendTo(int socket, int port, const std::uint8_t* data, std::size_t size) const
{
    if (!open_ || port < 1 || port > UINT16_MAX)
    {
        return false;
    }
    SocketAddress address = camera_.forFamily(ports_.bound.family());
    address.setPort(port);
    return ::sendto(socket, data, size, MSG_DONTWAIT | MSG_NOSIGNAL, address.get(), address.size()) ==
           static_cast<ssize_t>(size);
}

void CameraDatagrams::receive(bool reports)
{
    const MonotonicTime now = HostClock::system().now();
    Reader::read(reports ? ports_.rtcp.get() : ports_.rtp.get(),
                 [&](const SocketAddress& sender, const std::uint8_t* data, std::size_t size)
                 {
                     const bool usable = reports ? size > 0 : RtpReader::hasHeader(data, size);
                     if (!open_ || !usable || !isFromCamera(sender, reports ? rtcp_ : rtp_, now))
                     {
                         return;
                     }
                     if (reports)
                     {
                         events_.onMedia(track_, true, data, size, now);
                         return;
                     }
                     takePacket(data, size, now);
                 });
}

bool CameraDatagrams::isFromCamera(const SocketAddress& address, Sender& sender, MonotonicTime now) const
{
    const SocketAddress::Key key = address.key();
    if (key != camera_.key() && (!source_ || key != source_->key()))
    {
        return false;
    }
    if (address.port() != sender.port)
    {
        if (sender.received || (sender.port != 0 && now - since_ < portPatience))
        {
            return false;
        }
        sender.port = address.port();
    }
    sender.received = true;
    return true;
}

void CameraDatagrams::takePacket(const std::uint8_t* data, std::size_t size, MonotonicTime arrival)
{
    if (!isOfSource(readBig32(data + 8), arrival))
    {
        return;
    }
    const ReceptionStatistics::Arrival counted =
        counted_.count(readBig16(data + 2), readBig32(data + 4), arrival);
    if (counted.verdict == ReceptionStatistics::Verdict::outOfSequence)
    {
        return;
    }
    lastArrival_ = arrival;
    if (counted.verdict == ReceptionStatistics::Verdict::started)
    {
        releaseAll();
    }
    if (open_ && window_.passes(counted.sequence))
    {
        events_.onMedia(track_, false, data, size, arrival);
        return;
    }
    ReorderWindow::Packet packet;
    packet.sequence = counted.sequence;
    packet.arrival = arrival;
    packet.payload.assign(data, data + size);
    window_.add(std::move(packet));
    release(arrival);
}

bool CameraDatagrams::isOfSource(std::uint32_t ssrc, MonotonicTime arrival)
{
    if (ssrc_ && ssrc != *ssrc_ && arrival - lastArrival_ < sourcePatience)
    {
        return false;
    }
    if (ssrc_ != ssrc)
    {
        counted_ = ReceptionStatistics(RtpClock(anyClockRate));
        ssrc_ = ssrc;
    }
    return true;
}

/// Hands on what is in order, or has waited for long enough.
void CameraDatagrams::release(MonotonicTime now)
{
    ReorderWindow::Packet packet;
    std::uint32_t lost = 0;
    while (open_)
    {
        const ReorderWindow::Next next = window_.take(now, packet, lost);
        if (next == ReorderWindow::Next::packet)
        {
            events_.onMedia(track_, false, packet.payload.data(), packet.payload.size(), packet.arrival);
            continue;
        }
        if (next == ReorderWindow::Next::waiting && !std::exchange(armed_, true))
        {
            timer_ = loop_.after(window_.waitsUntil() - now,
                                 [this, owner = owner_]
                                 {
                                     if (const auto held = owner.lock())
                                     {
                                         armed_ = false;
                                         release(HostClock::system().now());
                                     }
                                 });
        }
        return;
    }
}

/// The end of a source's packets: none is waited for any more.
void CameraDatagrams::releaseAll()
{
    release(MonotonicTime::max());
    window_.reset();
}

}  // namespace refhost

#include "refhost/rtp/multicast/MulticastChannel.h"

#include <netinet/in.h>

#include <cerrno>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/base/SocketOptions.h"
#include "refhost/rtp/udp/DatagramReader.h"

namespace refhost
{
namespace
{

/// Room for several key frames of the track.
constexpr int sendBufferBytes = 8 << 20;
constexpr int receiveBufferBytes = 4096;

SocketAddress addressOf(const MulticastGroup& group, int port)
{
    return SocketAddress::parse(group.addressText(), port).value_or(SocketAddress());
}

/// \returns false with errno set
bool join(const Descriptor& socket, const MulticastGroup& group, const MulticastInterface& interface)
{
    ip_mreqn request{};
    request.imr_multiaddr.s_addr = htonl(group.address);
    request.imr_ifindex = interface.index();
    return setsockopt(socket.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
}

Descriptor openSocket(const MulticastSocketSettings& settings)
{
    Descriptor opened(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!opened || !settings.applyTo(opened))
    {
        return Descriptor();
    }
    const int yes = 1;
    (void)setsockopt(opened.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    return opened;
}

/// The source address of an unbound socket that sends to `group`, with the port of the group.
/// \returns false when the system has no route
bool findSource(const SocketAddress& group, const MulticastSocketSettings& settings, SocketAddress& out)
{
    const Descriptor probe = openSocket(settings);
    socklen_t size = SocketAddress::room;
    if (!probe || ::connect(probe.get(), group.get(), group.size()) != 0 ||
        ::getsockname(probe.get(), out.fill(), &size) != 0)
    {
        return false;
    }
    out.setPort(group.port());
    return true;
}

/// Opens the sending socket for RTP, bound to the destination's port number unless another program holds it.
/// \returns none with errno set when the system has no socket
Descriptor openRtp(const SocketAddress& group, const SocketAddress& source,
                   const MulticastSocketSettings& settings)
{
    Descriptor rtp = openSocket(settings);
    if (!rtp)
    {
        return rtp;
    }
    setSocketBuffer(rtp.get(), SO_SNDBUF, SO_SNDBUFFORCE, sendBufferBytes);
    setSocketBuffer(rtp.get(), SO_RCVBUF, SO_RCVBUFFORCE, receiveBufferBytes);
    // At its own address, not the group's, which members on this machine may hold exclusively.
    if (::bind(rtp.get(), source.get(), source.size()) != 0)
    {
        Log::warning("multicast: port {} is another program's alone: RTP to {} leaves from another port",
                     source.port(), group.textWithPort());
    }
    // Keeps off packets for others that share the port.
    (void)::connect(rtp.get(), group.get(), group.size());
    return rtp;
}

}  // namespace

bool MulticastSocketSettings::applyTo(const Descriptor& socket) const
{
    ip_mreqn by{};
    by.imr_ifindex = interface.index();
    const int loop = 1;
    return setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl) == 0 &&
           setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop) == 0 &&
           (by.imr_ifindex == 0 ||
            setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_IF, &by, sizeof by) == 0);
}

std::shared_ptr<MulticastChannel> MulticastChannel::open(MulticastPool::Lease lease, int track,
                                                         const MulticastSocketSettings& settings)
{
    Descriptor rtcp = openSocket(settings);
    // Before the port is bound: without a route to the group nothing else matters. Members on this machine
    // bind the same port of the same group; each of them receives.
    if (!rtcp || !join(rtcp, *lease, settings.interface))
    {
        return nullptr;
    }
    // The group's address, not the wildcard: no other group's and no unicast packets.
    const SocketAddress address = addressOf(*lease, lease->portOf(track) + 1);
    if (::bind(rtcp.get(), address.get(), address.size()) != 0)
    {
        Log::warning("multicast: port {} of {} is another program's alone: reports of members are not read",
                     address.port(), lease->addressText());
        rtcp = Descriptor();
    }
    const SocketAddress group = addressOf(*lease, lease->portOf(track));
    SocketAddress source;
    if (!findSource(group, settings, source))
    {
        return nullptr;
    }
    Descriptor rtp = openRtp(group, source, settings);
    if (!rtp)
    {
        return nullptr;
    }
    return std::make_shared<MulticastChannel>(std::move(lease), track, std::move(rtp), std::move(rtcp),
                                              source.text(), settings.segmentationOffload);
}

MulticastChannel::MulticastChannel(MulticastPool::Lease lease, int track, Descriptor rtp, Descriptor rtcp,
                                   std::string source, bool segmentationOffload)
    : lease_(std::move(lease)),
      rtp_(std::move(rtp)),
      rtcp_(std::move(rtcp)),
      source_(std::move(source)),
      sender_(rtp_.get(), segmentationOffload),
      rtpAddress_(addressOf(*lease_, lease_->portOf(track))),
      rtcpAddress_(addressOf(*lease_, lease_->portOf(track) + 1)),
      // No liveness: a packet from a group shows that somebody listens, not who.
      receiveQueue_(std::make_shared<TransportReceiveQueue>(nullptr))
{
}

SendResult MulticastChannel::send(const AccessUnitPtr& unit, std::size_t firstPacket,
                                  const RtpHeaderFields& header)
{
    return sender_.send(rtpAddress_, unit, firstPacket, header);
}

void MulticastChannel::sendRtcp(const std::uint8_t* data, std::size_t size)
{
    const int socket = rtcp_ ? rtcp_.get() : rtp_.get();
    (void)::sendto(socket, data, size, MSG_DONTWAIT | MSG_NOSIGNAL, rtcpAddress_.get(), rtcpAddress_.size());
}

void MulticastChannel::onReadable()
{
    DatagramReader::read(rtcp_.get(), [this](const SocketAddress&, const std::uint8_t* data, std::size_t size)
                         { receiveQueue_->onRtcp(data, size); });
}

}  // namespace refhost

#include "refhost/rtp/MulticastChannel.h"

#include <netinet/in.h>

#include <cerrno>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/rtp/DatagramReader.h"

namespace refhost
{
namespace
{

UdpAddress addressOf(const MulticastGroup& group, int port)
{
    UdpAddress address;
    UdpAddress::parse(group.addressText(), address);
    address.setPort(port);
    return address;
}

/// \returns false with errno set
bool join(const SocketHandle& socket, const MulticastGroup& group, const MulticastInterface& interface)
{
    ip_mreqn request{};
    request.imr_multiaddr.s_addr = htonl(group.address);
    request.imr_ifindex = interface.index();
    return setsockopt(socket.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
}

}  // namespace

bool MulticastSocketSettings::applyTo(const SocketHandle& socket) const
{
    ip_mreqn by{};
    by.imr_ifindex = interface.index();
    const int loop = 1;
    return setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl) == 0 &&
           setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop) == 0 &&
           (by.imr_ifindex == 0 ||
            setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_IF, &by, sizeof by) == 0);
}

MulticastOutput::MulticastOutput(SocketHandle socket, bool segmentation)
    : socket_(std::move(socket)), sender_(socket_.get(), segmentation)
{
}

std::shared_ptr<MulticastChannel> MulticastChannel::open(MulticastPool::Lease lease, int track,
                                                         const MulticastSocketSettings& settings,
                                                         std::shared_ptr<MulticastOutput> output)
{
    SocketHandle rtcp(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // Before the port is bound: without a way to the group nothing else matters.
    if (!rtcp || !settings.applyTo(rtcp) || !join(rtcp, *lease, settings.interface))
    {
        return nullptr;
    }
    // Members on this machine bind the same port of the same group; multicast comes to each of them.
    const int yes = 1;
    (void)setsockopt(rtcp.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    // The group's address and not the wildcard, so that no other group's and no unicast packets come here.
    const UdpAddress address = addressOf(*lease, lease->portOf(track) + 1);
    if (::bind(rtcp.get(), address.get(), address.size()) != 0)
    {
        Log::warning("multicast: port {} of {} is another program's alone: reports of members are not read",
                     address.port(), lease->addressText());
        rtcp = SocketHandle(-1);
    }
    return std::make_shared<MulticastChannel>(std::move(lease), track, std::move(rtcp), std::move(output));
}

MulticastChannel::MulticastChannel(MulticastPool::Lease lease, int track, SocketHandle rtcp,
                                   std::shared_ptr<MulticastOutput> output)
    : lease_(std::move(lease)),
      rtcp_(std::move(rtcp)),
      output_(std::move(output)),
      rtpAddress_(addressOf(*lease_, lease_->portOf(track))),
      rtcpAddress_(addressOf(*lease_, lease_->portOf(track) + 1)),
      // What comes from a group counts for nobody: it says that somebody listens, not who.
      inbox_(std::make_shared<TransportInbox>(nullptr))
{
}

SendResult MulticastChannel::send(const AccessUnitPtr& unit, std::size_t firstPacket,
                                  const RtpHeaderFields& header)
{
    return output_->sender().send(rtpAddress_, unit, firstPacket, header);
}

void MulticastChannel::sendRtcp(const std::uint8_t* data, std::size_t size)
{
    const int socket = rtcp_ ? rtcp_.get() : output_->descriptor();
    (void)::sendto(socket, data, size, MSG_DONTWAIT | MSG_NOSIGNAL, rtcpAddress_.get(), rtcpAddress_.size());
}

void MulticastChannel::onReadable()
{
    DatagramReader::read(rtcp_.get(), [this](const UdpAddress&, const std::uint8_t* data, std::size_t size)
                         { inbox_->onRtcp(data, size); });
}

}  // namespace refhost

#include "refhost/rtp/udp/UdpServer.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/base/SocketOptions.h"
#include "refhost/rtp/udp/UdpSockets.h"
#include "refhost/rtp/udp/UdpTransport.h"

namespace refhost
{
namespace
{

constexpr int attempts = 64;
/// Room to send the key frames of many viewers at once, and to receive the reports of thousands.
constexpr int sendBufferBytes = 8 << 20;
constexpr int receiveBufferBytes = 1 << 20;

Descriptor bindSocket(const SocketAddress& address)
{
    Descriptor opened(::socket(address.family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!opened)
    {
        return opened;
    }
    if (address.family() == AF_INET6)
    {
        // The wildcard serves IPv4 clients too, as the RTSP socket does.
        const int no = 0;
        (void)setsockopt(opened.get(), IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof(no));
    }
    if (::bind(opened.get(), address.get(), address.size()) != 0)
    {
        return Descriptor();
    }
    return opened;
}

int boundPort(int descriptor)
{
    return SocketAddress::localOf(descriptor).port();
}

/// Binds `address` with its even port and the port behind it. \returns false with errno set
bool bindPair(SocketAddress address, Descriptor& rtp, Descriptor& rtcp)
{
    rtp = bindSocket(address);
    if (!rtp)
    {
        return false;
    }
    address.setPort(address.port() + 1);
    rtcp = bindSocket(address);
    return static_cast<bool>(rtcp);
}

/// Finds an even port that is free together with the next one. \returns false with errno set
bool bindAnyPair(SocketAddress& address, Descriptor& rtp, Descriptor& rtcp)
{
    for (int i = 0; i < attempts; ++i)
    {
        address.setPort(0);
        int port = 0;
        {
            const Descriptor probe = bindSocket(address);
            if (!probe)
            {
                return false;
            }
            port = boundPort(probe.get()) & ~1;
        }
        address.setPort(port);
        if (port != 0 && bindPair(address, rtp, rtcp))
        {
            return true;
        }
    }
    return false;
}

}  // namespace

UdpServer::UdpServer() = default;
UdpServer::~UdpServer() = default;

std::shared_ptr<UdpServer> UdpServer::open(const Options& options, std::string& error)
{
    const auto parsed = SocketAddress::parse(options.address);
    if (!parsed)
    {
        error = "\"" + options.address + "\" is not a numeric address";
        return nullptr;
    }
    if (options.rtpPort < 0 || options.rtpPort > 65534 || options.rtpPort % 2 != 0)
    {
        error = "UDP port " + std::to_string(options.rtpPort) + " for RTP is not an even port number";
        return nullptr;
    }
    Descriptor rtp;
    Descriptor rtcp;
    SocketAddress address = *parsed;
    address.setPort(options.rtpPort);
    if (options.rtpPort == 0 ? !bindAnyPair(address, rtp, rtcp) : !bindPair(address, rtp, rtcp))
    {
        error = "cannot bind UDP ports for RTP and RTCP at " + options.address + ": " + std::strerror(errno);
        return nullptr;
    }
    setSocketBuffer(rtp.get(), SO_SNDBUF, SO_SNDBUFFORCE, sendBufferBytes);
    setSocketBuffer(rtp.get(), SO_RCVBUF, SO_RCVBUFFORCE, receiveBufferBytes);
    setSocketBuffer(rtcp.get(), SO_SNDBUF, SO_SNDBUFFORCE, receiveBufferBytes);
    setSocketBuffer(rtcp.get(), SO_RCVBUF, SO_RCVBUFFORCE, receiveBufferBytes);

    std::shared_ptr<UdpServer> server(new UdpServer);
    server->sockets_ =
        std::make_shared<UdpSockets>(std::move(rtp), std::move(rtcp), address, options.segmentationOffload);
    return server;
}

int UdpServer::rtpPort() const
{
    return sockets_->bound().port();
}

int UdpServer::rtcpPort() const
{
    return rtpPort() + 1;
}

int UdpServer::rtpDescriptor() const
{
    return sockets_->rtpDescriptor();
}

int UdpServer::rtcpDescriptor() const
{
    return sockets_->rtcpDescriptor();
}

void UdpServer::onRtpReadable()
{
    sockets_->readRtp();
}

void UdpServer::onRtcpReadable()
{
    sockets_->readRtcp();
}

SafePointer<RtpTransport> UdpServer::makeTransport(const SocketAddress& client, int rtpPort, int rtcpPort,
                                                   std::shared_ptr<SessionLiveness> liveness)
{
    SocketAddress rtp = client.forFamily(sockets_->bound().family());
    rtp.setPort(rtpPort);
    SocketAddress rtcp = rtp;
    rtcp.setPort(rtcpPort);
    return SafePointer<RtpTransport>(new UdpTransport(sockets_, rtp, rtcp, std::move(liveness)));
}

bool UdpServer::segmentationOffload() const
{
    return sockets_->rtpSender().segmentation();
}

}  // namespace refhost

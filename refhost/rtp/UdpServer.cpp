#include "refhost/rtp/UdpServer.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "refhost/rtp/UdpAddress.h"
#include "refhost/rtp/UdpSockets.h"
#include "refhost/rtp/UdpTransport.h"

namespace refhost
{
namespace
{

constexpr int attempts = 64;
/// Room for the key pictures of many viewers at once; a receive buffer for the reports of thousands and for
/// talkers.
constexpr int sendBufferBytes = 8 << 20;
constexpr int receiveBufferBytes = 1 << 20;

/// A descriptor that is closed unless released.
class Socket
{
public:
    explicit Socket(int descriptor) : descriptor_(descriptor) {}

    ~Socket()
    {
        if (descriptor_ >= 0)
        {
            ::close(descriptor_);
        }
    }

    Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

    Socket& operator=(Socket&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    int get() const
    {
        return descriptor_;
    }

    int release()
    {
        return std::exchange(descriptor_, -1);
    }

private:
    int descriptor_;
};

void setBuffer(int descriptor, int option, int forced, int bytes)
{
    // The forced form goes beyond the system's limit but needs a privilege; the plain one is cut silently.
    if (setsockopt(descriptor, SOL_SOCKET, forced, &bytes, sizeof(bytes)) != 0)
    {
        (void)setsockopt(descriptor, SOL_SOCKET, option, &bytes, sizeof(bytes));
    }
}

Socket bindSocket(const UdpAddress& address)
{
    Socket opened(::socket(address.family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (opened.get() < 0)
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
        return Socket(-1);
    }
    return opened;
}

int boundPort(int descriptor)
{
    UdpAddress bound;
    socklen_t size = UdpAddress::room;
    return getsockname(descriptor, bound.fill(), &size) == 0 ? bound.port() : 0;
}

/// Binds `address` with its even port and the port behind it. \returns false with errno set
bool bindPair(UdpAddress address, Socket& rtp, Socket& rtcp)
{
    rtp = bindSocket(address);
    if (rtp.get() < 0)
    {
        return false;
    }
    address.setPort(address.port() + 1);
    rtcp = bindSocket(address);
    return rtcp.get() >= 0;
}

/// Finds an even port that is free together with the next one. \returns false with errno set
bool bindAnyPair(UdpAddress& address, Socket& rtp, Socket& rtcp)
{
    for (int i = 0; i < attempts; ++i)
    {
        address.setPort(0);
        int port = 0;
        {
            const Socket probe = bindSocket(address);
            if (probe.get() < 0)
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
    UdpAddress address;
    if (!UdpAddress::parse(options.address, address))
    {
        error = "\"" + options.address + "\" is not a numeric address";
        return nullptr;
    }
    if (options.rtpPort < 0 || options.rtpPort > 65534 || options.rtpPort % 2 != 0)
    {
        error = "UDP port " + std::to_string(options.rtpPort) + " for RTP is not an even port number";
        return nullptr;
    }
    Socket rtp(-1);
    Socket rtcp(-1);
    address.setPort(options.rtpPort);
    if (options.rtpPort == 0 ? !bindAnyPair(address, rtp, rtcp) : !bindPair(address, rtp, rtcp))
    {
        error = "cannot bind UDP ports for RTP and RTCP at " + options.address + ": " + std::strerror(errno);
        return nullptr;
    }
    setBuffer(rtp.get(), SO_SNDBUF, SO_SNDBUFFORCE, sendBufferBytes);
    setBuffer(rtp.get(), SO_RCVBUF, SO_RCVBUFFORCE, receiveBufferBytes);
    setBuffer(rtcp.get(), SO_SNDBUF, SO_SNDBUFFORCE, receiveBufferBytes);
    setBuffer(rtcp.get(), SO_RCVBUF, SO_RCVBUFFORCE, receiveBufferBytes);

    std::shared_ptr<UdpServer> server(new UdpServer);
    server->sockets_ =
        std::make_shared<UdpSockets>(rtp.release(), rtcp.release(), address, options.segmentationOffload);
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

SafePointer<RtpTransport> UdpServer::makeTransport(const sockaddr_storage& client, int rtpPort, int rtcpPort,
                                                   std::shared_ptr<SessionLiveness> liveness)
{
    UdpAddress rtp = UdpAddress(client).forFamily(sockets_->bound().family());
    rtp.setPort(rtpPort);
    UdpAddress rtcp = rtp;
    rtcp.setPort(rtcpPort);
    return SafePointer<RtpTransport>(new UdpTransport(sockets_, rtp, rtcp, std::move(liveness)));
}

bool UdpServer::segmentationOffload() const
{
    return sockets_->rtpSender().segmentation();
}

}  // namespace refhost

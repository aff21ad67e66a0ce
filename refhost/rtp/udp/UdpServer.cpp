#include "refhost/rtp/udp/UdpServer.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "refhost/base/SocketAddress.h"
#include "refhost/base/SocketOptions.h"
#include "refhost/rtp/udp/UdpPortPair.h"
#include "refhost/rtp/udp/UdpSockets.h"
#include "refhost/rtp/udp/UdpTransport.h"

namespace refhost
{
namespace
{

/// Room to send the key frames of many viewers at once, and to receive the reports of thousands.
constexpr int sendBufferBytes = 8 << 20;
constexpr int receiveBufferBytes = 1 << 20;

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
    SocketAddress address = *parsed;
    address.setPort(options.rtpPort);
    std::optional<UdpPortPair> ports =
        options.rtpPort == 0 ? UdpPortPair::bindAny(address) : UdpPortPair::bind(address);
    if (!ports)
    {
        const std::string reason = std::strerror(errno);
        const std::string which = options.rtpPort == 0
                                      ? "free UDP ports"
                                      : "UDP ports " + std::to_string(options.rtpPort) + " and " +
                                            std::to_string(options.rtpPort + 1) + " (rtp-port)";
        error = "cannot bind " + which + " for RTP and RTCP at " + options.address + ": " + reason;
        return nullptr;
    }
    setSocketBuffer(ports->rtp.get(), SO_SNDBUF, SO_SNDBUFFORCE, sendBufferBytes);
    setSocketBuffer(ports->rtp.get(), SO_RCVBUF, SO_RCVBUFFORCE, receiveBufferBytes);
    setSocketBuffer(ports->rtcp.get(), SO_SNDBUF, SO_SNDBUFFORCE, receiveBufferBytes);
    setSocketBuffer(ports->rtcp.get(), SO_RCVBUF, SO_RCVBUFFORCE, receiveBufferBytes);

    std::shared_ptr<UdpServer> server(new UdpServer);
    server->sockets_ = std::make_shared<UdpSockets>(std::move(ports->rtp), std::move(ports->rtcp),
                                                    ports->bound, options.segmentationOffload);
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
                                                   std::shared_ptr<SessionLiveness> liveness,
                                                   std::shared_ptr<ProtectedSender> protection)
{
    SocketAddress rtp = client.forFamily(sockets_->bound().family());
    rtp.setPort(rtpPort);
    auto* const transport = new UdpTransport(sockets_, rtp, rtcpPort, std::move(liveness));
    SafePointer<RtpTransport> handle(transport);
    if (protection != nullptr)
    {
        transport->protect(std::move(protection));
    }
    return handle;
}

bool UdpServer::segmentationOffload() const
{
    return sockets_->rtpSender().segmentation();
}

}  // namespace refhost

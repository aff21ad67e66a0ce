#include "bench/load/UdpPair.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace rtspload
{
namespace
{

constexpr int receiveBufferBytes = 4 << 20;
constexpr std::size_t batch = 64;
constexpr std::size_t datagramBytes = 2048;

/// Where every socket of the one thread receives into.
struct Batch
{
    std::array<std::array<std::uint8_t, datagramBytes>, batch> bytes;
    std::array<iovec, batch> vectors{};
    std::array<mmsghdr, batch> messages{};

    Batch()
    {
        for (std::size_t i = 0; i < batch; ++i)
        {
            vectors[i] = {bytes[i].data(), datagramBytes};
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
    }
};

Batch& receiveBatch()
{
    static Batch instance;
    return instance;
}

int openSocket(std::uint16_t& port)
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
    {
        return -1;
    }
    // The forced form goes beyond the system's limit, for root only.
    if (setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBufferBytes, sizeof receiveBufferBytes) !=
        0)
    {
        setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    {
        close(descriptor);
        return -1;
    }
    port = ntohs(address.sin_port);
    return descriptor;
}

}  // namespace

UdpPair::UdpPair(Poller& poller, std::size_t track, UdpPairSink& sink) : track_(track), sink_(sink)
{
    for (int attempt = 0; attempt < 200; ++attempt)
    {
        if (open())
        {
            poller.add(rtp_.descriptor, rtp_);
            poller.add(rtcp_.descriptor, rtcp_);
            return;
        }
    }
    throw std::runtime_error("no free pair of UDP ports");
}

UdpPair::~UdpPair()
{
    close(rtp_.descriptor);
    close(rtcp_.descriptor);
}

bool UdpPair::open()
{
    port_ = 0;
    rtp_.pair = rtcp_.pair = this;
    rtcp_.rtcp = true;
    rtp_.descriptor = openSocket(port_);
    auto next = static_cast<std::uint16_t>(port_ + 1);
    if (rtp_.descriptor >= 0 && port_ % 2 == 0 && (rtcp_.descriptor = openSocket(next)) >= 0)
    {
        return true;
    }
    if (rtp_.descriptor >= 0)
    {
        close(rtp_.descriptor);
    }
    return false;
}

void UdpPair::drain()
{
    Batch& into = receiveBatch();
    for (const int descriptor : {rtp_.descriptor, rtcp_.descriptor})
    {
        while (recvmmsg(descriptor, into.messages.data(), batch, MSG_DONTWAIT, nullptr) ==
               static_cast<int>(batch))
        {
        }
    }
}

void UdpPair::Receiver::onReadable()
{
    pair->receive(*this);
}

void UdpPair::receive(const Receiver& from)
{
    Batch& into = receiveBatch();
    const int count = recvmmsg(from.descriptor, into.messages.data(), batch, MSG_DONTWAIT, nullptr);
    for (int i = 0; i < count; ++i)
    {
        const auto index = static_cast<std::size_t>(i);
        sink_.onUdp(track_, from.rtcp, into.bytes[index].data(), into.messages[index].msg_len);
    }
}

}  // namespace rtspload

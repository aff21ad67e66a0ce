#pragma once

#include <cstddef>
#include <cstdint>

#include "bench/load/Poller.h"

namespace rtspload
{

/// Takes the datagrams of a pair.
class UdpPairSink
{
public:
    virtual ~UdpPairSink() = default;
    virtual void onUdp(std::size_t track, bool rtcp, const std::uint8_t* data, std::size_t size) = 0;
};

/// A client's RTP and RTCP sockets on loopback: an even port and the one after it. Kept from session to
/// session, as opening them would cost more than the session.
class UdpPair
{
public:
    /// \param track  passed to the sink, which must outlive the pair
    UdpPair(Poller& poller, std::size_t track, UdpPairSink& sink);
    ~UdpPair();
    UdpPair(const UdpPair&) = delete;
    UdpPair& operator=(const UdpPair&) = delete;

    std::uint16_t port() const
    {
        return port_;
    }

    /// Discards the datagrams of a former session.
    void drain();

private:
    class Receiver : public PollTarget
    {
    public:
        void onReadable() override;
        UdpPair* pair = nullptr;
        bool rtcp = false;
        int descriptor = -1;
    };

    bool open();
    void receive(const Receiver& from);

    std::size_t track_;
    UdpPairSink& sink_;
    std::uint16_t port_ = 0;
    Receiver rtp_;
    Receiver rtcp_;
};

}  // namespace rtspload

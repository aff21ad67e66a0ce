#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/ProtectedSender.h"
#include "refhost/rtp/RtpTransport.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The server's one pair of UDP ports for the RTP and RTCP of all unicast sessions.
///
/// Received packets are assigned by their source address and port. Transports keep the sockets open; they may
/// outlive this object. Threads: any.
class UdpServer : public std::enable_shared_from_this<UdpServer>
{
public:
    struct Options
    {
        std::string address = "127.0.0.1";  ///< numeric address to bind
        int rtpPort = 0;                    ///< even; 0: any free pair
        bool segmentationOffload = true;    ///< UDP GSO; falls back to sendmmsg where the system refuses it
    };

    /// Opens both sockets.
    /// \returns null with `error` set when that fails
    static std::shared_ptr<UdpServer> open(const Options& options, std::string& error);
    ~UdpServer();

    int rtpPort() const;
    int rtcpPort() const;

    /// Descriptors to watch for reading; call the fitting operation below when one is readable. A call reads
    /// a bounded number of packets; the descriptor stays readable while more wait.
    int rtpDescriptor() const;
    int rtcpDescriptor() const;
    /// Reads RTP and passes it to the sender's transport, if that takes RTP. Everything else is dropped, such
    /// as packets that open a path through a NAT.
    void onRtpReadable();
    /// Reads RTCP and passes it to the sender's transport; packets of unknown senders are dropped.
    void onRtcpReadable();

    /// Makes the transport to one client. Transport kind 2. If two transports have the same client port, RTCP
    /// from there goes to the newer one, and RTP to the one whose takeRtp() was called last.
    /// \param client    the client's address; its port is not used
    /// \param rtpPort   the client's ports, 1 to 65535
    /// \param liveness  notes every packet received from the client as activity; may be null
    /// \param protection  encrypts the track; null: it is not encrypted
    SafePointer<RtpTransport> makeTransport(const SocketAddress& client, int rtpPort, int rtcpPort,
                                            std::shared_ptr<SessionLiveness> liveness,
                                            std::shared_ptr<ProtectedSender> protection = nullptr);

    /// Whether packets are sent as segmented messages now.
    bool segmentationOffload() const;

private:
    UdpServer();

    std::shared_ptr<class UdpSockets> sockets_;
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/ingest/client/CameraDatagrams_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"
#include "refhost/ingest/client/CameraHeaders.h"
#include "refhost/rtp/ReceptionStatistics.h"
#include "refhost/rtp/ReorderWindow.h"
#include "refhost/rtp/udp/UdpPortPair.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// RTP and RTCP of one track of a camera over UDP: a pair of ports on the client's loop (RFC 3550, section 11).
///
/// Taken is what comes from the camera's address and the ports that it names. Cameras that name other ports
/// than they send from are read all the same: where nothing came for `portPatience`, the first other port counts.
/// Of several sources (SSRC) one is read, another one only once that was silent for `sourcePatience`.
///
/// RTP goes on in the order in which it was sent: a missing packet is waited for until `maxWait`, or until
/// `maxHeld` later ones came, and then left out.
///
/// Threads: the loop's.
class CameraDatagrams
{
public:
    static constexpr Duration portPatience = std::chrono::seconds(2);
    static constexpr Duration sourcePatience = std::chrono::seconds(1);
    static constexpr Duration maxWait = std::chrono::milliseconds(100);
    static constexpr std::size_t maxHeld = 64;
    /// Bytes of a datagram, all that UDP carries; longer ones than Ethernet's come in fragments.
    static constexpr std::size_t maxDatagram = 65507;

    /// What a track's ports report. Each call may close them, which ends the reports.
    class Events
    {
    public:
        /// \param reports  it is RTCP
        /// \param data     12 to 65507 bytes of RTP, or 1 to 65507 of RTCP, until the return
        /// \param arrival  when it was received from the system
        virtual void onMedia(std::size_t track, bool reports, const std::uint8_t* data, std::size_t size,
                             MonotonicTime arrival) = 0;

    protected:
        ~Events() = default;
    };

    /// \param local       the address to bind, that of the RTSP connection
    /// \param camera      the other side of the RTSP connection
    /// \param track       for the reports
    /// \param owner       owns the ports; held while they report
    /// \param[out] error  one line, when null is returned
    static std::unique_ptr<CameraDatagrams> open(EventLoop& loop, const SocketAddress& local,
                                                 const SocketAddress& camera, std::size_t track,
                                                 Events& events, const std::weak_ptr<void>& owner,
                                                 std::string& error);
    ~CameraDatagrams();
    CameraDatagrams(const CameraDatagrams&) = delete;
    CameraDatagrams& operator=(const CameraDatagrams&) = delete;

    /// The port of RTP, even; RTCP has the next.
    int port() const;

    /// Takes what the camera answered to SETUP.
    void setSource(const TransportReply& reply);
    /// Just before PLAY: sends an empty packet to both of the camera's ports, so that firewalls and address
    /// translation between let its packets through.
    void punch();
    /// Sends RTCP.
    /// \returns false when the camera's port is not known, or the system does not take it
    bool sendReport(const std::uint8_t* data, std::size_t size);

    /// Reports nothing any more. Does nothing the second time.
    void close();

private:
    /// One of the two ports at the camera.
    struct Sender
    {
        int port = 0;  ///< 0: not known
        bool received = false;
    };

    CameraDatagrams(EventLoop& loop, UdpPortPair ports, const SocketAddress& camera, std::size_t track,
                    Events& events);
    void watch(const std::weak_ptr<void>& owner);
    void receive(bool reports);
    bool isFromCamera(const SocketAddress& address, Sender& sender, MonotonicTime now) const;
    void takePacket(const std::uint8_t* data, std::size_t size, MonotonicTime arrival);
    bool isOfSource(std::uint32_t ssrc, MonotonicTime arrival);
    void release(MonotonicTime now);
    void releaseAll();
    bool sendTo(int socket, int port, const std::uint8_t* data, std::size_t size) const;

    EventLoop& loop_;
    const UdpPortPair ports_;
    const SocketAddress camera_;
    const std::size_t track_;
    Events& events_;
    std::weak_ptr<void> owner_;
    bool open_ = true;
    MonotonicTime since_;                  ///< when media may come
    std::optional<SocketAddress> source_;  ///< where media come from, if not from camera_
    Sender rtp_;
    Sender rtcp_;

    std::optional<std::uint32_t> ssrc_;
    MonotonicTime lastArrival_;
    ReceptionStatistics counted_;
    ReorderWindow window_{maxWait, maxHeld};
    EventLoop::TimerId timer_;
    bool armed_ = false;
};

}  // namespace refhost

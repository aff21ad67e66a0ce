#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp, tests/refhost/rtp/InterleavedTransport_test.cpp.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "hostapi/device/IConnection.h"
#include "refhost/base/Footprint.h"
#include "refhost/base/Times.h"
#include "refhost/media/AccessUnit.h"
#include "refhost/rtp/LiveStart.h"

namespace refhost
{

/// The last activity of a session's client, by RTSP, RTP or RTCP. Shared by the session and its transports.
/// Threads: any.
class SessionLiveness
{
public:
    /// The client is active now.
    void noteActivity(MonotonicTime now)
    {
        lastActivity_.store(now, std::memory_order_relaxed);
    }

    /// The client was active at `time`; ignored unless that is later than the last activity.
    void noteEarlierActivity(MonotonicTime time)
    {
        MonotonicTime known = lastActivity_.load(std::memory_order_relaxed);
        while (known < time && !lastActivity_.compare_exchange_weak(known, time, std::memory_order_relaxed))
        {
        }
    }

    /// The epoch of the clock before the first activity.
    MonotonicTime lastActivity() const
    {
        return lastActivity_.load(std::memory_order_relaxed);
    }

private:
    std::atomic<MonotonicTime> lastActivity_{MonotonicTime()};
};

/// The header fields that a session writes into every packet of one track.
struct RtpHeaderFields
{
    std::uint32_t ssrc = 0;
    std::uint16_t sequence = 0;   ///< of the first packet sent; increments with each packet
    std::uint32_t timestamp = 0;  ///< of the access unit
    std::uint8_t payloadType = 0;
};

enum class SendStatus
{
    sent,       ///< everything was taken
    congested,  ///< the transport is full: continue with the first packet not taken
    held,       ///< held until release(): nothing was taken
    closed      ///< the client is gone: nothing will be taken again
};

struct SendResult
{
    SendStatus status;
    std::size_t packets;  ///< packets taken, from the first one requested
};

/// Receives the events of one track's transport.
class TransportListener
{
public:
    virtual ~TransportListener() = default;

    /// The transport takes packets again after `congested` or `held`. Called on any thread, without a lock held.
    virtual void onTransportReady() = 0;

    /// A compound RTCP packet came from the client; not checked yet. Called on any thread.
    virtual void onRtcp(const std::uint8_t* data, std::size_t size) = 0;

    /// An RTP packet came from the client; not checked yet. Called on any thread, only after takeRtp().
    virtual void onRtp(const std::uint8_t* /*data*/, std::size_t /*size*/) {}
};

/// The capabilities of a kind of transport. Senders query these, never the kind.
struct TransportTraits
{
    /// Access units of the past that are sent per new one while a viewer catches up with the live stream,
    /// after an immediate first unit. 0: everything at once.
    unsigned maxCatchUpUnits = 0;
    /// Units sent back to back cost less than single ones: audio may wait a moment for the next frame.
    bool joinsUnits = false;
    /// TransportListener::onTransportReady() follows every `congested`. Otherwise the sender retries after a
    /// while.
    bool reportsReady = false;
    /// A client that is gone just falls silent; no connection ends.
    bool silentWhenGone = false;
    /// Several sessions share it: it is neither held nor closed for one of them.
    bool shared = false;
};

/// Carries one track's packets to and from one client: the object behind this host's
/// SafePointer<IConnection>.
///
/// Threads: any. Sending never blocks.
class RtpTransport : public IConnection
{
public:
    /// \param traits  of the kind; outlives the transport
    RtpTransport(int kind, const TransportTraits& traits) : IConnection(kind), traits_(traits) {}
    RtpTransport(int kind, const TransportTraits&& traits) = delete;

    const TransportTraits& traits() const
    {
        return traits_;
    }

    /// Sets the receiver of events; null for none. Kept weakly.
    virtual void setListener(std::weak_ptr<TransportListener> listener) = 0;

    /// Whether the transport is open (`sent`), `held` or `closed`; never `congested`. Takes no lock.
    virtual SendStatus state() const = 0;

    /// Sends the packets of `unit` from `firstPacket` on, with `header` written into them. After `congested`,
    /// a transport that notices space calls the listener when to continue; otherwise continue with the next unit.
    /// \param more  another unit for the same client follows at once; this one may travel with it
    virtual SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                            bool more) = 0;

    /// Sends a compound RTCP packet; dropped when the transport is full, delayed in order while it is held.
    virtual void sendRtcp(const std::uint8_t* data, std::size_t size) = 0;

    /// Passes the client's RTP to the listener as well, until the transport ends. Without this call it is
    /// dropped at the socket, so that clients that only listen take no room in its tables.
    virtual void takeRtp() {}

    /// How a live stream starts for this client; nothing for the stream's default. Set before the transport
    /// is passed on.
    std::optional<LiveStart::Mode> start;

    /// The client's name in the log.
    virtual std::string peerName() const
    {
        return "a client";
    }

    /// What one sender sent over it so far, for the session's audit.
    struct Sent
    {
        std::atomic<std::uint64_t> bytes{0};  ///< of RTP payload
        std::atomic<std::uint64_t> lost{0};   ///< packets that the client reported as lost
        /// Capture time of the last unit of a live stream that was sent; the clock's epoch before.
        std::atomic<MonotonicTime> capture{MonotonicTime()};
    };
    Sent sent;

    /// Whom the client's audio is from, for the audit.
    struct Client
    {
        std::array<unsigned char, 16> address{};  ///< as SocketAddress::Key
        std::string user;                         ///< empty without users
        std::string url;                          ///< of the presentation
    };
    /// Null when unknown. Set before the transport is passed on.
    std::shared_ptr<const Client> client;

    /// Refuses packets until release(), so that the response to PLAY goes out first.
    virtual void hold() = 0;
    /// Takes packets again and notifies the listener, on the calling thread and before the return. Does
    /// nothing unless held. Requires: the caller holds no lock.
    virtual void release() = 0;

    /// Ends the transport: no packet leaves after the return.
    virtual void close() = 0;

    /// Adds the memory that send() uses.
    virtual void addFootprint(Footprint& /*footprint*/) const {}

private:
    const TransportTraits& traits_;
};

}  // namespace refhost

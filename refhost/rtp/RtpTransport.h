#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp, tests/refhost/rtp/InterleavedTransport_test.cpp.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "hostapi/device/IConnection.h"
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
    std::uint16_t sequence = 0;   ///< of the first packet sent; one more for each further packet
    std::uint32_t timestamp = 0;  ///< of the access unit
    std::uint8_t payloadType = 0;
};

enum class SendStatus
{
    sent,       ///< everything was taken
    congested,  ///< the transport is full now: go on from the packet that was not taken
    held,       ///< the transport is held until release(): nothing was taken
    closed      ///< the client is gone: nothing will be taken any more
};

struct SendResult
{
    SendStatus status;
    std::size_t packets;  ///< how many packets were taken, counted from the first one asked for
};

/// Learns what happens on one track's transport to its client.
class TransportListener
{
public:
    virtual ~TransportListener() = default;

    /// The transport takes packets again after `congested` or `held`. Called on any thread, without a lock held.
    virtual void onTransportReady() = 0;

    /// A compound RTCP packet came from the client; not checked yet. Called on any thread.
    virtual void onRtcp(const std::uint8_t* data, std::size_t size) = 0;

    /// An RTP packet came from the client; not checked yet. Called on any thread, and only where the
    /// transport was told to takeRtp().
    virtual void onRtp(const std::uint8_t* /*data*/, std::size_t /*size*/) {}
};

/// What a kind of transport can do. Senders ask for these and never for the kind.
struct TransportTraits
{
    /// How many access units of the past it takes for each new one while a viewer catches up with the live
    /// stream, after the first unit at once; 0 when it takes all at once from the start.
    unsigned maxCatchUpUnits = 0;
    /// Units that follow each other at once travel cheaper than one by one: audio may then wait a moment for
    /// the next frame.
    bool joinsUnits = false;
    /// TransportListener::onTransportReady() follows every `congested`. Without it the sender tries again
    /// after a while.
    bool reportsReady = false;
    /// A client that is gone just falls silent: no connection ends with it.
    bool silentWhenGone = false;
    /// Several sessions send through it: it is neither held nor closed for one of them.
    bool shared = false;
};

/// The transport of one track's packets to one client, and back: what this host puts under
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

    /// Who is told; null for nobody. Kept weakly.
    virtual void setListener(std::weak_ptr<TransportListener> listener) = 0;

    /// Whether the transport is open (`sent`), `held` or `closed`; never `congested`. Takes no lock.
    virtual SendStatus state() const = 0;

    /// Sends the packets of `unit` from `firstPacket` on, with `header` written into them. After `congested`
    /// the listener is told when it is worth to go on, where the transport can know; the next unit is a good time
    /// too.
    /// \param more  another unit for the same client follows at once; this one may travel with it
    virtual SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                            bool more) = 0;

    /// Sends a compound RTCP packet; dropped when the transport is full, kept back in order while it is held.
    virtual void sendRtcp(const std::uint8_t* data, std::size_t size) = 0;

    /// Hands RTP that the client sends to the listener too, until the end of the transport. What is not asked
    /// for is dropped at the socket: a client that only listens needs no place in its tables.
    virtual void takeRtp() {}

    /// How this client wants a live stream to start; nothing where the stream's own way serves it. Set before
    /// the transport is given away.
    std::optional<LiveStart::Mode> start;

    /// What a log calls the client.
    virtual std::string peerName() const
    {
        return "a client";
    }

    /// Keeps packets back, so that the answer to PLAY goes out before the first of them.
    virtual void hold() = 0;
    /// Lets packets go again and tells the listener, on the calling thread and before the return; the caller
    /// holds no lock. Does nothing when the transport is not held.
    virtual void release() = 0;

    /// Ends the transport: no packet leaves after the return.
    virtual void close() = 0;

private:
    const TransportTraits& traits_;
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/live/TrackSender_test.cpp, tests/refhost/playback/PlaybackPlay_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "hostapi/device/IConnection.h"
#include "refhost/base/HostClock.h"
#include "refhost/rtp/RtcpReader.h"
#include "refhost/rtp/RtcpWriter.h"
#include "refhost/rtp/RtpTransport.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Counters of one track of one session, for diagnostics and tests.
struct TrackStatistics
{
    std::uint32_t packets = 0;          ///< RTP packets sent
    std::uint32_t octets = 0;           ///< their payload bytes
    std::uint64_t unitsSkipped = 0;     ///< access units skipped because the transport was congested
    std::uint32_t reportsSent = 0;      ///< RTCP sender reports
    std::uint32_t reportsRead = 0;      ///< RTCP reception reports on this track
    std::uint32_t reportsRefused = 0;   ///< malformed RTCP packets
    ReceptionReport reception;          ///< the last report read
    std::optional<Duration> roundTrip;  ///< by the last report
};

/// One RTP source as its client sees it: SSRC, sequence numbers, counters and RTCP.
///
/// Sends the units it is given through the track's transport; where they come from and when they are due is
/// the owner's business. Threads: one at a time, under the owner's lock.
class RtpSender
{
public:
    /// \param payloadType     written into every packet
    /// \param name            the session's canonical name, shared by its tracks
    /// \param clock           outlives the sender
    /// \param reportInterval  mean time between two sender reports
    RtpSender(int payloadType, const RtcpWriter::Name& name, const HostClock& clock, Duration reportInterval);
    ~RtpSender();
    RtpSender(const RtpSender&) = delete;
    RtpSender& operator=(const RtpSender&) = delete;

    /// Sets the transport to the client; replaces the previous one.
    /// \param listener  receives the transport's events
    /// \returns 0; hostConnectionUnusable, with nothing changed, when it is no RtpTransport of this host
    int connect(const SafePointer<IConnection>& connection,
                const std::shared_ptr<TransportListener>& listener);
    /// Releases the transport; nothing is sent after that.
    void disconnect();

    /// The transport to the client; null before connect().
    RtpTransport* transport() const
    {
        return transport_;
    }

    /// Whether there is a transport that is not closed.
    bool connected() const
    {
        return transport_ != nullptr && transport_->state() != SendStatus::closed;
    }

    std::uint32_t ssrc() const
    {
        return initial_.ssrc;
    }

    int payloadType() const
    {
        return payloadType_;
    }

    /// The initial RTP timestamp.
    std::uint32_t firstTimestamp() const
    {
        return initial_.timestamp;
    }

    /// Sequence number of the next packet.
    std::uint16_t sequence() const
    {
        return sequence_;
    }

    TrackStatistics& statistics()
    {
        return statistics_;
    }

    const TrackStatistics& statistics() const
    {
        return statistics_;
    }

    /// Sends the packets of `unit` from `firstPacket` on and counts those taken. Requires: a transport.
    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, std::uint32_t timestamp, bool more);

    /// Makes a report due now.
    void requestReport()
    {
        reportDue_ = MonotonicTime();
    }

    /// Makes a report due now if the wall clock was set since the last one, which invalidated the relation of
    /// RTP to NTP time that clients learned.
    void followWallClock()
    {
        const std::uint32_t steps = clock_.wall().steps();
        if (steps != wallSteps_)
        {
            wallSteps_ = steps;
            requestReport();
        }
    }

    /// Takes effect with the next report.
    void setReportInterval(Duration interval)
    {
        reportInterval_ = interval;
    }

    bool reportDue(MonotonicTime now) const
    {
        return now >= reportDue_;
    }

    /// \param wall          now, by HostClock::wall()
    /// \param rtpTimestamp  of the same instant
    void sendReport(MonotonicTime now, WallTime wall, std::uint32_t rtpTimestamp);
    /// Sends BYE, even if no packet was sent. No effect without a transport.
    void sendBye(WallTime wall, std::uint32_t rtpTimestamp);

    /// Takes a compound RTCP packet from the client.
    /// \param clockRate  of the track, Hz
    void readReport(const std::uint8_t* data, std::size_t size, std::uint32_t clockRate);

private:
    /// The initial values that must be random (RFC 3550, section 5.1).
    struct InitialValues
    {
        std::uint32_t ssrc;
        std::uint32_t timestamp;
        std::uint32_t reportJitter;
        std::uint16_t sequence;

        static InitialValues random();
    };

    void account(const AccessUnit& unit, std::size_t firstPacket, std::size_t packets);

    const InitialValues initial_ = InitialValues::random();
    const RtcpWriter::Name name_;
    const HostClock& clock_;
    Duration reportInterval_;
    const std::uint8_t payloadType_;
    std::uint16_t sequence_ = initial_.sequence;
    std::optional<SafePointer<IConnection>> connection_;
    RtpTransport* transport_ = nullptr;  // owned by connection_
    MonotonicTime reportDue_;
    std::uint32_t wallSteps_ = 0;                              // of the wall clock, reported so far
    std::uint32_t reportJitter_ = initial_.reportJitter | 1U;  // state of a xorshift generator, never 0
    std::uint64_t octets_ = 0;                                 // as in the statistics, where they wrap
    TrackStatistics statistics_;
};

/// The RTP clock of a track described with `rate` Hz; 90,000 Hz where the description has none.
constexpr RtpClock rtpClockOf(int rate)
{
    return RtpClock(rate > 0 ? static_cast<std::uint32_t>(rate) : 90'000U);
}

}  // namespace refhost

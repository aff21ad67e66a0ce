#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// The clock of one track of a camera that is read over RTP: maps its RTP timestamps to local time.
///
/// Media times follow the camera's RTP timestamps exactly, independent of network jitter. Capture times come
/// from the camera's sender reports (RFC 3550, section 6.4.1) or, without a usable clock, from the arrival of
/// the fastest packets of the last seconds. They follow the drift between the two clocks and are corrected
/// without a step and without going back. All times count from one fixed local instant. Threads: any.
class SourceClock
{
public:
    /// Reports that differ more from this machine's clock are of a wrong clock.
    static constexpr Duration maxClockError = std::chrono::seconds(5);

    /// \param rtpClock   of the timestamps
    /// \param reordered  timestamps of successive frames may go back a little, as B-frames' do
    SourceClock(RtpClock rtpClock, bool reordered);

    /// Maps a packet's timestamp.
    /// \param arrival  of the packet
    /// \returns the media time, not negative; goes back only for reordered frames, by at most a second
    Duration place(std::uint32_t timestamp, std::uint32_t ssrc, Duration arrival);

    enum class Report
    {
        used,
        wrongClock,  ///< differs too much from this machine's clock: arrivals are used
        unusable     ///< of another SSRC, or with a timestamp far from the media's
    };

    /// Applies a sender report. Before the media of its SSRC arrive, the last report is kept.
    /// \param report   the report's NTP time; nothing when the camera has no wall clock
    /// \param arrival  of the report
    Report report(std::uint32_t timestamp, std::uint32_t ssrc, std::optional<Duration> report,
                  Duration arrival);

    /// Capture time of a media time; increases with it.
    Duration captured(Duration media) const;

private:
    /// Capture time minus media time, from a media time on.
    struct Knot
    {
        Duration media;
        Duration offset;
    };

    struct SenderReport
    {
        std::uint32_t timestamp;
        std::uint32_t ssrc;
        Duration report;
    };

    /// Min delay of the packets that arrived within one second.
    struct Delay
    {
        Duration since;
        Duration min;
    };

    Duration span(std::uint32_t from, std::uint32_t to) const;
    bool continues(Duration span, Duration elapsed) const OV_REQUIRES(mutex_);
    void restart(std::uint32_t timestamp, std::uint32_t ssrc, Duration arrival) OV_REQUIRES(mutex_);
    void noteDelay(Duration delay, Duration arrival) OV_REQUIRES(mutex_);
    Duration minDelay() const OV_REQUIRES(mutex_);
    void follow(Duration media) OV_REQUIRES(mutex_);

    const RtpClock rtpClock_;
    const bool reordered_;

    mutable Mutex mutex_;
    bool started_ OV_GUARDED_BY(mutex_) = false;
    std::uint32_t ssrc_ OV_GUARDED_BY(mutex_) = 0;
    std::uint32_t lastTimestamp_ OV_GUARDED_BY(mutex_) = 0;
    std::int64_t lastTicks_ OV_GUARDED_BY(mutex_) = 0;  ///< since base_, unwrapped
    Duration base_ OV_GUARDED_BY(mutex_){};             ///< media time at tick 0
    Duration lastMedia_ OV_GUARDED_BY(mutex_){};
    Duration latestMedia_ OV_GUARDED_BY(mutex_){};
    Duration lastArrival_ OV_GUARDED_BY(mutex_){};
    std::deque<Delay> delays_ OV_GUARDED_BY(mutex_);
    std::optional<SenderReport> pending_ OV_GUARDED_BY(mutex_);  ///< arrived before its media
    std::optional<Duration> reported_ OV_GUARDED_BY(mutex_);     ///< offset by the sender reports
    std::deque<Knot> knots_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

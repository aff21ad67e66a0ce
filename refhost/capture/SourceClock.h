#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// The clock of one track of a camera that is read over RTP: places its RTP timestamps on this machine's
/// time.
///
/// Media times follow the camera's RTP timestamps exactly, whatever the network does. Beside them stands the
/// time of capture: what the camera's sender reports say of it (RFC 3550, section 6.4.1), and where it has no
/// usable clock, when the fastest packets of the last seconds arrived. It follows the drift between the two
/// clocks and is corrected without a step and without ever going back. All times count from one
/// steady local instant. Threads: any.
class SourceClock
{
public:
    /// A camera whose reports differ more from this machine's clock has a wrong clock.
    static constexpr Duration maxClockError = std::chrono::seconds(5);

    /// \param rtpClock   of the timestamps
    /// \param reordered  timestamps of successive frames may go back a little, as B-frames' do
    SourceClock(RtpClock rtpClock, bool reordered);

    /// Places a packet.
    /// \param arrival  when it came
    /// \returns the media time, not negative; it goes back only within a second and where frames are
    /// reordered
    Duration place(std::uint32_t timestamp, std::uint32_t ssrc, Duration arrival);

    enum class Report
    {
        used,
        wrongClock,  ///< differs too much from this machine's clock: arrivals count
        unusable     ///< of another SSRC, or of a timestamp far from the media's
    };

    /// Takes a sender report; of several SSRCs the last report counts.
    /// \param report   the report's NTP time; nothing when the camera says that it has none
    /// \param arrival  when the report came
    Report report(std::uint32_t timestamp, std::uint32_t ssrc, std::optional<Duration> report,
                  Duration arrival);

    /// When the media at a media time were captured. Grows with it.
    Duration captured(Duration media) const;

private:
    /// Capture time less media time, from a media time on.
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

    /// Least delay of the packets that came within a second.
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
    Duration base_ OV_GUARDED_BY(mutex_){};             ///< media time where the ticks count from
    Duration lastMedia_ OV_GUARDED_BY(mutex_){};
    Duration latestMedia_ OV_GUARDED_BY(mutex_){};
    Duration lastArrival_ OV_GUARDED_BY(mutex_){};
    std::deque<Delay> delays_ OV_GUARDED_BY(mutex_);
    std::optional<SenderReport> pending_ OV_GUARDED_BY(mutex_);  ///< came before its media
    std::optional<Duration> reported_ OV_GUARDED_BY(mutex_);     ///< offset that the sender reports ask for
    std::deque<Knot> knots_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

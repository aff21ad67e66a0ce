#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// The clock of one track of a camera that is read over RTP: places its RTP timestamps on this machine's
/// time.
///
/// Media times follow the camera's RTP timestamps exactly, whatever the network does. Beside them stands the
/// time of capture: what the camera's sender reports say of it (RFC 3550, section 6.4.1), and where it has no
/// usable clock, when the fastest packets of the last seconds arrived. It follows the drift between the two
/// clocks and is corrected without a step and without ever going back. All times are nanoseconds on one
/// steady local timescale. Threads: any.
class SourceClock
{
public:
    /// A camera whose reports differ more from this machine's clock has a wrong clock.
    static constexpr std::int64_t maxClockErrorNs = 5'000'000'000;

    /// \param clockRate  ticks a second, not 0
    /// \param reordered  timestamps of successive frames may go back a little, as B-frames' do
    SourceClock(std::uint32_t clockRate, bool reordered);

    /// Places a packet.
    /// \param arrivalNs  when it came
    /// \returns the media time, not negative; it goes back only within a second and where frames are
    /// reordered
    std::int64_t place(std::uint32_t timestamp, std::uint32_t ssrc, std::int64_t arrivalNs);

    enum class Report
    {
        used,
        wrongClock,  ///< differs too much from this machine's clock: arrivals count
        unusable     ///< of another SSRC, or of a timestamp far from the media's
    };

    /// Takes a sender report; of several SSRCs the last report counts.
    /// \param reportNs   the report's NTP time; nothing when the camera says that it has none
    /// \param arrivalNs  when the report came
    Report report(std::uint32_t timestamp, std::uint32_t ssrc, std::optional<std::int64_t> reportNs,
                  std::int64_t arrivalNs);

    /// When the media at a media time were captured. Grows with it.
    std::int64_t captured(std::int64_t mediaNs) const;

private:
    /// Capture time less media time, from a media time on.
    struct Knot
    {
        std::int64_t mediaNs;
        std::int64_t offsetNs;
    };

    struct SenderReport
    {
        std::uint32_t timestamp;
        std::uint32_t ssrc;
        std::int64_t reportNs;
    };

    /// Least delay of the packets that came within a second.
    struct Delay
    {
        std::int64_t sinceNs;
        std::int64_t minNs;
    };

    std::int64_t span(std::uint32_t from, std::uint32_t to) const;
    bool continues(std::int64_t spanNs, std::int64_t elapsedNs) const OV_REQUIRES(mutex_);
    void restart(std::uint32_t timestamp, std::uint32_t ssrc, std::int64_t arrivalNs) OV_REQUIRES(mutex_);
    void noteDelay(std::int64_t delayNs, std::int64_t arrivalNs) OV_REQUIRES(mutex_);
    std::int64_t minDelay() const OV_REQUIRES(mutex_);
    void follow(std::int64_t mediaNs) OV_REQUIRES(mutex_);

    const std::uint32_t clockRate_;
    const bool reordered_;

    mutable Mutex mutex_;
    bool started_ OV_GUARDED_BY(mutex_) = false;
    std::uint32_t ssrc_ OV_GUARDED_BY(mutex_) = 0;
    std::uint32_t lastTimestamp_ OV_GUARDED_BY(mutex_) = 0;
    std::int64_t lastTicks_ OV_GUARDED_BY(mutex_) = 0;  ///< since baseNs_, unwrapped
    std::int64_t baseNs_ OV_GUARDED_BY(mutex_) = 0;     ///< media time where the ticks count from
    std::int64_t lastMediaNs_ OV_GUARDED_BY(mutex_) = 0;
    std::int64_t latestMediaNs_ OV_GUARDED_BY(mutex_) = 0;
    std::int64_t lastArrivalNs_ OV_GUARDED_BY(mutex_) = 0;
    std::deque<Delay> delays_ OV_GUARDED_BY(mutex_);
    std::optional<SenderReport> pending_ OV_GUARDED_BY(mutex_);  ///< came before its media
    std::optional<std::int64_t> reportedNs_
        OV_GUARDED_BY(mutex_);  ///< offset that the sender reports ask for
    std::deque<Knot> knots_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

/// The time types of the server. Spans are std::chrono durations. Instants are typed by their clock, so that
/// instants of two clocks cannot be compared or subtracted by mistake. All conversions between units, to NTP
/// and to RTP ticks are here.
namespace refhost
{

/// A span. The coarser units of std::chrono convert to it implicitly; conversions back name their rounding
/// (std::chrono::floor, round, ceil).
using Duration = std::chrono::nanoseconds;

/// The members that std::chrono requires of a clock, without now(): base of the tags that type instants.
template <class Tag, bool steady>
struct ClockTag
{
    using rep = Duration::rep;
    using period = Duration::period;
    using duration = Duration;
    using time_point = std::chrono::time_point<Tag, Duration>;
    static constexpr bool is_steady = steady;
};

/// The clock that is never set and runs at a constant rate. Read by HostClock::now().
struct MonotonicTag : ClockTag<MonotonicTag, true>
{
};

/// The wall clock, which may be set at any time: UTC since 1970 without leap seconds. WallClock dates media;
/// HostClock::wallNow() reads the system's.
struct WallTag : ClockTag<WallTag, false>
{
};

/// An instant of the monotonic clock.
using MonotonicTime = std::chrono::time_point<MonotonicTag>;

/// A date in nanoseconds, from 1677 to 2262.
using WallTime = std::chrono::time_point<WallTag>;

/// A date in microseconds; covers every year that RTSP can express.
using WallMicroseconds = std::chrono::time_point<WallTag, std::chrono::microseconds>;

/// Nanoseconds per second, for arithmetic that std::chrono cannot express.
inline constexpr std::int64_t nanosecondsPerSecond = Duration::period::den;

/// Converts a span to nanoseconds; one that does not fit becomes the longest that does.
template <class Rep, class Period>
constexpr Duration saturatedDuration(std::chrono::duration<Rep, Period> span)
{
    static_assert(std::is_integral<Rep>::value && sizeof(Rep) <= sizeof(std::int64_t),
                  "for fractions: durationOf()");
    static_assert(Period::den <= Duration::period::den && Duration::period::den % Period::den == 0,
                  "no finer than nanoseconds");
    constexpr std::int64_t maxCount =
        std::chrono::duration_cast<std::chrono::duration<std::int64_t, Period>>(Duration::max()).count();
    if constexpr (std::is_unsigned<Rep>::value)
    {
        return span.count() > static_cast<std::uint64_t>(maxCount) ? Duration::max() : Duration(span);
    }
    else
    {
        const auto count = static_cast<std::int64_t>(span.count());
        return count > maxCount    ? Duration::max()
               : count < -maxCount ? Duration::min()
                                   : std::chrono::duration_cast<Duration>(span);
    }
}

/// Converts fractional seconds to a span, rounded to the nearest nanosecond. A value that does not fit becomes
/// the longest span that does; NaN becomes 0.
inline Duration durationOf(std::chrono::duration<double> span)
{
    constexpr double limit = 9223372036854775808.0;  // 2^63
    const double count = std::nearbyint(span.count() * 1e9);
    if (std::isnan(count))
    {
        return Duration::zero();
    }
    return count >= limit    ? Duration::max()
           : count <= -limit ? Duration::min()
                             : Duration(static_cast<std::int64_t>(count));
}

/// Converts a span to fractional seconds, for texts and for the library.
constexpr double secondsOf(Duration span)
{
    return std::chrono::duration<double>(span).count();
}

/// Converts a date to nanoseconds, clamped to 1677 to 2262.
constexpr WallTime saturatedWallTime(WallMicroseconds date)
{
    return WallTime(saturatedDuration(date.time_since_epoch()));
}

/// Converts whole seconds since 1970 to a date, clamped to 1677 to 2262.
constexpr WallTime wallTimeOfUnix(std::int64_t secondsSince1970)
{
    return WallTime(saturatedDuration(std::chrono::duration<std::int64_t>(secondsSince1970)));
}

/// Whole seconds since 1970, rounded down.
constexpr std::int64_t unixSeconds(WallTime date)
{
    return std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
}

/// An NTP timestamp: seconds since 1900 and their fraction, 32 bits each (RFC 5905, section 6). RTCP and the
/// ONVIF replay extension date media by it.
///
/// The seconds wrap in 2036. The highest bit selects the era, for dates from 1968 to 2104 (RFC 4330,
/// section 3).
class NtpTime
{
public:
    /// Unknown: all bits 0.
    constexpr NtpTime() = default;
    /// \param bits  seconds in the upper half, fraction in the lower
    explicit constexpr NtpTime(std::uint64_t bits) : bits_(bits) {}
    constexpr NtpTime(std::uint32_t wholeSeconds, std::uint32_t fraction)
        : bits_(std::uint64_t{wholeSeconds} << 32U | fraction)
    {
    }

    /// Converts a date, rounded down; the era is lost.
    explicit constexpr NtpTime(WallTime date)
    {
        const auto whole = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch());
        const auto rest = static_cast<std::uint64_t>((date.time_since_epoch() - whole).count());
        const auto since1900 =
            static_cast<std::uint32_t>(static_cast<std::uint64_t>(whole.count()) + secondsFrom1900To1970);
        bits_ = std::uint64_t{since1900} << 32U | (rest << 32U) / perSecond;
    }

    /// The date, rounded to the nearest nanosecond; from 1968 to 2104.
    constexpr WallTime wallTime() const
    {
        const std::int64_t era = wholeSeconds() < eraStart ? std::int64_t{1} << 32U : 0;
        const std::int64_t since1970 = era + wholeSeconds() - secondsFrom1900To1970;
        const std::uint64_t rest = (std::uint64_t{fraction()} * perSecond + (std::uint64_t{1} << 31U)) >> 32U;
        return WallTime(std::chrono::seconds(since1970) + Duration(static_cast<std::int64_t>(rest)));
    }

    constexpr bool known() const
    {
        return bits_ != 0;
    }

    constexpr std::uint64_t bits() const
    {
        return bits_;
    }

    constexpr std::uint32_t wholeSeconds() const
    {
        return static_cast<std::uint32_t>(bits_ >> 32U);
    }

    /// In units of 2^-32 second.
    constexpr std::uint32_t fraction() const
    {
        return static_cast<std::uint32_t>(bits_);
    }

    /// The middle 32 bits, as in the LSR field of reception reports (RFC 3550, section 6.4.1).
    constexpr std::uint32_t compact() const
    {
        return static_cast<std::uint32_t>(bits_ >> 16U);
    }

    friend constexpr bool operator==(NtpTime a, NtpTime b)
    {
        return a.bits_ == b.bits_;
    }

    friend constexpr bool operator!=(NtpTime a, NtpTime b)
    {
        return !(a == b);
    }

private:
    static constexpr std::int64_t secondsFrom1900To1970 = 2'208'988'800;
    static constexpr std::uint64_t perSecond = nanosecondsPerSecond;
    static constexpr std::uint32_t eraStart = 0x80000000U;  // 1968; smaller values count from 2036

    std::uint64_t bits_ = 0;
};

/// Converts a span from units of 1/65536 second, the form of delays in RTCP (RFC 3550, section 6.4.1).
constexpr Duration spanOfCompactNtp(std::uint32_t span)
{
    return Duration(static_cast<std::int64_t>(std::uint64_t{span} * nanosecondsPerSecond >> 16U));
}

/// Converts a span to units of 1/65536 second, rounded down; clamped to 0 and to the largest value.
constexpr std::uint32_t compactNtpOf(Duration span)
{
    if (span < Duration::zero())
    {
        return 0;
    }
    if (span >= std::chrono::seconds(65536))
    {
        return std::numeric_limits<std::uint32_t>::max();
    }
    return static_cast<std::uint32_t>((static_cast<std::uint64_t>(span.count()) << 16U) /
                                      nanosecondsPerSecond);
}

/// The clock of a track's RTP timestamps: converts between spans and ticks of its rate.
///
/// Ticks have 64 bits; the timestamp in a packet is their lower half and wraps.
class RtpClock
{
public:
    static constexpr std::uint32_t maxRate = 1'000'000'000;

    /// \param rate  Hz; clamped to 1 to maxRate
    explicit constexpr RtpClock(std::uint32_t rate) : rate_(rate < 1 ? 1 : rate > maxRate ? maxRate : rate) {}

    /// Hz.
    constexpr std::uint32_t rate() const
    {
        return rate_;
    }

    /// Ticks of a span, rounded towards zero.
    constexpr std::int64_t ticks(Duration span) const
    {
        // In two steps: the product of a day's nanoseconds and a rate would overflow.
        return span.count() / nanosecondsPerSecond * rate_ +
               span.count() % nanosecondsPerSecond * rate_ / nanosecondsPerSecond;
    }

    /// Ticks of a span, rounded to the nearest; half a tick is rounded away from zero.
    constexpr std::int64_t nearestTicks(Duration span) const
    {
        const std::int64_t half = span.count() < 0 ? -nanosecondsPerSecond / 2 : nanosecondsPerSecond / 2;
        return span.count() / nanosecondsPerSecond * rate_ +
               (span.count() % nanosecondsPerSecond * rate_ + half) / nanosecondsPerSecond;
    }

    /// The span of `ticks`, rounded towards zero; one that does not fit becomes the longest span.
    constexpr Duration span(std::int64_t ticks) const
    {
        const std::int64_t rate = rate_;
        return saturatedSum(saturatedDuration(std::chrono::seconds(ticks / rate)),
                            Duration(ticks % rate * nanosecondsPerSecond / rate));
    }

    /// The 32-bit timestamp of an instant. Only differences of such timestamps are meaningful.
    template <class Clock>
    constexpr std::uint32_t timestampAt(std::chrono::time_point<Clock, Duration> instant) const
    {
        return static_cast<std::uint32_t>(ticks(instant.time_since_epoch()));
    }

    /// Ticks from `earlier` to `later` modulo 2^32; negative when `later` precedes `earlier`.
    /// Requires: they are less than half the range apart.
    static constexpr std::int32_t difference(std::uint32_t later, std::uint32_t earlier)
    {
        return static_cast<std::int32_t>(later - earlier);
    }

    friend constexpr bool operator==(RtpClock a, RtpClock b)
    {
        return a.rate_ == b.rate_;
    }

    friend constexpr bool operator!=(RtpClock a, RtpClock b)
    {
        return !(a == b);
    }

private:
    /// \param small  magnitude less than a second; same sign as `whole`
    static constexpr Duration saturatedSum(Duration whole, Duration small)
    {
        if (small > Duration::zero())
        {
            return whole > Duration::max() - small ? Duration::max() : whole + small;
        }
        return whole < Duration::min() - small ? Duration::min() : whole + small;
    }

    std::uint32_t rate_;
};

}  // namespace refhost

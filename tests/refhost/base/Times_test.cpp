#include "refhost/base/Times.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr std::int64_t maxInt64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t minInt64 = std::numeric_limits<std::int64_t>::min();

template <class A, class B, class = void>
struct Subtractable : std::false_type
{
};

template <class A, class B>
struct Subtractable<A, B, std::void_t<decltype(std::declval<A>() - std::declval<B>())>> : std::true_type
{
};

WallTime at(std::int64_t secondsSince1970, std::int64_t rest = 0)
{
    return WallTime(seconds(secondsSince1970) + nanoseconds(rest));
}

}  // namespace

TEST(Times, InstantsOfTwoClocksDoNotMix)
{
    static_assert(Subtractable<WallTime, WallTime>::value, "");
    static_assert(Subtractable<MonotonicTime, nanoseconds>::value, "");
    static_assert(!Subtractable<WallTime, MonotonicTime>::value, "");
    static_assert(!std::is_convertible<MonotonicTime, WallTime>::value, "");
    static_assert(!std::is_convertible<std::int64_t, MonotonicTime>::value, "");
    static_assert(!std::is_constructible<WallTime, MonotonicTime>::value, "");
    static_assert(
        sizeof(MonotonicTime) == sizeof(std::int64_t) && std::is_trivially_copyable<MonotonicTime>::value,
        "");
}

TEST(Times, SpansThatFitAreExactAndOthersSaturate)
{
    EXPECT_EQ(1500ms, saturatedDuration(1500ms));
    EXPECT_EQ(-1500us, saturatedDuration(-1500us));
    EXPECT_EQ(seconds(9'223'372'036), saturatedDuration(seconds(9'223'372'036)));
    EXPECT_EQ(nanoseconds::max(), saturatedDuration(seconds(9'223'372'037)));
    EXPECT_EQ(seconds(-9'223'372'036), saturatedDuration(seconds(-9'223'372'036)));
    EXPECT_EQ(nanoseconds::min(), saturatedDuration(seconds(-9'223'372'037)));
    EXPECT_EQ(nanoseconds::max(), saturatedDuration(std::chrono::hours::max()));
    EXPECT_EQ(nanoseconds::min(), saturatedDuration(seconds::min()));
    EXPECT_EQ(nanoseconds::max(), saturatedDuration(nanoseconds::max()));
    EXPECT_EQ(nanoseconds(minInt64 + 1), saturatedDuration(nanoseconds(minInt64 + 1)));
    EXPECT_EQ(nanoseconds::max(), saturatedDuration(std::chrono::duration<std::uint64_t, std::milli>(
                                      std::numeric_limits<std::uint64_t>::max())));
    EXPECT_EQ(7ms, saturatedDuration(std::chrono::duration<std::uint32_t, std::milli>(7)));
}

TEST(Times, FractionsOfSecondsRoundToTheNearestNanosecond)
{
    using Seconds = std::chrono::duration<double>;
    EXPECT_EQ(1500ms, durationOf(Seconds(1.5)));
    EXPECT_EQ(-1500ms, durationOf(Seconds(-1.5)));
    EXPECT_EQ(100ms, durationOf(Seconds(0.1)));
    EXPECT_EQ(1ns, durationOf(Seconds(0.6e-9)));
    EXPECT_EQ(0ns, durationOf(Seconds(0.4e-9)));
    EXPECT_EQ(0ns, durationOf(Seconds(std::numeric_limits<double>::quiet_NaN())));
    EXPECT_EQ(nanoseconds::max(), durationOf(Seconds(std::numeric_limits<double>::infinity())));
    EXPECT_EQ(nanoseconds::min(), durationOf(Seconds(-std::numeric_limits<double>::infinity())));
    EXPECT_EQ(nanoseconds::max(), durationOf(Seconds(9.3e9)));
    EXPECT_EQ(nanoseconds::min(), durationOf(Seconds(-9.3e9)));
    EXPECT_DOUBLE_EQ(-2.25, secondsOf(-2250ms));
}

TEST(Times, UnixSecondsRoundDownAndBack)
{
    EXPECT_EQ(0, unixSeconds(at(0, 999'999'999)));
    EXPECT_EQ(-1, unixSeconds(at(0, -1)));
    EXPECT_EQ(1'700'000'000, unixSeconds(wallTimeOfUnix(1'700'000'000)));
    EXPECT_EQ(WallTime::max(), wallTimeOfUnix(maxInt64));
    EXPECT_EQ(WallTime::min(), wallTimeOfUnix(minInt64));
}

TEST(Times, DatesBeyondNanosecondsSaturate)
{
    const auto year9999 = WallMicroseconds(seconds(253'402'300'799));
    const auto year0 = WallMicroseconds(seconds(-62'167'219'200));
    EXPECT_EQ(WallTime::max(), saturatedWallTime(year9999));
    EXPECT_EQ(WallTime::min(), saturatedWallTime(year0));
    EXPECT_EQ(at(5, 7'000), saturatedWallTime(WallMicroseconds(5s + 7us)));
}

TEST(NtpTime, CountsFrom1900)
{
    const NtpTime epoch(at(0));
    EXPECT_EQ(2'208'988'800U, epoch.wholeSeconds());
    EXPECT_EQ(0U, epoch.fraction());
    EXPECT_EQ(0U, NtpTime(at(-2'208'988'800)).bits());
    EXPECT_EQ(1U, NtpTime(at(-2'208'988'799)).wholeSeconds());
}

TEST(NtpTime, FractionsRoundDown)
{
    EXPECT_EQ(0x80000000U, NtpTime(at(0, 500'000'000)).fraction());
    EXPECT_EQ(0x40000000U, NtpTime(at(0, 250'000'000)).fraction());
    EXPECT_EQ(4U, NtpTime(at(0, 1)).fraction());
    EXPECT_EQ(4'294'967'291U, NtpTime(at(0, 999'999'999)).fraction());
}

TEST(NtpTime, TimesBefore1970HaveAPositiveFraction)
{
    const NtpTime before(at(-1, 250'000'000));
    EXPECT_EQ(2'208'988'799U, before.wholeSeconds());
    EXPECT_EQ(0x40000000U, before.fraction());
    EXPECT_EQ(at(-1, 250'000'000), before.wallTime());
}

TEST(NtpTime, SecondsWrapIn2036AndAreUnambiguousUntil2104)
{
    constexpr std::int64_t wrap = 2'085'978'496;  // 2036-02-07T06:28:16Z
    EXPECT_EQ(0xffffffffU, NtpTime(at(wrap - 1)).wholeSeconds());
    EXPECT_EQ(0U, NtpTime(at(wrap)).wholeSeconds());
    EXPECT_EQ(at(wrap - 1), NtpTime(0xffffffffU, 0).wallTime());
    EXPECT_EQ(at(wrap), NtpTime(0U, 0U).wallTime());
    EXPECT_EQ(at(wrap, 500'000'000), NtpTime(at(wrap, 500'000'000)).wallTime());
    // The first and the last second that a timestamp can represent.
    EXPECT_EQ(at(-61'505'152), NtpTime(0x80000000U, 0).wallTime());
    EXPECT_EQ(at(4'233'462'143), NtpTime(0x7fffffffU, 0).wallTime());
    EXPECT_EQ(at(4'233'462'144), NtpTime(0x7fffffffU, 0xffffffffU).wallTime());
}

TEST(NtpTime, DateIsRestoredToTheNanosecond)
{
    for (const std::int64_t rest :
         {0, 1, 2, 3, 333'333'333, 499'999'999, 500'000'001, 999'999'998, 999'999'999})
    {
        const WallTime date = at(1'700'000'000, rest);
        EXPECT_EQ(date, NtpTime(date).wallTime()) << rest;
    }
}

TEST(NtpTime, ZeroIsUnknown)
{
    EXPECT_FALSE(NtpTime().known());
    EXPECT_TRUE(NtpTime(0U, 1U).known());
    EXPECT_EQ(NtpTime(0x1122334455667788U), NtpTime(0x11223344U, 0x55667788U));
}

TEST(NtpTime, TheCompactFormIsTheMiddle)
{
    EXPECT_EQ(0x33445566U, NtpTime(0x1122334455667788U).compact());
}

TEST(NtpTime, CompactSpansAreBounded)
{
    EXPECT_EQ(0x18000U, compactNtpOf(1500ms));
    EXPECT_EQ(0U, compactNtpOf(-1ns));
    EXPECT_EQ(0U, compactNtpOf(15'258ns));
    EXPECT_EQ(1U, compactNtpOf(15'259ns));
    EXPECT_EQ(0xffffffffU, compactNtpOf(65536s - 1ns));
    EXPECT_EQ(0xffffffffU, compactNtpOf(65536s));
    EXPECT_EQ(0xffffffffU, compactNtpOf(nanoseconds::max()));
    EXPECT_EQ(1500ms, spanOfCompactNtp(0x18000U));
    EXPECT_EQ(15'258ns, spanOfCompactNtp(1));
    EXPECT_EQ(65535s + 999'984'741ns, spanOfCompactNtp(0xffffffffU));
}

TEST(RtpClock, TicksRoundTowardsZero)
{
    constexpr RtpClock video(90'000);
    EXPECT_EQ(90'000, video.ticks(1s));
    EXPECT_EQ(0, video.ticks(11'111ns));
    EXPECT_EQ(1, video.ticks(11'112ns));
    EXPECT_EQ(0, video.ticks(-11'111ns));
    EXPECT_EQ(-1, video.ticks(-11'112ns));
    EXPECT_EQ(160, RtpClock(8'000).ticks(20ms));
    EXPECT_EQ(960, RtpClock(48'000).ticks(20ms));
    EXPECT_EQ(-960, RtpClock(48'000).ticks(-20ms));
}

TEST(RtpClock, NearestTicksRoundHalfAwayFromZero)
{
    constexpr RtpClock audio(8'000);
    EXPECT_EQ(0, audio.nearestTicks(62'499ns));
    EXPECT_EQ(1, audio.nearestTicks(62'500ns));
    EXPECT_EQ(-1, audio.nearestTicks(-62'500ns));
    EXPECT_EQ(0, audio.nearestTicks(-62'499ns));
    EXPECT_EQ(8'000, audio.nearestTicks(1s - 1ns));
    EXPECT_EQ(3'003, RtpClock(90'000).nearestTicks(33'366'667ns));
}

TEST(RtpClock, NoSpanOverflows)
{
    for (const std::uint32_t rate : {1U, 8'000U, 48'000U, 90'000U, RtpClock::maxRate})
    {
        const RtpClock clock(rate);
        const std::int64_t whole = 9'223'372'036 * std::int64_t{rate};
        EXPECT_LE(whole, clock.ticks(nanoseconds::max()));
        EXPECT_GE(-whole, clock.ticks(nanoseconds::min()));
        EXPECT_LE(whole, clock.nearestTicks(nanoseconds::max()));
        EXPECT_GE(-whole, clock.nearestTicks(nanoseconds::min()));
    }
    EXPECT_EQ(maxInt64, RtpClock(RtpClock::maxRate).ticks(nanoseconds::max()));
}

TEST(RtpClock, SpansOfTicksSaturate)
{
    EXPECT_EQ(20ms, RtpClock(48'000).span(960));
    EXPECT_EQ(-20ms, RtpClock(8'000).span(-160));
    EXPECT_EQ(11'111ns, RtpClock(90'000).span(1));
    EXPECT_EQ(-11'111ns, RtpClock(90'000).span(-1));
    EXPECT_EQ(nanoseconds::max(), RtpClock(90'000).span(maxInt64));
    EXPECT_EQ(nanoseconds::min(), RtpClock(90'000).span(minInt64));
    EXPECT_EQ(nanoseconds::max(), RtpClock(RtpClock::maxRate).span(maxInt64));
    EXPECT_EQ(nanoseconds::max(), RtpClock(1).span(9'223'372'037));
    EXPECT_EQ(seconds(9'223'372'036), RtpClock(1).span(9'223'372'036));
}

TEST(RtpClock, AWholeDayIsExact)
{
    for (const std::uint32_t rate : {8'000U, 48'000U, 90'000U})
    {
        const RtpClock clock(rate);
        EXPECT_EQ(86'400 * std::int64_t{rate}, clock.ticks(24h));
        EXPECT_EQ(24h, clock.span(86'400 * std::int64_t{rate}));
    }
}

TEST(RtpClock, RatesAreClamped)
{
    EXPECT_EQ(1U, RtpClock(0).rate());
    EXPECT_EQ(RtpClock::maxRate, RtpClock(std::numeric_limits<std::uint32_t>::max()).rate());
    EXPECT_EQ(RtpClock(1), RtpClock(0));
    EXPECT_NE(RtpClock(8'000), RtpClock(48'000));
}

TEST(RtpClock, TimestampsWrap)
{
    constexpr RtpClock video(90'000);
    const auto base = MonotonicTime(1'000'000s);
    EXPECT_EQ(static_cast<std::uint32_t>(90'000'000'000), video.timestampAt(base));
    EXPECT_EQ(3'600, RtpClock::difference(video.timestampAt(base + 40ms), video.timestampAt(base)));
    EXPECT_EQ(2, RtpClock::difference(1U, 0xffffffffU));
    EXPECT_EQ(-2, RtpClock::difference(0xffffffffU, 1U));
}

}  // namespace refhost

#pragma once
// Tested by tests/refhost/live/LiveTrack_test.cpp.

#include <cstddef>
#include <cstdint>

#include "refhost/base/HostClock.h"
#include "refhost/rtp/LiveStart.h"

namespace refhost
{

/// How the live dispatch behaves. A plain value.
struct LiveSettings
{
    /// How viewers start who do not ask for something else.
    LiveStart start;
    /// Most that one track keeps of the past, in bytes of packets and in access units.
    std::size_t ringBytes = 8U << 20U;
    std::size_t ringUnits = 4096;
    /// How long, in milliseconds, a viewer's transport may be congested before he loses access units: frames up
    /// to the newest key frame, audio up to now.
    std::int64_t videoLagMs = 500;
    std::int64_t audioLagMs = 1000;
    /// How long, in milliseconds, audio may wait for the next frame to travel with it, where that is
    /// cheaper.
    std::int64_t audioWaitMs = 60;
    /// Mean time between two RTCP sender reports, milliseconds.
    std::int64_t reportIntervalMs = 5000;
    /// Not null, outlives the dispatcher.
    const HostClock* clock = &HostClock::system();
};

}  // namespace refhost

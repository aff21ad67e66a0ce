#pragma once
// Tested by tests/refhost/live/LiveTrack_test.cpp.

#include <chrono>
#include <cstddef>

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
    /// How long a viewer's transport may be congested before he loses access units: frames up
    /// to the newest key frame, audio up to now.
    Duration maxVideoLag = std::chrono::milliseconds(500);
    Duration maxAudioLag = std::chrono::seconds(1);
    /// How long audio may wait for the next frame to travel with it, where that is
    /// cheaper.
    Duration maxAudioWait = std::chrono::milliseconds(60);
    /// Mean time between two RTCP sender reports.
    Duration reportInterval = std::chrono::seconds(5);
    /// Not null, outlives the dispatcher.
    const HostClock* clock = &HostClock::system();
};

}  // namespace refhost

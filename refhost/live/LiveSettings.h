#pragma once
// Tested by tests/refhost/live/LiveTrack_test.cpp.

#include <chrono>
#include <cstddef>

#include "refhost/base/HostClock.h"
#include "refhost/rtp/LiveStart.h"

namespace refhost
{

/// The settings of the live dispatch. A plain value.
struct LiveSettings
{
    /// How viewers start unless they request otherwise.
    LiveStart start;
    /// The largest ring of a track, in bytes of packets and in access units.
    std::size_t ringBytes = 8U << 20U;
    std::size_t ringUnits = 4096;
    /// How long a viewer's transport may be congested before access units are skipped: video up to the newest
    /// key frame, audio up to now.
    Duration maxVideoLag = std::chrono::milliseconds(500);
    Duration maxAudioLag = std::chrono::seconds(1);
    /// How long audio may wait to be sent with the next frame, where that is cheaper.
    Duration maxAudioWait = std::chrono::milliseconds(60);
    /// Mean interval of RTCP sender reports.
    Duration reportInterval = std::chrono::seconds(5);
    /// Not null, outlives the dispatcher.
    const HostClock* clock = &HostClock::system();
};

}  // namespace refhost

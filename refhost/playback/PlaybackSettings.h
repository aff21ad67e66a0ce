#pragma once
// Tested by tests/refhost/playback/PlaybackDispatcher_test.cpp.

#include <chrono>
#include <cstddef>

#include "refhost/base/HostClock.h"
#include "refhost/playback/ReadAheadBudget.h"

namespace refhost
{

/// Parameters of playback. A plain value.
struct PlaybackSettings
{
    /// How far a session reads ahead of what it sends: player's time and bytes of packets. The bytes take
    /// precedence; where they hold less than the time, the recording is read as it is sent.
    Duration readAhead = std::chrono::seconds(1);
    std::size_t readAheadBytes = 1U << 20U;
    /// Shared by all sessions. Not null, outlives every session.
    ReadAheadBudget* readAheadBudget = &ReadAheadBudget::system();
    /// A session that is later than this continues at its pace instead of catching up; over UDP sooner,
    /// because packets of a burst are lost.
    Duration maxDelay = std::chrono::seconds(2);
    Duration maxDelayOfDatagrams = std::chrono::milliseconds(200);
    /// How long due units of a track that does not play wait for its play() while another track plays; then
    /// they are skipped.
    Duration startTogether = std::chrono::milliseconds(200);
    /// Delay of BYE after the last packet over UDP: a client that reads RTCP first would end before it has
    /// read that packet.
    Duration byeDelay = std::chrono::milliseconds(100);
    /// Retry interval for a transport that does not report when it is ready.
    Duration retryInterval = std::chrono::milliseconds(5);
    /// Retry interval at the end of a recording that still grows.
    Duration growthInterval = std::chrono::milliseconds(200);
    /// Max. silence of a client over UDP before it counts as gone; 0: no limit.
    Duration maxSilence{};
    /// Mean time between two RTCP sender reports.
    Duration reportInterval = std::chrono::seconds(5);
    /// Not null, outlives every session.
    const HostClock* clock = &HostClock::system();
};

}  // namespace refhost

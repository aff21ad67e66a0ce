#pragma once
// Tested by tests/refhost/playback/PlaybackDispatcher_test.cpp.

#include <cstddef>
#include <cstdint>

#include "refhost/base/HostClock.h"
#include "refhost/playback/ReadAheadBudget.h"

namespace refhost
{

/// How playback behaves. A plain value.
struct PlaybackSettings
{
    /// How far a session reads ahead of what it sends: seconds of the player's time, in milliseconds, and
    /// bytes of packets. The bytes are the firmer limit; where they hold less than the time, recorded media is read
    /// as it is sent.
    std::int64_t readAheadMs = 1000;
    std::size_t readAheadBytes = 1U << 20U;
    /// What all sessions read ahead together. Not null, outlives every session.
    ReadAheadBudget* readAheadBudget = &ReadAheadBudget::system();
    /// A session that comes to send later than this, milliseconds, goes on at its pace from there instead of
    /// catching up; over UDP sooner, because what goes out in a burst is lost.
    std::int64_t lateMs = 2000;
    std::int64_t lateDatagramsMs = 200;
    /// How long, in milliseconds, what is due for a track that does not play waits for its play() while
    /// another track of the session plays; then it is left out.
    std::int64_t togetherMs = 200;
    /// How long BYE stays behind the last packet over UDP, milliseconds: a client that reads RTCP first would
    /// end before it has read that packet.
    std::int64_t byeDelayMs = 100;
    /// How soon, in milliseconds, a transport that cannot tell when it is free is tried again.
    std::int64_t retryMs = 5;
    /// How soon, in milliseconds, a recording that still grows is read again at its end.
    std::int64_t growthMs = 200;
    /// How long a client over UDP may give no sign of life until it counts as gone, milliseconds; 0: for
    /// ever.
    std::int64_t silenceMs = 0;
    /// Mean time between two RTCP sender reports, milliseconds.
    std::int64_t reportIntervalMs = 5000;
    /// Not null, outlives every session.
    const HostClock* clock = &HostClock::system();
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/playback/PlaybackDispatcher_test.cpp.

#include <chrono>
#include <cstddef>

#include "refhost/base/HostClock.h"
#include "refhost/playback/ReadAheadBudget.h"

namespace refhost
{

/// How playback behaves. A plain value.
struct PlaybackSettings
{
    /// How far a session reads ahead of what it sends: the player's time, and bytes of packets. The bytes are
    /// the firmer limit; where they hold less than the time, the recording is read as it is sent.
    Duration readAhead = std::chrono::seconds(1);
    std::size_t readAheadBytes = 1U << 20U;
    /// What all sessions read ahead together. Not null, outlives every session.
    ReadAheadBudget* readAheadBudget = &ReadAheadBudget::system();
    /// A session that comes to send later than this goes on at its pace from there instead of catching up;
    /// over UDP sooner, because what goes out in a burst is lost.
    Duration maxDelay = std::chrono::seconds(2);
    Duration maxDelayOfDatagrams = std::chrono::milliseconds(200);
    /// How long what is due for a track that does not play waits for its play() while another track of the
    /// session plays; then it is left out.
    Duration startTogether = std::chrono::milliseconds(200);
    /// How long BYE stays behind the last packet over UDP: a client that reads RTCP first would end before it
    /// has read that packet.
    Duration byeDelay = std::chrono::milliseconds(100);
    /// How soon a transport that does not report when it is ready is tried again.
    Duration retryInterval = std::chrono::milliseconds(5);
    /// How soon a recording that still grows is read again at its end.
    Duration growthInterval = std::chrono::milliseconds(200);
    /// How long a client over UDP may be silent until it counts as gone; 0: for ever.
    Duration maxSilence{};
    /// Mean time between two RTCP sender reports.
    Duration reportInterval = std::chrono::seconds(5);
    /// Not null, outlives every session.
    const HostClock* clock = &HostClock::system();
};

}  // namespace refhost

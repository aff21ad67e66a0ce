#pragma once

#include <atomic>
#include <cstdint>

#include "refhost/base/DurationHistogram.h"

namespace refhost
{

/// Figures of the whole process for monitoring, each counted where something rare happens: a start, a report, a write to
/// the disk. So nothing that is done for each packet counts here. Threads: any; no lock.
struct ServerFigures
{
    using Count = std::atomic<std::uint64_t>;

    /// Those of this process.
    static ServerFigures& instance()
    {
        static ServerFigures figures;
        return figures;
    }

    /// Adds to a count without ordering anything else.
    static void add(Count& count, std::uint64_t more = 1)
    {
        count.fetch_add(more, std::memory_order_relaxed);
    }

    DurationHistogram
        liveJoins;         ///< from PLAY of a live stream to its first frame, or audio where it has no video
    Count liveSkipped{0};  ///< frames and audio left out for clients that read too slowly
    DurationHistogram receiverJitter;   ///< as each reception report of RTCP says
    DurationHistogram recordingWrites;  ///< of what was gathered of a recording to its file
    Count playbackSeeks{0};             ///< positions that were searched in recordings
    Count talkSessions{0};              ///< sessions whose audio is received at present
    Count talkPackets{0};               ///< RTP packets of talk-back
    Count talkLost{0};                  ///< those that did not come in time, and were concealed
};

}  // namespace refhost

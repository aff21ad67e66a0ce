#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "bench/load/Report.h"

namespace rtspload
{

/// Judges whether the frames of a track come in time: by their timestamps, compared with the frame of the track that
/// came earliest. Meant for media that are sent at their pace from the start on, such as recordings; a live stream
/// begins with a burst.
class Pace
{
public:
    /// A packet has arrived; the first one of each frame counts. \param timestamp  in ticks of 90 kHz
    void onPacket(std::uint32_t timestamp, std::int64_t nowNs);

    /// Adds how late each frame was.
    void addTo(Latencies& late) const;

private:
    std::optional<std::uint32_t> last_;
    std::int64_t ticks_ = 0;  ///< from the first frame to the last
    std::int64_t firstNs_ = 0;
    std::vector<std::int32_t> offsetsUs_;  ///< of arrivals from what the timestamps say
};

}  // namespace rtspload

#pragma once

#include <functional>
#include <optional>
#include <queue>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// Derives the decode times of a stream's frames from their presentation times, for sources that provide only
/// the latter (RTP, Matroska).
///
/// The decode time of the n-th frame is the presentation time of the frame presented (n - depth)-th. Thus
/// decode times increase, none is later than the frame's presentation, and no frame has to wait until later
/// ones are known. Before the first key frame, where nothing can be decoded, and for leading frames of it, the
/// presentation time is returned.
///
/// When presentation times contradict the depth, a frame that is presented before the last decode time gets
/// its presentation time: decode times go back there, and the depth increases by one. Threads: one at a time.
class DecodeTimes
{
public:
    /// Takes effect with the next frame.
    /// \param depth  of reordering, as ReorderDepth returns it; clamped to ReorderDepth::max
    void setDepth(unsigned depth);

    /// Adds the next frame in decoding order.
    /// \param duration  of its presentation; 0 when unknown
    /// \returns its decode time
    MonotonicTime next(MonotonicTime presentation, Duration duration, bool keyFrame);

    /// A discontinuity: the next frame does not follow the previous one.
    void reset();

private:
    void start(MonotonicTime presentation, Duration duration);
    MonotonicTime deepen(MonotonicTime presentation);

    unsigned depth_ = 0;
    /// Presentation times not used as decode times yet; at most depth_ between two frames.
    std::priority_queue<MonotonicTime, std::vector<MonotonicTime>, std::greater<>> waiting_;
    std::optional<MonotonicTime> last_;       ///< decode time of the last frame
    std::optional<MonotonicTime> lastTaken_;  ///< last presentation time used as decode time
    MonotonicTime start_;                     ///< presentation time of the first key frame
};

}  // namespace refhost

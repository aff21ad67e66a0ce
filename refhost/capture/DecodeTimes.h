#pragma once

#include <functional>
#include <optional>
#include <queue>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// Derives when the frames of a stream are to be decoded from when they are presented, for streams whose
/// sources give the latter alone (RTP, Matroska).
///
/// The n-th frame is decoded when the frame that is presented (n - depth)-th is: by then everything that it
/// needs has come, and what is presented first has been decoded. So decode times grow, none is later than the
/// frame's presentation, and no frame has to wait for those behind it to be known. Before the first key
/// frame, where nothing can be decoded, and for frames that lead it, the presentation is returned.
///
/// Presentation times that contradict the depth cannot be served: a frame that is presented before the last
/// decode time gets its presentation time, so that decode times go back there, and from then on one frame
/// more is expected to be reordered. Threads: one at a time.
class DecodeTimes
{
public:
    /// Takes effect with the next frame. \param depth  as ReorderDepth returns it
    void setDepth(unsigned depth);

    /// The next frame in decoding order.
    /// \param duration  how long it is presented; 0 when unknown
    /// \returns when it is decoded
    MonotonicTime next(MonotonicTime presentation, Duration duration, bool keyFrame);

    /// What comes next does not follow what came before.
    void reset();

private:
    void start(MonotonicTime presentation, Duration duration);
    MonotonicTime deepen(MonotonicTime presentation);

    unsigned depth_ = 0;
    /// Presentation times that no decode time was derived from yet; no more than depth_ between two frames.
    std::priority_queue<MonotonicTime, std::vector<MonotonicTime>, std::greater<>> waiting_;
    std::optional<MonotonicTime> last_;       ///< decode time of the last frame
    std::optional<MonotonicTime> lastTaken_;  ///< presentation time that a decode time was derived from last
    MonotonicTime start_;                     ///< presentation of the first key frame
};

}  // namespace refhost

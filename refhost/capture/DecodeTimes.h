#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <queue>
#include <vector>

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
/// more is expected to be reordered. All times are nanoseconds. Threads: one at a time.
class DecodeTimes
{
public:
    /// Takes effect with the next frame. \param depth  as ReorderDepth returns it
    void setDepth(unsigned depth);

    /// The next frame in decoding order.
    /// \param durationNs  how long it is presented; 0 when unknown
    /// \returns when it is decoded
    std::int64_t next(std::int64_t presentationNs, std::int64_t durationNs, bool keyFrame);

    /// What comes next does not follow what came before.
    void reset();

private:
    void start(std::int64_t presentationNs, std::int64_t durationNs);
    std::int64_t deepen(std::int64_t presentationNs);

    unsigned depth_ = 0;
    /// Presentation times that no decode time was derived from yet; no more than depth_ between two frames.
    std::priority_queue<std::int64_t, std::vector<std::int64_t>, std::greater<>> waiting_;
    std::optional<std::int64_t> last_;       ///< decode time of the last frame
    std::optional<std::int64_t> lastTaken_;  ///< presentation time that a decode time was derived from last
    std::int64_t startNs_ = 0;               ///< presentation of the first key frame
};

}  // namespace refhost

#pragma once

#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/rtp/multicast/MulticastGroup.h"

namespace refhost
{

/// Assigns multicast groups to camera streams.
///
/// A stream has the group that the configuration fixes for it, or one of the pool while a lease exists. No
/// two streams share a group's ports. A stream gets its previous group again unless another one needed it.
/// Threads: any; one lock of its own.
class MulticastPool
{
public:
    /// Camera and stream number.
    using Stream = std::pair<int, int>;
    /// A group in use; released with the last handle.
    using Lease = std::shared_ptr<const MulticastGroup>;

    struct Settings
    {
        MulticastRange range;
        int port = 5004;  ///< of the pool's first group, even; each further one has the next ports
        std::map<Stream, MulticastGroup> fixed;
    };

    explicit MulticastPool(Settings settings);

    /// Takes the stream's group, shared with its other holders.
    /// \returns null when every group is in use
    Lease take(Stream stream);

    /// The group that take() would give now, and gives later unless there are more streams than groups.
    std::optional<MulticastGroup> preview(Stream stream);

    /// Groups in use, fixed ones included.
    std::size_t taken() const;

private:
    struct Slot
    {
        MulticastGroup group;
        Stream stream;
        std::weak_ptr<const MulticastGroup> lease;
    };

    Slot* slotFor(Stream stream) OV_REQUIRES(mutex_);
    Slot* grow(Stream stream) OV_REQUIRES(mutex_);

    const Settings settings_;
    mutable Mutex mutex_;
    std::vector<Slot> slots_ OV_GUARDED_BY(mutex_);  // by first use; at most one per stream
    std::uint32_t next_ OV_GUARDED_BY(mutex_) = 0;   // offset of the first address without a slot
    int nextPort_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

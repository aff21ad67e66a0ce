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

/// Which camera stream has which multicast group.
///
/// A stream has the group that the configuration fixes for it, or one of the pool while somebody holds it; no
/// two streams ever share group and port. A stream keeps coming back to the group that it had, as long as no
/// other one needs it. Threads: any; one lock of its own.
class MulticastPool
{
public:
    /// Camera and stream number.
    using Stream = std::pair<int, int>;
    /// A group in use; free again with the last handle.
    using Lease = std::shared_ptr<const MulticastGroup>;

    struct Settings
    {
        MulticastRange range;
        int port = 5004;  ///< of the pool's first group, even; each further one has the next ports
        std::map<Stream, MulticastGroup> fixed;
    };

    explicit MulticastPool(Settings settings);

    /// Takes the stream's group, or shares it with who has it already.
    /// \returns null when every group is in use
    Lease take(Stream stream);

    /// The group that take() would give now; take() gives the same later, unless the pool is smaller than
    /// the number of streams.
    std::optional<MulticastGroup> preview(Stream stream);

    /// How many groups of the pool and fixed ones are in use.
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
    std::vector<Slot> slots_
        OV_GUARDED_BY(mutex_);  // in the order of their first use; no more than there are streams
    std::uint32_t next_ OV_GUARDED_BY(mutex_) = 0;  // offset in the range of the first address without a slot
    int nextPort_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

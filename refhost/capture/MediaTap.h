#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/capture/SourceCounts.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// The sinks of a stream's encoded media. It lives as long as the stream, across restarts of its source.
///
/// Threads: any; a sink must not add or remove sinks from within its calls.
class MediaTap
{
public:
    void add(std::shared_ptr<EncodedUnitSink> sink);
    /// Once this returns, the sink is not called.
    void remove(const EncodedUnitSink* sink);

    /// Cheap; while true, no units need to be made.
    bool isEmpty() const
    {
        return count_.load(std::memory_order_relaxed) == 0;
    }

    /// Whoever reads the source counts here what comes, whether somebody takes it or not.
    SourceCounts& counts()
    {
        return counts_;
    }
    const SourceCounts& counts() const
    {
        return counts_;
    }

    void deliver(const EncodedUnitPtr& unit);
    void discontinuity();

private:
    Mutex mutex_;
    std::vector<std::shared_ptr<EncodedUnitSink>> sinks_ OV_GUARDED_BY(mutex_);
    std::atomic<std::size_t> count_{0};
    SourceCounts counts_;
};

}  // namespace refhost

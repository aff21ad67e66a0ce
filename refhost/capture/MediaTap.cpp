#include "refhost/capture/MediaTap.h"

#include <algorithm>
#include <utility>

namespace refhost
{

void MediaTap::add(std::shared_ptr<EncodedUnitSink> sink)
{
    const MutexLock guard(mutex_);
    sinks_.push_back(std::move(sink));
    count_ = sinks_.size();
}

void MediaTap::remove(const EncodedUnitSink* sink)
{
    const MutexLock guard(mutex_);
    const auto gone = std::remove_if(sinks_.begin(), sinks_.end(),
                                     [sink](const auto& entry) { return entry.get() == sink; });
    sinks_.erase(gone, sinks_.end());
    count_ = sinks_.size();
}

void MediaTap::deliver(const EncodedUnitPtr& unit)
{
    const MutexLock guard(mutex_);
    for (const std::shared_ptr<EncodedUnitSink>& sink : sinks_)
    {
        sink->onEncodedUnit(unit);
    }
}

void MediaTap::discontinuity()
{
    const MutexLock guard(mutex_);
    for (const std::shared_ptr<EncodedUnitSink>& sink : sinks_)
    {
        sink->onDiscontinuity();
    }
}

}  // namespace refhost

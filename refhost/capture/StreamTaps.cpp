#include "refhost/capture/StreamTaps.h"

#include <utility>
#include <vector>

namespace refhost
{

bool StreamTaps::add(const std::string& trackId, int payloadSize, std::shared_ptr<AccessUnitSink> sink)
{
    const MutexLock guard(mutex_);
    std::shared_ptr<PacketTap>& tap = taps_[{trackId, payloadSize}];
    const bool isNew = !tap;
    if (isNew)
    {
        tap = std::make_shared<PacketTap>();
    }
    tap->add(std::move(sink));
    return isNew;
}

bool StreamTaps::remove(const AccessUnitSink* sink)
{
    std::vector<std::shared_ptr<PacketTap>> taps;
    {
        const MutexLock guard(mutex_);
        for (const auto& [key, tap] : taps_)
        {
            taps.push_back(tap);
        }
    }
    bool emptied = false;
    // Without the lock: PacketTap::remove() waits for a delivery, in which the sink may call the stream.
    for (const std::shared_ptr<PacketTap>& tap : taps)
    {
        emptied = (tap->remove(sink) && tap->isEmpty()) || emptied;
    }
    return emptied;
}

SourceRun::Taps StreamTaps::inUse()
{
    const MutexLock guard(mutex_);
    for (auto tap = taps_.begin(); tap != taps_.end();)
    {
        tap = tap->second->isEmpty() ? taps_.erase(tap) : std::next(tap);
    }
    return taps_;
}

}  // namespace refhost

#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/media/AccessUnit.h"

namespace refhost
{

/// The sinks of one track at one payload size. It lives as long as somebody is attached, through stops and
/// starts of the source.
///
/// Threads: any for every operation; a sink may call back into its stream.
class PacketTap
{
public:
    void add(std::shared_ptr<AccessUnitSink> sink);
    /// \returns true when the sink was here; it is not called any more after the return
    bool remove(const AccessUnitSink* sink);
    bool isEmpty() const;

    /// Hands a unit to the sinks; a sink that is new, or that saw a discontinuity, starts with a key unit.
    void deliver(const AccessUnitPtr& unit);
    /// Tells the sinks that what comes next does not continue what came before.
    void discontinuity();

private:
    struct Entry
    {
        std::shared_ptr<AccessUnitSink> sink;
        bool started = false;
        std::atomic<bool> removed{false};
    };
    using Entries = std::vector<std::shared_ptr<Entry>>;

    std::shared_ptr<const Entries> snapshot() const;

    mutable Mutex listMutex_;
    std::shared_ptr<const Entries> entries_ OV_GUARDED_BY(listMutex_) = std::make_shared<Entries>();
    /// Held while sinks are called; recursive because a sink may detach itself.
    std::recursive_mutex deliveryMutex_;
};

}  // namespace refhost

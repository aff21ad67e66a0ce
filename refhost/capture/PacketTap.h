#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/media/AccessUnit.h"

namespace refhost
{

/// The sinks of one track at one payload size. It lives as long as a sink is attached, across restarts of the
/// source.
///
/// Threads: any; a sink may call its stream from within its calls, and detach itself.
class PacketTap
{
public:
    void add(std::shared_ptr<AccessUnitSink> sink);
    /// \returns true when the sink was attached; it is not called once this returns
    bool remove(const AccessUnitSink* sink);
    bool isEmpty() const;

    /// Delivers a unit to the sinks; a new sink, or one after a discontinuity, starts with a key frame.
    void deliver(const AccessUnitPtr& unit);
    /// Notifies the sinks that later units do not continue earlier ones.
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

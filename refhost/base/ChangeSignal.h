#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// Notifies subscribers that an operation may succeed now that did not before: a camera's stream was
/// described, a recording was opened, a playback session finished its seek. Retry an operation that returned
/// hostStreamNotReady.
///
/// The signal does not say what changed; a subscriber checks for itself. An announcement wakes every
/// subscriber: announce changes of state, not progress.
///
/// Threads: any; functions are called one at a time, on the announcing thread, without a lock of the
/// subscriber's.
class ChangeSignal
{
public:
    /// The signal of this process, on which cameras, recordings and playback sessions announce.
    static ChangeSignal& instance();

    ChangeSignal() = default;
    ChangeSignal(const ChangeSignal&) = delete;
    ChangeSignal& operator=(const ChangeSignal&) = delete;

    /// Calls `changed` at every announcement. It must not block.
    /// \returns the subscription's id, for unsubscribe()
    int subscribe(std::function<void()> changed);
    /// Once this returns, the function is not called again. A function may unsubscribe itself; its present
    /// call then ends normally.
    void unsubscribe(int id);

    /// Calls every subscriber. A subscriber may announce in turn.
    /// Requires: the caller holds no lock that a subscriber takes.
    void announce();

    std::size_t subscriberCount() const;

private:
    std::vector<int> ids() const;
    std::function<void()> find(int id) const;

    mutable Mutex listMutex_;
    std::map<int, std::function<void()>> functions_ OV_GUARDED_BY(listMutex_);
    int lastId_ OV_GUARDED_BY(listMutex_) = 0;
    std::recursive_mutex callMutex_;
};

}  // namespace refhost

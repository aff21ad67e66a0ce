#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// Tells that something became possible that was not before: a camera's stream was described, a recording was
/// opened, a playback session found its place. An operation that answered hostStreamNotReady is worth another
/// try then.
///
/// Says nothing about what changed: whoever listens asks again. Announcing is cheap, but wakes everybody who
/// waits; announce changes of state, not progress.
///
/// Threads: any; functions are called one at a time, on the announcing thread, without a lock of the
/// caller's.
class ChangeSignal
{
public:
    /// The signal of this process, on which cameras, recordings and playback sessions announce.
    static ChangeSignal& instance();

    ChangeSignal() = default;
    ChangeSignal(const ChangeSignal&) = delete;
    ChangeSignal& operator=(const ChangeSignal&) = delete;

    /// Has `changed` called at every announcement. It must not block.
    /// \returns a number for unsubscribe()
    int subscribe(std::function<void()> changed);
    /// After the return the function is not called any more, unless it is this very call that it comes out
    /// of.
    void unsubscribe(int id);

    /// Not with a lock held that a subscriber may want. A subscriber may announce in turn.
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

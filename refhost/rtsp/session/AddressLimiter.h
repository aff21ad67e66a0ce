#pragma once

#include <cstddef>
#include <unordered_map>

#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Limits items (connections, sessions) in total and per address, as SocketAddress::networkOf() gives it.
/// Holds at most one address per item. Threads: any; one lock of its own.
class AddressLimiter
{
public:
    AddressLimiter(int limit, int limitPerAddress);

    /// Counts one more.
    /// \returns false, with nothing counted, when a limit is reached
    bool take(const SocketAddress::Key& address);
    /// Uncounts one. Requires: take() counted it.
    void giveBack(const SocketAddress::Key& address);

    /// From now on these limits hold; what was counted beyond them stays.
    void setLimits(int limit, int limitPerAddress);

    std::size_t count() const;

private:
    mutable Mutex mutex_;
    std::size_t limit_ OV_GUARDED_BY(mutex_);
    int limitPerAddress_ OV_GUARDED_BY(mutex_);
    std::size_t count_ OV_GUARDED_BY(mutex_) = 0;
    std::unordered_map<SocketAddress::Key, int, SocketAddress::KeyHash> byAddress_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

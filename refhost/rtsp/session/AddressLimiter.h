#pragma once

#include <cstddef>
#include <unordered_map>

#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Counts things (connections, sessions) in all and by the address they belong to, and refuses more than
/// allowed. Addresses are those of SocketAddress::networkOf(). Holds as many addresses as things. Threads:
/// any; one lock of its own.
class AddressLimiter
{
public:
    AddressLimiter(int limit, int limitPerAddress);

    /// Counts one more.
    /// \returns false, with nothing counted, when a limit is reached
    bool take(const SocketAddress::Key& address);
    /// Gives one back that take() counted.
    void giveBack(const SocketAddress::Key& address);

    std::size_t count() const;

private:
    const std::size_t limit_;
    const int limitPerAddress_;
    mutable Mutex mutex_;
    std::size_t count_ OV_GUARDED_BY(mutex_) = 0;
    std::unordered_map<SocketAddress::Key, int, SocketAddress::KeyHash> byAddress_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

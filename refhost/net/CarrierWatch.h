#pragma once
// Tested by tests/refhost/net/ByteStreamContract_test.cpp.

#include <cstdint>
#include <utility>

#include "refhost/net/ByteStream.h"

namespace refhost
{

/// What a stream watches the stream that carries it for, which is called for changes alone. Threads: one at a time.
class CarrierWatch
{
public:
    /// \param events  of ByteStream::receivable and sendable
    void set(ByteStream& carrier, std::uint32_t events)
    {
        const std::uint32_t changed = std::exchange(watched_, events) ^ events;
        if ((changed & ByteStream::receivable) != 0)
        {
            carrier.watchReceive((events & ByteStream::receivable) != 0);
        }
        if ((changed & ByteStream::sendable) != 0)
        {
            carrier.watchSend((events & ByteStream::sendable) != 0);
        }
    }

private:
    std::uint32_t watched_ = ByteStream::receivable;  // as of a stream that was just made
};

}  // namespace refhost

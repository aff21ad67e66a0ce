#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <atomic>
#include <cstdint>
#include <memory>

namespace refhost
{

/// All deliveries of one pipeline check this gate; once shut, nothing more is delivered. Threads: any.
class DeliveryGate
{
public:
    using Ptr = std::shared_ptr<DeliveryGate>;

    void shut()
    {
        open_ = false;
    }

    bool isOpen() const
    {
        return open_;
    }

    /// Counts a packet of any track.
    void countPacket()
    {
        packets_.fetch_add(1, std::memory_order_relaxed);
    }

    std::uint64_t packetCount() const
    {
        return packets_;
    }

private:
    std::atomic<bool> open_{true};
    std::atomic<std::uint64_t> packets_{0};
};

}  // namespace refhost

#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// The packets received from one talk-back client: network threads put them in, the worker takes them out.
/// Bounded: when full, it drops the oldest packet. Threads: any.
class TalkReceiveQueue : public TransportListener
{
public:
    /// One received packet.
    struct Packet
    {
        std::vector<std::uint8_t> bytes;
        MonotonicTime arrival;
    };

    explicit TalkReceiveQueue(const HostClock& clock);

    void onTransportReady() override {}
    void onRtp(const std::uint8_t* data, std::size_t size) override;
    void onRtcp(const std::uint8_t* data, std::size_t size) override;

    /// Starts or stops taking packets, and clears the queue. Closed at first.
    void open();
    void close();

    /// Takes the oldest packet; the memory of `out` is reused for later packets.
    /// \returns false when none waits
    bool takeRtp(Packet& out);
    bool takeRtcp(Packet& out);

    /// Packets dropped since open(), for lack of room or as too long.
    std::uint64_t overrun() const;

private:
    template <std::size_t room>
    struct Queue
    {
        std::array<Packet, room> packets;
        std::size_t first = 0;
        std::atomic<std::size_t> count{
            0};  // written under the mutex; also read without, to see that none waits
    };

    template <std::size_t room>
    void put(Queue<room>& queue, const std::uint8_t* data, std::size_t size);
    template <std::size_t room>
    bool take(Queue<room>& queue, Packet& out);
    void setOpen(bool open);

    const HostClock& clock_;
    Mutex mutex_;
    bool open_ OV_GUARDED_BY(mutex_) = false;
    // Their packets are read and written under the mutex; their counts are also read without.
    Queue<64> rtp_;
    Queue<8> rtcp_;
    std::atomic<std::uint64_t> overrun_{0};
};

}  // namespace refhost

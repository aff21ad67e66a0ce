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

/// What came from one talk-back client and was not looked at yet: threads of the network put packets in, the
/// worker takes them out. Bounded; when it is full the oldest packet goes. Threads: any.
class TalkReceiveQueue : public TransportListener
{
public:
    /// One packet as it came.
    struct Packet
    {
        std::vector<std::uint8_t> bytes;
        MonotonicTime arrival;
    };

    explicit TalkReceiveQueue(const HostClock& clock);

    void onTransportReady() override {}
    void onRtp(const std::uint8_t* data, std::size_t size) override;
    void onRtcp(const std::uint8_t* data, std::size_t size) override;

    /// Packets are taken in from now on, or dropped where they come; what waits is dropped either way. Closed
    /// at first.
    void open();
    void close();

    /// Takes the oldest packet; its former memory is kept for later packets.
    /// \returns false when none waits
    bool takeRtp(Packet& out);
    bool takeRtcp(Packet& out);

    /// How many packets were dropped, because nobody took them in time or they were too long, since open().
    std::uint64_t overrun() const;

private:
    template <std::size_t room>
    struct Queue
    {
        std::array<Packet, room> packets;
        std::size_t first = 0;
        std::atomic<std::size_t> count{
            0};  // written under the mutex; read without, to see that there is none
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

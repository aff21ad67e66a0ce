#include "refhost/talkback/TalkReceiveQueue.h"

namespace refhost
{
namespace
{

/// Audio comes in small packets; an interleaved frame could hold 64 KB.
constexpr std::size_t longest = 4096;

}  // namespace

TalkReceiveQueue::TalkReceiveQueue(const HostClock& clock) : clock_(clock) {}

void TalkReceiveQueue::onRtp(const std::uint8_t* data, std::size_t size)
{
    put(rtp_, data, size);
}

void TalkReceiveQueue::onRtcp(const std::uint8_t* data, std::size_t size)
{
    put(rtcp_, data, size);
}

bool TalkReceiveQueue::takeRtp(Packet& out)
{
    return take(rtp_, out);
}

bool TalkReceiveQueue::takeRtcp(Packet& out)
{
    return take(rtcp_, out);
}

template <std::size_t room>
void TalkReceiveQueue::put(Queue<room>& queue, const std::uint8_t* data, std::size_t size)
{
    const MonotonicTime now = clock_.now();
    const MutexLock guard(mutex_);
    if (!open_)
    {
        return;
    }
    if (size > longest)
    {
        overrun_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    std::size_t count = queue.count.load(std::memory_order_relaxed);
    if (count == room)
    {
        queue.first = (queue.first + 1) % room;
        --count;
        overrun_.fetch_add(1, std::memory_order_relaxed);
    }
    Packet& packet = queue.packets[(queue.first + count) % room];
    packet.bytes.assign(data, data + size);
    packet.arrival = now;
    queue.count.store(count + 1, std::memory_order_release);
}

template <std::size_t room>
bool TalkReceiveQueue::take(Queue<room>& queue, Packet& out)
{
    if (queue.count.load(std::memory_order_acquire) == 0)
    {
        return false;
    }
    const MutexLock guard(mutex_);
    const std::size_t count = queue.count.load(std::memory_order_relaxed);
    if (count == 0)
    {
        return false;
    }
    Packet& packet = queue.packets[queue.first];
    packet.bytes.swap(out.bytes);
    out.arrival = packet.arrival;
    queue.first = (queue.first + 1) % room;
    queue.count.store(count - 1, std::memory_order_relaxed);
    return true;
}

void TalkReceiveQueue::open()
{
    overrun_.store(0, std::memory_order_relaxed);
    setOpen(true);
}

void TalkReceiveQueue::close()
{
    setOpen(false);
}

void TalkReceiveQueue::setOpen(bool open)
{
    const MutexLock guard(mutex_);
    open_ = open;
    rtp_.count.store(0, std::memory_order_relaxed);
    rtcp_.count.store(0, std::memory_order_relaxed);
}

std::uint64_t TalkReceiveQueue::overrun() const
{
    return overrun_.load(std::memory_order_relaxed);
}

}  // namespace refhost

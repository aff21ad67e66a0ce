#include "tests/refhost/net/MemoryStream.h"

#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace refhost
{
namespace test
{
namespace
{

SocketAddress loopback()
{
    return *SocketAddress::parse("127.0.0.1");
}

}  // namespace

MemoryStream::MemoryStream(std::size_t bytesAtOnce) : bytesAtOnce_(bytesAtOnce), address_(loopback()) {}

MemoryStream::~MemoryStream()
{
    close();
}

void MemoryStream::write(std::string_view bytes)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    toServer_.append(bytes);
    schedule();
}

void MemoryStream::endWriting()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    peerEnded_ = true;
    schedule();
}

void MemoryStream::fail()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    failed_ = true;
    schedule();
}

void MemoryStream::stall(bool on)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    stalled_ = on;
    schedule();
}

std::string MemoryStream::read(int milliseconds)
{
    std::unique_lock<std::mutex> lock(mutex_);
    arrived_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                      [this] { return !toPeer_.empty() || ended_; });
    return std::exchange(toPeer_, {});
}

bool MemoryStream::allReceived() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return toServer_.empty();
}

bool MemoryStream::ended() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return ended_;
}

bool MemoryStream::closed() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return closed_;
}

void MemoryStream::attach(EventLoop& loop, Handler handler)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    loop_ = &loop;
    handler_ = std::make_shared<Handler>(std::move(handler));
    schedule();
}

void MemoryStream::detach()
{
    std::shared_ptr<Handler> handler;  // ends without the lock
    const std::lock_guard<std::mutex> guard(mutex_);
    handler.swap(handler_);
    loop_ = nullptr;
    scheduled_ = false;
}

void MemoryStream::watchReceive(bool on)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    watched_ = on ? watched_ | receivable : watched_ & ~receivable;
    schedule();
}

void MemoryStream::watchSend(bool on)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    watched_ = on ? watched_ | sendable : watched_ & ~sendable;
    schedule();
}

std::uint32_t MemoryStream::ready() const
{
    const std::uint32_t input = toServer_.empty() && !peerEnded_ ? 0 : receivable;
    const std::uint32_t output = stalled_ ? 0 : sendable;
    return ((input | output) & watched_) | (failed_ ? hungUp : 0);
}

/// Posts ready() to the loop if there is something to report.
void MemoryStream::schedule()
{
    if (loop_ == nullptr || scheduled_ || ready() == 0)
    {
        return;
    }
    scheduled_ = true;
    loop_->post(
        [weak = weak_from_this(), handler = std::weak_ptr<Handler>(handler_)]
        {
            const auto self = weak.lock();
            // Posted before a move to another loop: ignored.
            if (self != nullptr && handler.lock() != nullptr)
            {
                self->report();
            }
        });
}

void MemoryStream::report()
{
    std::shared_ptr<Handler> handler;
    std::uint32_t now = 0;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        scheduled_ = false;
        now = ready();
        handler = handler_;
        inVain_ = (now & receivable) != 0 && !inVain_;
        mayReceive_ = inVain_ ? 0 : bytesAtOnce_;
        maySend_ = bytesAtOnce_;
    }
    if (now == 0 || handler == nullptr)
    {
        return;
    }
    (*handler)(now);
    const std::lock_guard<std::mutex> guard(mutex_);
    schedule();
}

ByteStream::Result MemoryStream::receive(char* bytes, std::size_t size)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (failed_ || closed_)
    {
        return {Status::failed};
    }
    if (toServer_.empty() && peerEnded_)
    {
        return {Status::ended};
    }
    const std::size_t count = std::min({size, toServer_.size(), std::exchange(mayReceive_, 0)});
    if (count == 0)
    {
        return {Status::blocked};
    }
    std::copy_n(toServer_.begin(), count, bytes);
    toServer_.erase(0, count);
    return {Status::done, count};
}

ByteStream::Result MemoryStream::send(const std::string_view* parts, std::size_t count, bool)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (failed_ || ended_)
    {
        return {Status::failed};
    }
    std::size_t left = stalled_ ? 0 : std::exchange(maySend_, 0);
    const std::size_t before = toPeer_.size();
    for (std::size_t i = 0; i < count && left > 0; ++i)
    {
        toPeer_.append(parts[i].substr(0, left));
        left -= std::min(left, parts[i].size());
    }
    const std::size_t taken = toPeer_.size() - before;
    if (taken == 0)
    {
        return {Status::blocked};
    }
    arrived_.notify_all();
    return {Status::done, taken};
}

void MemoryStream::endSending()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    ended_ = true;
    arrived_.notify_all();
}

void MemoryStream::close()
{
    detach();
    const std::lock_guard<std::mutex> guard(mutex_);
    ended_ = true;
    closed_ = true;
    arrived_.notify_all();
}

const SocketAddress& MemoryStream::peer() const
{
    return address_;
}

const SocketAddress& MemoryStream::local() const
{
    return address_;
}

void MemoryStream::setSendBuffer(std::size_t) {}

std::optional<std::chrono::milliseconds> MemoryStream::silence() const
{
    return std::nullopt;
}

}  // namespace test
}  // namespace refhost

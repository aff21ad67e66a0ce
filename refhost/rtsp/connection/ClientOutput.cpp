#include "refhost/rtsp/connection/ClientOutput.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace refhost
{

ClientOutput::ClientOutput(int descriptor, std::size_t maxWaiting, MonotonicClock clock,
                           WantWritable wantWritable)
    : descriptor_(descriptor),
      maxWaiting_(maxWaiting),
      clock_(std::move(clock)),
      wantWritable_(std::move(wantWritable))
{
}

void ClientOutput::cork(std::string& buffer)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    cork_ = &buffer;
}

void ClientOutput::uncork()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    flushCork();
    cork_ = nullptr;
}

void ClientOutput::flush()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    flushCork();
}

bool ClientOutput::sendResponse(std::string_view response)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (closed_ || failed_)
    {
        return false;
    }
    if (responsesLeft() > maxWaiting_)
    {
        failed_ = true;
        return false;
    }
    if (cork_ != nullptr)
    {
        cork_->append(response);
        if (cork_->size() >= gatheredMost)
        {
            flushCork();
        }
        return !failed_;
    }
    const std::size_t taken = waiting_.empty() ? write(response, {}, 0) : 0;
    if (!failed_)
    {
        keepResponse(response.substr(taken));
    }
    return !failed_;
}

SendStatus ClientOutput::sendFrames(const std::uint8_t* data, std::size_t size, bool more)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (closed_ || failed_)
    {
        return SendStatus::closed;
    }
    const bool small = size <= smallMost;
    if (!waiting_.empty() || (!small && (wanted_ || burstIsOver())))
    {
        want();
        return SendStatus::congested;
    }
    const std::string_view frames(reinterpret_cast<const char*>(data), size);
    if (cork_ != nullptr && small && cork_->size() < gatheredMost)
    {
        cork_->append(frames);
        burst_ += size;
        return SendStatus::sent;
    }
    const std::string_view gathered = cork_ == nullptr ? std::string_view() : std::string_view(*cork_);
    const std::size_t taken = write(gathered, frames, more ? MSG_MORE : 0);
    if (failed_)
    {
        return SendStatus::closed;
    }
    if (taken <= gathered.size())
    {
        // Not one byte of the frames: they are not taken.
        keepResponse(gathered.substr(taken));
        clearCork();
        want();
        return size == 0 ? SendStatus::sent : SendStatus::congested;
    }
    clearCork();
    burst_ += size;
    keep(frames.substr(taken - gathered.size()));
    return SendStatus::sent;
}

void ClientOutput::notifyWhenWritable(std::weak_ptr<TransportListener> listener)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (closed_)
    {
        return;
    }
    listeners_.push_back(std::move(listener));
    // It may have become writable since the write that was refused. The listener's caller may hold locks that
    // the listener takes, so it is told by onWritable() all the same.
    want();
}

bool ClientOutput::onWritable()
{
    std::vector<std::weak_ptr<TransportListener>> listeners;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (closed_ || failed_)
        {
            return false;
        }
        if (!waiting_.empty())
        {
            release(write(waiting_, {}, 0));
            if (failed_)
            {
                return false;
            }
            if (!waiting_.empty())
            {
                return true;
            }
        }
        if (wanted_)
        {
            wanted_ = false;
            wantWritable_(false);
        }
        burst_ = 0;
        listeners.swap(listeners_);
    }
    for (const std::weak_ptr<TransportListener>& weak : listeners)
    {
        if (const auto listener = weak.lock())
        {
            listener->onTransportReady();
        }
    }
    return true;
}

void ClientOutput::close()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    closed_ = true;
    clearCork();
    release(waiting_.size());
    listeners_.clear();
}

bool ClientOutput::empty() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return waiting_.empty() && (cork_ == nullptr || cork_->empty());
}

std::size_t ClientOutput::waitingResponses() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return responsesLeft();
}

std::size_t ClientOutput::held() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return waiting_.capacity();
}

std::uint64_t ClientOutput::bytesTaken() const
{
    return bytesTaken_.load(std::memory_order_relaxed);
}

/// Writes both texts, the second behind the first.
/// \returns how many bytes the socket took; sets failed_ when it takes none any more
std::size_t ClientOutput::write(std::string_view first, std::string_view second, int flags)
{
    const std::size_t size = first.size() + second.size();
    std::size_t taken = 0;
    while (taken < size)
    {
        const std::size_t ofFirst = std::min(taken, first.size());
        iovec parts[2];
        parts[0] = {const_cast<char*>(first.data() + ofFirst), first.size() - ofFirst};
        parts[1] = {const_cast<char*>(second.data() + (taken - ofFirst)), second.size() - (taken - ofFirst)};
        msghdr message{};
        message.msg_iov = parts[0].iov_len == 0 ? parts + 1 : parts;
        message.msg_iovlen = parts[0].iov_len == 0 || parts[1].iov_len == 0 ? 1 : 2;
        const ssize_t count = ::sendmsg(descriptor_, &message, MSG_DONTWAIT | MSG_NOSIGNAL | flags);
        if (count > 0)
        {
            taken += static_cast<std::size_t>(count);
            continue;
        }
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        failed_ = count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
        break;
    }
    bytesTaken_.fetch_add(taken, std::memory_order_relaxed);
    return taken;
}

void ClientOutput::keep(std::string_view rest)
{
    if (!rest.empty())
    {
        waiting_.append(rest);
        want();
    }
}

void ClientOutput::keepResponse(std::string_view rest)
{
    waitingResponses_ += rest.size();
    keep(rest);
}

/// Lets go of what the socket took, and of the memory where nothing is left.
void ClientOutput::release(std::size_t taken)
{
    if (taken == waiting_.size())
    {
        std::string().swap(waiting_);
        waitingResponses_ = 0;
        return;
    }
    waiting_.erase(0, taken);
    waitingResponses_ = responsesLeft();
}

/// Frames wait in front of the responses, never behind.
std::size_t ClientOutput::responsesLeft() const
{
    return std::min(waitingResponses_, waiting_.size());
}

void ClientOutput::flushCork()
{
    if (cork_ == nullptr || cork_->empty())
    {
        return;
    }
    if (!closed_ && !failed_)
    {
        const std::size_t taken = waiting_.empty() ? write(*cork_, {}, 0) : 0;
        if (!failed_)
        {
            keepResponse(std::string_view(*cork_).substr(taken));
        }
    }
    cork_->clear();
}

void ClientOutput::clearCork()
{
    if (cork_ != nullptr)
    {
        cork_->clear();
    }
}

bool ClientOutput::burstIsOver()
{
    const std::int64_t nowMs = clock_();
    if (nowMs - burstBeganMs_ >= burstMs)
    {
        burstBeganMs_ = nowMs;
        burst_ = 0;
    }
    return burst_ >= burstMost;
}

void ClientOutput::want()
{
    if (!wanted_)
    {
        wanted_ = true;
        wantWritable_(true);
    }
}

}  // namespace refhost

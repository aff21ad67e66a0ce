#include "refhost/rtsp/connection/ClientOutput.h"

#include <algorithm>
#include <utility>

namespace refhost
{

ClientOutput::ClientOutput(ByteStream& stream, std::size_t maxWaiting, const HostClock& clock)
    : stream_(stream), maxWaiting_(maxWaiting), clock_(clock)
{
}

void ClientOutput::cork(std::string& buffer)
{
    const SmallMutexLock guard(mutex_);
    cork_ = &buffer;
}

void ClientOutput::uncork()
{
    const SmallMutexLock guard(mutex_);
    flushCork();
    cork_ = nullptr;
}

void ClientOutput::flush()
{
    const SmallMutexLock guard(mutex_);
    flushCork();
}

bool ClientOutput::sendResponse(std::string_view response)
{
    const SmallMutexLock guard(mutex_);
    if (state_ != State::open)
    {
        return false;
    }
    if (responsesLeft() > maxWaiting_)
    {
        state_ = State::failed;
        return false;
    }
    if (cork_ != nullptr)
    {
        cork_->append(response);
        if (cork_->size() >= maxGathered)
        {
            flushCork();
        }
        return state_ == State::open;
    }
    const std::size_t taken = waiting_.empty() ? write(response) : 0;
    if (state_ == State::open)
    {
        keepResponse(response.substr(taken));
    }
    return state_ == State::open;
}

SendStatus ClientOutput::sendFrames(const std::uint8_t* data, std::size_t size, bool more)
{
    const SmallMutexLock guard(mutex_);
    if (state_ != State::open)
    {
        return SendStatus::closed;
    }
    const bool small = size <= maxSmall;
    if (!waiting_.empty() || (!small && (watched_ || burstIsOver())))
    {
        watchSendable();
        return SendStatus::congested;
    }
    const std::string_view frames(reinterpret_cast<const char*>(data), size);
    if (cork_ != nullptr && small && cork_->size() < maxGathered)
    {
        cork_->append(frames);
        burst_ += size;
        return SendStatus::sent;
    }
    const std::string_view gathered = cork_ == nullptr ? std::string_view() : std::string_view(*cork_);
    const std::size_t taken = write(gathered, frames, more);
    if (state_ != State::open)
    {
        return SendStatus::closed;
    }
    if (taken <= gathered.size())
    {
        // No byte of the frames was written: they are not taken.
        keepResponse(gathered.substr(taken));
        clearCork();
        watchSendable();
        return size == 0 ? SendStatus::sent : SendStatus::congested;
    }
    clearCork();
    burst_ += size;
    keep(frames.substr(taken - gathered.size()));
    return SendStatus::sent;
}

void ClientOutput::notifyWhenWritable(std::weak_ptr<TransportListener> listener)
{
    const SmallMutexLock guard(mutex_);
    if (state_ == State::closed)
    {
        return;
    }
    listeners_.push_back(std::move(listener));
    // The stream may be writable again already. Even so onWritable() calls the listener, because the caller
    // may hold locks that the listener takes.
    watchSendable();
}

bool ClientOutput::onWritable()
{
    std::vector<std::weak_ptr<TransportListener>> listeners;
    {
        const SmallMutexLock guard(mutex_);
        if (state_ != State::open)
        {
            return false;
        }
        if (!waiting_.empty())
        {
            release(write(waiting_));
            if (state_ != State::open)
            {
                return false;
            }
            if (!waiting_.empty())
            {
                return true;
            }
        }
        if (watched_)
        {
            watched_ = false;
            stream_.watchSend(false);
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
    const SmallMutexLock guard(mutex_);
    state_ = State::closed;
    clearCork();
    release(waiting_.size());
    listeners_.clear();
}

bool ClientOutput::empty() const
{
    const SmallMutexLock guard(mutex_);
    return waiting_.empty() && (cork_ == nullptr || cork_->empty());
}

std::size_t ClientOutput::waitingResponses() const
{
    const SmallMutexLock guard(mutex_);
    return responsesLeft();
}

std::size_t ClientOutput::held() const
{
    const SmallMutexLock guard(mutex_);
    return waiting_.capacity();
}

std::uint64_t ClientOutput::bytesTaken() const
{
    return bytesTaken_.load(std::memory_order_relaxed);
}

/// Writes both texts, the second behind the first.
/// \returns the bytes taken; updates the state when the stream failed
std::size_t ClientOutput::write(std::string_view first, std::string_view second, bool more)
{
    std::string_view parts[] = {first, second};
    std::size_t taken = 0;
    while (!parts[0].empty() || !parts[1].empty())
    {
        const bool one = parts[0].empty();
        const ByteStream::Result result = stream_.send(parts + one, one ? 1 : 2, more);
        if (result.status != ByteStream::Status::done)
        {
            state_ = result.status == ByteStream::Status::blocked ? state_ : State::failed;
            break;
        }
        taken += result.count;
        const std::size_t ofFirst = std::min(result.count, parts[0].size());
        parts[0].remove_prefix(ofFirst);
        parts[1].remove_prefix(result.count - ofFirst);
    }
    bytesTaken_.fetch_add(taken, std::memory_order_relaxed);
    return taken;
}

void ClientOutput::keep(std::string_view rest)
{
    if (!rest.empty())
    {
        waiting_.append(rest);
        watchSendable();
    }
}

void ClientOutput::keepResponse(std::string_view rest)
{
    waitingResponses_ += rest.size();
    keep(rest);
}

/// Drops the bytes taken; frees the memory with the last one.
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

/// Frames wait before the responses, never behind.
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
    if (state_ == State::open)
    {
        const std::size_t taken = waiting_.empty() ? write(*cork_) : 0;
        if (state_ == State::open)
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
    const MonotonicTime now = clock_.now();
    if (now - burstStart_ >= burstTime)
    {
        burstStart_ = now;
        burst_ = 0;
    }
    return burst_ >= maxBurst;
}

void ClientOutput::watchSendable()
{
    if (!watched_)
    {
        watched_ = true;
        stream_.watchSend(true);
    }
}

}  // namespace refhost

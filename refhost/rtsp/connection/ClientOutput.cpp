#include "refhost/rtsp/connection/ClientOutput.h"

#include <algorithm>
#include <utility>

namespace refhost
{

ClientOutput::ClientOutput(ByteStream& stream, std::size_t maxWaiting, MonotonicClock clock)
    : stream_(stream), maxWaiting_(maxWaiting), clock_(std::move(clock))
{
}

void ClientOutput::cork(std::string& buffer)
{
    const MutexLock guard(mutex_);
    cork_ = &buffer;
}

void ClientOutput::uncork()
{
    const MutexLock guard(mutex_);
    flushCork();
    cork_ = nullptr;
}

void ClientOutput::flush()
{
    const MutexLock guard(mutex_);
    flushCork();
}

bool ClientOutput::sendResponse(std::string_view response)
{
    const MutexLock guard(mutex_);
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
    const MutexLock guard(mutex_);
    if (state_ != State::open)
    {
        return SendStatus::closed;
    }
    const bool small = size <= maxSmall;
    if (!waiting_.empty() || (!small && (wanted_ || burstIsOver())))
    {
        want();
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
    const MutexLock guard(mutex_);
    if (state_ == State::closed)
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
        const MutexLock guard(mutex_);
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
        if (wanted_)
        {
            wanted_ = false;
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
    const MutexLock guard(mutex_);
    state_ = State::closed;
    clearCork();
    release(waiting_.size());
    listeners_.clear();
}

bool ClientOutput::empty() const
{
    const MutexLock guard(mutex_);
    return waiting_.empty() && (cork_ == nullptr || cork_->empty());
}

std::size_t ClientOutput::waitingResponses() const
{
    const MutexLock guard(mutex_);
    return responsesLeft();
}

std::size_t ClientOutput::held() const
{
    const MutexLock guard(mutex_);
    return waiting_.capacity();
}

std::uint64_t ClientOutput::bytesTaken() const
{
    return bytesTaken_.load(std::memory_order_relaxed);
}

/// Writes both texts, the second behind the first.
/// \returns how many bytes the stream took; sets the state when it takes none any more
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
        want();
    }
}

void ClientOutput::keepResponse(std::string_view rest)
{
    waitingResponses_ += rest.size();
    keep(rest);
}

/// Drops what the stream took, and the memory with the last byte.
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
    const MonotonicTime now = readClock(clock_);
    if (now - burstStart_ >= burstTime)
    {
        burstStart_ = now;
        burst_ = 0;
    }
    return burst_ >= maxBurst;
}

void ClientOutput::want()
{
    if (!wanted_)
    {
        wanted_ = true;
        stream_.watchSend(true);
    }
}

}  // namespace refhost

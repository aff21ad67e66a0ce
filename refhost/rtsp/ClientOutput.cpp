#include "refhost/rtsp/ClientOutput.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace refhost
{

ClientOutput::ClientOutput(int descriptor, std::size_t mostWaiting, WantWritable wantWritable)
    : descriptor_(descriptor), mostWaiting_(mostWaiting), wantWritable_(std::move(wantWritable))
{
}

bool ClientOutput::sendResponse(std::string_view response)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (closed_ || failed_)
    {
        return false;
    }
    std::size_t taken = 0;
    if (waiting_.empty())
    {
        taken = write(response.data(), response.size(), 0);
    }
    if (taken < response.size() && !failed_)
    {
        if (waiting_.size() - waitingFrom_ > mostWaiting_)
        {
            failed_ = true;
        }
        else
        {
            keep(response.data() + taken, response.size() - taken);
        }
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
    if (!waiting_.empty() || wanted_)
    {
        return SendStatus::congested;
    }
    const auto* const bytes = reinterpret_cast<const char*>(data);
    const std::size_t taken = write(bytes, size, more ? MSG_MORE : 0);
    if (failed_)
    {
        return SendStatus::closed;
    }
    if (taken == 0 && size != 0)
    {
        wanted_ = true;
        wantWritable_(true);
        return SendStatus::congested;
    }
    if (taken < size)
    {
        keep(bytes + taken, size - taken);
    }
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
    if (!wanted_)
    {
        // It became writable since the write that was refused. The listener's caller may hold locks that the
        // listener takes, so it is told by onWritable() all the same.
        wanted_ = true;
        wantWritable_(true);
    }
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
            waitingFrom_ += write(waiting_.data() + waitingFrom_, waiting_.size() - waitingFrom_, 0);
            if (failed_)
            {
                return false;
            }
            if (waitingFrom_ < waiting_.size())
            {
                return true;
            }
            std::string().swap(waiting_);
            waitingFrom_ = 0;
        }
        if (wanted_)
        {
            wanted_ = false;
            wantWritable_(false);
        }
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
    std::string().swap(waiting_);
    waitingFrom_ = 0;
    listeners_.clear();
}

bool ClientOutput::empty() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return waiting_.empty();
}

std::uint64_t ClientOutput::bytesTaken() const
{
    return bytesTaken_.load(std::memory_order_relaxed);
}

/// \returns how many bytes the socket took; sets failed_ when it takes none any more
std::size_t ClientOutput::write(const char* data, std::size_t size, int flags)
{
    std::size_t taken = 0;
    while (taken < size)
    {
        const ssize_t count =
            ::send(descriptor_, data + taken, size - taken, MSG_DONTWAIT | MSG_NOSIGNAL | flags);
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

void ClientOutput::keep(const char* data, std::size_t size)
{
    waiting_.append(data, size);
    if (!wanted_)
    {
        wanted_ = true;
        wantWritable_(true);
    }
}

}  // namespace refhost

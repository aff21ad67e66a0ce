#include "refhost/net/FilterStream.h"

#include <algorithm>
#include <utility>

namespace refhost
{

FilterStream::FilterStream(std::shared_ptr<ByteStream> carrier, std::string greeting)
    : unsent_(std::move(greeting)), carrier_(std::move(carrier))
{
}

void FilterStream::attach(EventLoop& loop, Handler handler)
{
    auto shared = std::make_shared<Handler>(std::move(handler));
    const MutexLock guard(mutex_);
    carrier_->attach(loop, [this](std::uint32_t ready) { onCarrier(ready); });
    handler_.attach(loop, std::move(shared));
    attachOthers(loop);
    flush();
    update();
}

void FilterStream::detach()
{
    std::shared_ptr<Handler> handler;  // ends without the lock
    {
        const MutexLock guard(mutex_);
        handler = handler_.detach();
        detachOthers();
    }
    carrier_->detach();
}

bool FilterStream::beginClose()
{
    detach();
    const MutexLock guard(mutex_);
    return !std::exchange(closed_, true);
}

void FilterStream::watchReceive(bool on)
{
    const MutexLock guard(mutex_);
    watchesReceive_ = on;
    update();
}

void FilterStream::watchSend(bool on)
{
    const MutexLock guard(mutex_);
    watchesSend_ = on;
    update();
}

void FilterStream::onCarrier(std::uint32_t ready)
{
    std::shared_ptr<Handler> handler;
    std::uint32_t now = ready & hungUp;
    {
        const MutexLock guard(mutex_);
        if ((ready & sendable) != 0)
        {
            flush();
        }
        const bool input = (ready & receivable) != 0 && onCarrierReceivable();
        now |= watchesReceive_ && (input || held()) ? receivable : 0U;
        now |= watchesSend_ && unsent_.empty() && (ready & sendable) != 0 ? sendable : 0U;
        now |= failed_ ? hungUp : 0U;
        handler = handler_.handler();
        update();
    }
    // The last access: the handler may end this object.
    if (now != 0 && handler != nullptr)
    {
        (*handler)(now);
    }
}

void FilterStream::report(std::uint32_t ready)
{
    std::shared_ptr<Handler> handler;
    {
        const MutexLock guard(mutex_);
        ready &= watchesReceive_ ? ~0U : ~receivable;
        handler = handler_.handler();
        update();
    }
    if (ready != 0 && handler != nullptr)
    {
        (*handler)(ready);
    }
}

bool FilterStream::holdsMore() const
{
    return false;
}

void FilterStream::onIteration() {}

void FilterStream::updateOthers() {}

void FilterStream::attachOthers(EventLoop&) {}

void FilterStream::detachOthers() {}

/// Whether a receive() has a result without anything new from a carrier.
bool FilterStream::held() const
{
    return !decoded_.empty() || ended_ || failed_ || holdsMore();
}

void FilterStream::update()
{
    if (closed_)
    {
        return;
    }
    const bool writes = !failed_ && (watchesSend_ || !unsent_.empty());
    const std::uint32_t watched = (!failed_ && watchesCarrier() ? receivable : 0U) | (writes ? sendable : 0U);
    carrierWatch_.set(*carrier_, watched);
    updateOthers();
    reportHeld();
}

/// Reports on the loop what no event of a carrier will.
void FilterStream::reportHeld()
{
    if (watchesReceive_ && held())
    {
        handler_.post([this](const Handler& handler) { onHeld(handler); });
    }
}

void FilterStream::onHeld(const Handler& handler)
{
    bool now = false;
    {
        const MutexLock guard(mutex_);
        handler_.takePosted();
        onIteration();
        now = watchesReceive_ && held();
        update();
    }
    if (now)
    {
        handler(receivable);
    }
}

ByteStream::Result FilterStream::receive(char* bytes, std::size_t size)
{
    const MutexLock guard(mutex_);
    if (closed_)
    {
        return {Status::failed};
    }
    Status status = Status::done;
    if (decoded_.empty())
    {
        status = failed_ ? Status::failed : ended_ ? Status::ended : pump();
        flush();  // what was answered
    }
    const std::size_t count = std::min(size, decoded_.size() - received_);
    decoded_.copy(bytes, count, received_);
    received_ += count;
    if (received_ == decoded_.size())
    {
        std::string().swap(decoded_);
        received_ = 0;
    }
    update();
    if (count != 0)
    {
        return {Status::done, count};
    }
    return {status == Status::done ? Status::blocked : status};
}

void FilterStream::flush(bool more)
{
    std::size_t sent = 0;
    while (sent != unsent_.size() && !failed_)
    {
        const std::string_view part = std::string_view(unsent_).substr(sent);
        const Result result = carrier_->send(&part, 1, more);
        if (result.status != Status::done)
        {
            failed_ = result.status != Status::blocked;
            break;
        }
        sent += result.count;
    }
    if (failed_ || sent == unsent_.size())
    {
        std::string().swap(unsent_);
    }
    else
    {
        unsent_.erase(0, sent);
    }
    if (ending_ && unsent_.empty())
    {
        carrier_->endSending();
    }
}

void FilterStream::endSending()
{
    const MutexLock guard(mutex_);
    if (!std::exchange(ending_, true) && !closed_)
    {
        flush();
        update();
    }
}

ByteStream& FilterStream::carrier() const
{
    return *carrier_;
}

const SocketAddress& FilterStream::peer() const
{
    return carrier_->peer();
}

const SocketAddress& FilterStream::local() const
{
    return carrier_->local();
}

void FilterStream::setSendBuffer(std::size_t bytes)
{
    carrier_->setSendBuffer(bytes);
}

std::optional<std::chrono::milliseconds> FilterStream::silence() const
{
    return carrier_->silence();
}

bool FilterStream::encrypted() const
{
    return carrier_->encrypted();
}

std::string FilterStream::certificateName() const
{
    return carrier_->certificateName();
}

}  // namespace refhost

#include "tests/refhost/net/SealedStream.h"

#include <algorithm>
#include <utility>

namespace refhost
{
namespace test
{
namespace
{

constexpr char altered = 0x5a;
// Max bytes of a receive(), so that decoded bytes remain.
constexpr std::size_t givenOut = 5;

std::string alter(std::string_view bytes)
{
    std::string result(bytes);
    for (char& byte : result)
    {
        byte = static_cast<char>(byte ^ altered);
    }
    return result;
}

}  // namespace

SealedStream::SealedStream(std::shared_ptr<ByteStream> inner) : ForwardingStream(std::move(inner)) {}

std::string SealedStream::seal(std::string_view bytes)
{
    std::string records;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(maxRecord, bytes.size())))
    {
        const std::string_view record = bytes.substr(0, maxRecord);
        records += static_cast<char>(record.size());
        records += alter(record);
    }
    return records;
}

std::string SealedStream::unseal(std::string& records)
{
    std::string bytes;
    while (!records.empty() && records.size() > static_cast<unsigned char>(records[0]))
    {
        const std::size_t size = static_cast<unsigned char>(records[0]);
        bytes += alter(std::string_view(records).substr(1, size));
        records.erase(0, 1 + size);
    }
    return bytes;
}

void SealedStream::attach(EventLoop& loop, Handler handler)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    loop_ = &loop;
    handler_ = std::make_shared<Handler>(std::move(handler));
    inner().attach(loop, [self = shared_from_this()](std::uint32_t ready) { self->onInner(ready); });
    reportHeld();
}

void SealedStream::detach()
{
    std::shared_ptr<Handler> handler;  // ends without the lock
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        handler.swap(handler_);
        loop_ = nullptr;
        reporting_ = false;
    }
    ForwardingStream::detach();
}

void SealedStream::watchReceive(bool on)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    watchesReceive_ = on;
    update();
}

void SealedStream::watchSend(bool on)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    watchesSend_ = on;
    update();
}

void SealedStream::onInner(std::uint32_t happened)
{
    std::shared_ptr<Handler> handler;
    std::uint32_t now = 0;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if ((happened & receivable) != 0)
        {
            readInner();
        }
        flush();
        now = ready() | (happened & hungUp);
        handler = handler_;
        update();
    }
    if (now != 0 && handler != nullptr)
    {
        (*handler)(now);
    }
}

std::uint32_t SealedStream::ready() const
{
    const bool input = !decoded_.empty() || input_ != Status::blocked;
    return (watchesReceive_ && input ? receivable : 0u) |
           (watchesSend_ && established_ && outgoing_.empty() ? sendable : 0u);
}

/// Reports events on the loop that no event of the inner stream causes.
void SealedStream::reportHeld()
{
    if (loop_ == nullptr || reporting_ || (ready() & receivable) == 0)
    {
        return;
    }
    reporting_ = true;
    loop_->post(
        [weak = weak_from_this(), handler = std::weak_ptr<Handler>(handler_)]
        {
            const auto self = weak.lock();
            const auto same = handler.lock();
            if (self == nullptr || same == nullptr)
            {
                return;
            }
            self->onHeld();
        });
}

void SealedStream::onHeld()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        reporting_ = false;
    }
    onInner(0);  // reports remaining bytes again
}

void SealedStream::readInner()
{
    char bytes[64];
    const Result result = inner().receive(bytes, sizeof bytes);
    if (result.status == Status::ended || result.status == Status::failed)
    {
        input_ = result.status;
    }
    records_.append(bytes, result.count);
    if (!established_ && records_.size() >= hello.size())
    {
        failed_ = records_.compare(0, hello.size(), hello) != 0;
        records_.erase(0, hello.size());
        outgoing_ += reply;
        established_ = true;
    }
    if (established_)
    {
        decoded_ += unseal(records_);
    }
}

void SealedStream::flush()
{
    while (!outgoing_.empty())
    {
        const std::string_view part = outgoing_;
        const Result result = inner().send(&part, 1, false);
        if (result.status != Status::done)
        {
            failed_ = failed_ || result.status == Status::failed;
            return;
        }
        outgoing_.erase(0, result.count);
    }
    if (std::exchange(ending_, false))
    {
        ForwardingStream::endSending();
    }
}

/// What the inner stream is watched for follows from the state of both directions.
void SealedStream::update()
{
    const bool open = input_ == Status::blocked;
    inner().watchReceive(open && (!established_ || (watchesReceive_ && decoded_.empty())));
    inner().watchSend(!outgoing_.empty() || (watchesSend_ && established_));
    reportHeld();
}

ByteStream::Result SealedStream::receive(char* bytes, std::size_t size)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (failed_)
    {
        return {Status::failed};
    }
    if (decoded_.empty())
    {
        return {input_};
    }
    const std::size_t count = std::min({size, givenOut, decoded_.size()});
    std::copy_n(decoded_.begin(), count, bytes);
    decoded_.erase(0, count);
    update();
    return {Status::done, count};
}

ByteStream::Result SealedStream::send(const std::string_view* parts, std::size_t count, bool)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (failed_)
    {
        return {Status::failed};
    }
    if (!established_ || !outgoing_.empty())
    {
        return {Status::blocked};
    }
    std::string record;
    for (std::size_t i = 0; i < count; ++i)
    {
        record += parts[i].substr(0, maxRecord - record.size());
    }
    outgoing_ = seal(record);
    flush();
    update();
    return {Status::done, record.size()};
}

void SealedStream::endSending()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    ending_ = true;
    flush();
}

void SealedStream::close()
{
    detach();
    ForwardingStream::close();
}

}  // namespace test
}  // namespace refhost

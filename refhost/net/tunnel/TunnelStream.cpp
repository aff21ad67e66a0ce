#include "refhost/net/tunnel/TunnelStream.h"

#include <system_error>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/net/tunnel/TunnelHeaders.h"

namespace refhost
{
namespace
{

// A POST connection has nothing more when it reported nothing in so many iterations of the loop: a single
// `blocked` says nothing, it may come just before the report.
constexpr unsigned quietIterations = 3;

}  // namespace

/// The POST connection that is read.
struct TunnelStream::Reading
{
    Reading(Post made, const std::string& cookie) : post(std::move(made)), reader(cookie, post.length) {}

    Post post;
    PostReader reader;
    std::string unanswered;  // responses that its connection did not accept yet
    CarrierWatch watch;
    bool attached = false;
    unsigned quiet = 0;  // iterations of the loop without a report, while it matters
};

TunnelStream::TunnelStream(std::shared_ptr<ByteStream> get, std::string cookie, Joined joined,
                           std::shared_ptr<void> registration)
    : FilterStream(std::move(get), std::string(TunnelHeaders::greeting)),
      cookie_(std::move(cookie)),
      joined_(std::move(joined)),
      registration_(std::move(registration))
{
}

TunnelStream::~TunnelStream()
{
    close();
}

bool TunnelStream::addPost(Post& post)
{
    const std::shared_ptr<void> hold = post.hold;
    {
        const MutexLock guard(mutex_);
        if (closed_ || waiting_.size() >= maxWaiting)
        {
            return false;
        }
        waiting_.push_back(std::move(post));
        countQuietAgain();
        update();
    }
    if (joined_)
    {
        joined_(hold);
    }
    return true;
}

ByteStream::Result TunnelStream::send(const std::string_view* parts, std::size_t count, bool more)
{
    const MutexLock guard(mutex_);
    if (!unsent_.empty())
    {
        flush();
        update();
    }
    if (failed_ || closed_)
    {
        return {Status::failed};
    }
    return unsent_.empty() ? carrier().send(parts, count, more) : Result{Status::blocked};
}

/// The client's end of the GET connection ends the tunnel, once everything else is read. It sends nothing else
/// there; what comes is dropped.
bool TunnelStream::onCarrierReceivable()
{
    char dropped[readSize];
    switch (carrier().receive(dropped, sizeof dropped).status)
    {
        case Status::ended:
            getEnded_ = true;
            countQuietAgain();
            break;
        case Status::failed:
            failed_ = true;
            break;
        default:
            break;
    }
    return false;
}

bool TunnelStream::watchesCarrier() const
{
    return !getEnded_;
}

bool TunnelStream::holdsMore() const
{
    return getEnded_ || !waiting_.empty();
}

ByteStream::Status TunnelStream::pump()
{
    Status status = read();
    if (status == Status::blocked && drained() && !waiting_.empty())
    {
        status = readNext();
        if (status == Status::blocked && decoded_.empty())
        {
            status = read();
        }
    }
    failed_ = failed_ || status == Status::failed;
    ended_ = getEnded_ && drained() && status == Status::blocked && decoded_.empty() && waiting_.empty();
    return failed_ ? Status::failed : ended_ ? Status::ended : status;
}

/// Whether the present POST connection has nothing more for now.
bool TunnelStream::drained() const
{
    return reading_ == nullptr || !reading_->attached || reading_->quiet >= quietIterations;
}

/// Reads once from the present POST connection. Its end is none of the stream's.
ByteStream::Status TunnelStream::read()
{
    if (reading_ == nullptr)
    {
        return Status::blocked;
    }
    char bytes[readSize];
    const Result result = reading_->post.stream->receive(bytes, sizeof bytes);
    if (result.status == Status::done)
    {
        return take({bytes, result.count}) ? Status::done : Status::failed;
    }
    if (result.status != Status::blocked)
    {
        endReading();
    }
    return Status::blocked;
}

bool TunnelStream::take(std::string_view bytes)
{
    if (!reading_->reader.read(bytes, decoded_))
    {
        Log::debug("{}: tunnel ended: its POST is no base64", peer().text());
        return false;
    }
    for (std::size_t completed = reading_->reader.takeCompleted(); completed != 0; --completed)
    {
        reading_->unanswered.append(TunnelHeaders::taken);
    }
    answer();
    return true;
}

/// Sends responses on the POST connection as far as it accepts them.
void TunnelStream::answer()
{
    std::string& text = reading_->unanswered;
    bool accepted = true;
    while (accepted && !text.empty())
    {
        const std::string_view part = text;
        const Result result = reading_->post.stream->send(&part, 1, false);
        accepted = result.status == Status::done;
        text.erase(0, result.count);
    }
    if (text.size() > maxUnanswered)
    {
        endReading();
    }
}

void TunnelStream::onIteration()
{
    if (reading_ != nullptr)
    {
        ++reading_->quiet;
    }
}

/// From now on the POST connection must be quiet to have nothing more.
void TunnelStream::countQuietAgain()
{
    if (reading_ != nullptr)
    {
        reading_->quiet = 0;
    }
}

/// Replaces the POST connection by the next one.
/// \returns `failed` when it brought no base64
ByteStream::Status TunnelStream::readNext()
{
    endReading();
    reading_ = std::make_unique<Reading>(std::move(waiting_.front()), cookie_);
    waiting_.pop_front();
    attachReading();
    if (reading_ == nullptr)
    {
        return Status::blocked;
    }
    const std::string received = std::exchange(reading_->post.received, {});
    return take(received) ? Status::blocked : Status::failed;
}

void TunnelStream::attachReading()
{
    if (handler_.loop() == nullptr || reading_ == nullptr || reading_->attached)
    {
        return;
    }
    try
    {
        reading_->post.stream->attach(*handler_.loop(), [this](std::uint32_t ready) { onPost(ready); });
        reading_->attached = true;
    }
    catch (const std::system_error& error)
    {
        Log::warning("{}: no POST connection: {}", peer().text(), error.what());
        endReading();
    }
}

void TunnelStream::endReading()
{
    if (reading_ != nullptr)
    {
        reading_->post.stream->close();
        reading_.reset();
    }
}

void TunnelStream::onPost(std::uint32_t ready)
{
    {
        const MutexLock guard(mutex_);
        if (reading_ == nullptr)
        {
            return;
        }
        if ((ready & receivable) != 0)
        {
            countQuietAgain();
        }
        if ((ready & sendable) != 0)
        {
            answer();
        }
        // Reported again and again, and nobody may be about to read.
        if (reading_ != nullptr && (ready & hungUp) != 0 && (ready & receivable) == 0)
        {
            endReading();
        }
    }
    report(ready & receivable);
}

void TunnelStream::updateOthers()
{
    if (reading_ == nullptr)
    {
        return;
    }
    const std::uint32_t watched =
        (watchesReceive_ ? receivable : 0U) | (reading_->unanswered.empty() ? 0U : sendable);
    reading_->watch.set(*reading_->post.stream, watched);
}

void TunnelStream::attachOthers(EventLoop&)
{
    attachReading();
}

void TunnelStream::detachOthers()
{
    if (reading_ != nullptr)
    {
        reading_->post.stream->detach();
        reading_->attached = false;
    }
}

void TunnelStream::close()
{
    if (!beginClose())
    {
        return;
    }
    std::shared_ptr<void> registration;
    std::unique_ptr<Reading> reading;
    std::deque<Post> waiting;
    {
        const MutexLock guard(mutex_);
        registration.swap(registration_);
        reading.swap(reading_);
        waiting.swap(waiting_);
    }
    // Without the lock: the holds may take others.
    if (reading != nullptr)
    {
        reading->post.stream->close();
    }
    for (const Post& post : waiting)
    {
        post.stream->close();
    }
    carrier().close();
}

}  // namespace refhost

#include "refhost/http/HttpConnection.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/base/Mutex.h"

namespace refhost
{
namespace
{

constexpr std::size_t readSize = 16384;
// Bytes sent to one client before others have their turn.
constexpr std::size_t maxTurn = std::size_t{1} << 20U;
constexpr int http10 = 10;
constexpr int notFinished = 504;

std::string_view reasonToRefuse(int status)
{
    switch (status)
    {
        case 413:
            return "The request's body is too large.";
        case 431:
            return "The request's header is too large.";
        default:
            return "This is no HTTP request.";
    }
}

}  // namespace

/// What other threads reach the loop by, which may be there longer than the loop.
class HttpConnection::Gate
{
public:
    explicit Gate(EventLoop& loop) : loop_(&loop) {}

    /// Does nothing once it is shut.
    void post(EventLoop::Task task)
    {
        const MutexLock guard(mutex_);
        if (loop_ != nullptr)
        {
            loop_->post(std::move(task));
        }
    }

    bool isOnLoop() const
    {
        const MutexLock guard(mutex_);
        return loop_ != nullptr && loop_->onLoopThread();
    }

    void shut()
    {
        const MutexLock guard(mutex_);
        loop_ = nullptr;
    }

private:
    mutable Mutex mutex_;
    EventLoop* loop_ OV_GUARDED_BY(mutex_);
};

HttpConnection::HttpConnection(std::shared_ptr<ByteStream> stream, EventLoop& loop, const HttpConfig& config,
                               const HostClock& clock, std::uint64_t serial, Events events)
    : stream_(std::move(stream)),
      loop_(loop),
      gate_(std::make_shared<Gate>(loop)),
      config_(config),
      clock_(clock),
      serial_(serial),
      events_(std::move(events)),
      reader_({static_cast<std::size_t>(config.headerBytes), static_cast<std::size_t>(config.bodyBytes)}),
      since_(clock.now())
{
}

HttpConnection::~HttpConnection()
{
    close();
}

const SocketAddress& HttpConnection::peer() const
{
    return stream_->peer();
}

void HttpConnection::open()
{
    stream_->attach(loop_,
                    [weak = weak_from_this()](std::uint32_t events)
                    {
                        if (const auto held = weak.lock())
                        {
                            held->onReady(events);
                        }
                    });
}

void HttpConnection::close()
{
    if (state_ == State::closed)
    {
        return;
    }
    state_ = State::closed;
    gate_->shut();
    if (cancelled_ != nullptr)
    {
        cancelled_->store(true);
    }
    if (const auto body = std::exchange(body_, nullptr))
    {
        body->cancel();
    }
    stream_->close();
}

void HttpConnection::closeNow()
{
    close();
    events_.closed(*this);
}

void HttpConnection::onReady(std::uint32_t events)
{
    if (state_ == State::draining && (events & (ByteStream::receivable | ByteStream::hungUp)) != 0)
    {
        drain();
        return;
    }
    if ((events & ByteStream::receivable) != 0 && !receive())
    {
        closeNow();
        return;
    }
    // What a client that hung up sent before is of no use: nobody reads the reply.
    if ((events & ByteStream::hungUp) != 0)
    {
        closeNow();
        return;
    }
    if (switched_)
    {
        passOn();
    }
    if (state_ == State::replying && (events & ByteStream::sendable) != 0)
    {
        send();
    }
    if (state_ == State::reading)
    {
        readRequests();
    }
    watch();
}

/// Gives what was received to the body that has the connection, unless its answers to earlier bytes were not taken: a client
/// that reads none is not read forever.
void HttpConnection::passOn()
{
    if (passed_ >= maxWaiting)
    {
        send();
    }
    if (passed_ >= maxWaiting && !inputEnded_)
    {
        return;
    }
    if (!input_.empty() && body_ != nullptr)
    {
        passed_ += input_.size();
        body_->receive(input_);
        // It may have an answer, or its end.
        waiting_ = false;
        send();
    }
    input_.clear();
    if (inputEnded_ && state_ == State::replying)
    {
        closeNow();
    }
}

/// \returns false when the connection is unusable
bool HttpConnection::receive()
{
    std::array<char, readSize> bytes;
    const std::size_t max = state_ == State::reading ? readSize : std::min(readSize, maxWaiting);
    if (inputEnded_ || (state_ != State::reading && input_.size() >= maxWaiting))
    {
        return true;
    }
    const ByteStream::Result result = stream_->receive(bytes.data(), max);
    switch (result.status)
    {
        case ByteStream::Status::done:
            if (state_ == State::reading && input_.empty() && !reader_.started())
            {
                since_ = clock_.now();
            }
            input_.append(bytes.data(), result.count);
            return true;
        case ByteStream::Status::blocked:
            return true;
        case ByteStream::Status::ended:
            inputEnded_ = true;
            return true;
        case ByteStream::Status::failed:
            break;
    }
    return false;
}

/// Handles the requests that were received, until one waits for its reply.
void HttpConnection::readRequests()
{
    while (state_ == State::reading)
    {
        std::size_t used = 0;
        const HttpRequestReader::State read = reader_.read(input_, used);
        input_.erase(0, used);
        if (read == HttpRequestReader::State::failed)
        {
            refuse(reader_.status(), reasonToRefuse(reader_.status()));
            return;
        }
        if (read == HttpRequestReader::State::complete)
        {
            handle(reader_.take());
            continue;
        }
        if (inputEnded_)
        {
            closeNow();
        }
        else if (reader_.takeExpectation())
        {
            const std::string_view go = "HTTP/1.1 100 Continue\r\n\r\n";
            // The client goes on by itself where the buffer is full.
            stream_->send(&go, 1, false);
        }
        return;
    }
}

void HttpConnection::handle(HttpRequest request)
{
    state_ = State::handling;
    since_ = clock_.now();
    first_ = false;
    head_ = request.head.method == "HEAD";
    http10_ = request.head.version == http10;
    keepAlive_ = request.keepAlive;
    cancelled_ = std::make_shared<std::atomic<bool>>(false);
    request.cancelled = cancelled_;
    request.peer = stream_->peer();
    request.encrypted = stream_->encrypted();
    request.certificate = stream_->certificateName();
    request.connection = serial_;
    ++request_;
    dispatching_ = true;
    events_.requested(std::move(request), responder());
    dispatching_ = false;
}

HttpConnection::Respond HttpConnection::responder()
{
    return [weak = weak_from_this(), gate = gate_, number = request_](HttpReply reply)
    {
        const auto deliver = [weak, number, reply = std::move(reply)]
        {
            const auto held = weak.lock();
            return held != nullptr && held->take(number, reply) ? held : nullptr;
        };
        if (gate->isOnLoop())
        {
            const auto held = weak.lock();
            if (held == nullptr || held->dispatching_)
            {
                deliver();
                return;
            }
        }
        gate->post(
            [deliver]
            {
                if (const auto held = deliver())
                {
                    // Nobody above this call goes on.
                    held->onReady(0);
                }
            });
    };
}

/// \returns false when nobody waits for the reply any more
bool HttpConnection::take(std::uint64_t request, HttpReply made)
{
    if (state_ != State::handling || request != request_)
    {
        if (made.source != nullptr)
        {
            made.source->cancel();
        }
        return false;
    }
    reply(std::move(made), keepAlive_ && !inputEnded_);
    return true;
}

void HttpConnection::refuse(int status, std::string_view detail)
{
    head_ = false;
    reply(HttpReply::problem(status, detail), false);
}

void HttpConnection::reply(HttpReply reply, bool keepAlive)
{
    state_ = State::replying;
    since_ = clock_.now();
    chunked_ = reply.chunked() && !http10_;
    keepAlive_ = keepAlive && (chunked_ || !reply.chunked()) && !reply.switches();
    unsent_ = reply.headText(http10_, keepAlive_);
    sent_ = 0;
    owed_ = reply.length;
    switched_ = reply.switches();
    if (head_ || (reply.bodiless() && !switched_))
    {
        if (reply.source != nullptr)
        {
            reply.source->cancel();
        }
    }
    else if (reply.source != nullptr)
    {
        body_ = std::move(reply.source);
        body_->start(waker());
    }
    else if (reply.shared != nullptr)
    {
        shared_ = std::move(reply.shared);
    }
    else
    {
        unsent_ += reply.body;
    }
    send();
}

std::function<void()> HttpConnection::waker()
{
    return [weak = weak_from_this(), gate = gate_, number = request_]
    {
        gate->post(
            [weak, number]
            {
                const auto held = weak.lock();
                if (held != nullptr && held->state_ == State::replying && held->request_ == number)
                {
                    held->waiting_ = false;
                    held->onReady(ByteStream::sendable);
                }
            });
    };
}

/// Adds what is to be sent next to `unsent_`, which is empty.
/// \returns false when nothing is now
bool HttpConnection::fill()
{
    unsent_.clear();
    behind_.reset();
    sent_ = 0;
    if (shared_ != nullptr)
    {
        unsent_ = *std::exchange(shared_, nullptr);
        return !unsent_.empty();
    }
    if (body_ == nullptr || waiting_)
    {
        return false;
    }
    std::string made;
    const BodySource::State state = body_->readShared(maxUnsent, made, behind_);
    passed_ = 0;
    if (behind_ != nullptr && (chunked_ || owed_))
    {
        made.append(reinterpret_cast<const char*>(behind_->data()), behind_->size());
        behind_.reset();
    }
    if (owed_)
    {
        // The client takes what is more for the next reply.
        made.resize(static_cast<std::size_t>(std::min<std::uint64_t>(made.size(), *owed_)));
        *owed_ -= made.size();
    }
    appendChunk(made);
    waiting_ = state == BodySource::State::waiting;
    if (state == BodySource::State::failed || (state == BodySource::State::ended && owed_.value_or(0) > 0))
    {
        body_->cancel();
        body_ = nullptr;
        closeNow();
        return false;
    }
    if (state == BodySource::State::ended)
    {
        body_ = nullptr;
        unsent_ += chunked_ ? "0\r\n\r\n" : "";
    }
    return !allSent() || (state == BodySource::State::more);
}

void HttpConnection::appendChunk(std::string_view bytes)
{
    if (bytes.empty())
    {
        return;
    }
    if (!chunked_)
    {
        unsent_.append(bytes);
        return;
    }
    unsent_ += fmt::format("{:x}\r\n", bytes.size());
    unsent_.append(bytes).append("\r\n");
}

void HttpConnection::send()
{
    std::size_t turn = 0;
    while (state_ == State::replying && turn < maxTurn)
    {
        if (allSent() && !fill())
        {
            if (state_ == State::replying && body_ == nullptr)
            {
                finishReply();
            }
            return;
        }
        if (allSent())
        {
            ++turn;
            continue;
        }
        const MonotonicTime now = clock_.now();
        const ByteStream::Result result = sendRest();
        if (result.status == ByteStream::Status::failed)
        {
            closeNow();
            return;
        }
        if (result.status != ByteStream::Status::done)
        {
            return;
        }
        since_ = now;
        sent_ += result.count;
        turn += result.count;
    }
}

ByteStream::Result HttpConnection::sendRest()
{
    const std::size_t first = std::min(sent_, unsent_.size());
    std::array<std::string_view, 2> parts{std::string_view(unsent_).substr(first)};
    if (behind_ != nullptr)
    {
        parts[1] = std::string_view(reinterpret_cast<const char*>(behind_->data()), behind_->size())
                       .substr(sent_ - first);
    }
    const std::string_view* const begin = parts[0].empty() ? &parts[1] : parts.data();
    return stream_->send(begin, parts[0].empty() || parts[1].empty() ? 1 : 2, false);
}

bool HttpConnection::allSent() const
{
    return sent_ == unsent_.size() + (behind_ == nullptr ? 0 : behind_->size());
}

void HttpConnection::finishReply()
{
    unsent_ = std::string();
    behind_.reset();
    sent_ = 0;
    cancelled_ = nullptr;
    if (keepAlive_)
    {
        state_ = State::reading;
        return;
    }
    // Closing with bytes unread would reset the connection, and the client might lose the reply.
    state_ = State::draining;
    stream_->endSending();
}

void HttpConnection::drain()
{
    std::array<char, readSize> bytes;
    const ByteStream::Result result = stream_->receive(bytes.data(), bytes.size());
    if (inputEnded_ || result.status == ByteStream::Status::ended ||
        result.status == ByteStream::Status::failed)
    {
        closeNow();
    }
}

void HttpConnection::watch()
{
    if (state_ == State::closed)
    {
        return;
    }
    // Nothing is there to be sent that would show that the client is gone.
    const bool waitsInVain = state_ == State::replying && waiting_ && allSent();
    if (inputEnded_ && (state_ == State::draining || waitsInVain))
    {
        closeNow();
        return;
    }
    const bool busy = state_ == State::handling || state_ == State::replying;
    stream_->watchReceive(!inputEnded_ && !(busy && input_.size() >= maxWaiting));
    stream_->watchSend(state_ == State::replying && !(waiting_ && allSent()));
}

std::optional<MonotonicTime> HttpConnection::deadline() const
{
    switch (state_)
    {
        case State::reading:
            return since_ + std::chrono::seconds(first_ || reader_.started() || !input_.empty()
                                                     ? config_.requestTimeout
                                                     : config_.idleTimeout);
        case State::handling:
            return since_ + maxHandling;
        case State::replying:
            // A body that waits for its maker has no deadline here.
            return waiting_ && allSent()
                       ? std::nullopt
                       : std::optional<MonotonicTime>(since_ + std::chrono::seconds(config_.requestTimeout));
        case State::draining:
            return since_ + maxDraining;
        case State::closed:
            break;
    }
    return std::nullopt;
}

void HttpConnection::sweep()
{
    if (state_ == State::replying && waiting_ && clock_.now() >= since_ + BodySource::maxSilence)
    {
        waiting_ = false;
        since_ = clock_.now();
        onReady(ByteStream::sendable);
        return;
    }
    const auto due = deadline();
    if (!due || clock_.now() < *due)
    {
        return;
    }
    if (state_ == State::handling)
    {
        cancelled_->store(true);
        ++request_;
        refuse(notFinished, "The server did not finish this in time.");
        watch();
        return;
    }
    Log::debug("{}: HTTP connection closed: its time is over", peer().text());
    closeNow();
}

}  // namespace refhost

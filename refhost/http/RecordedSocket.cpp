#include "refhost/http/RecordedSocket.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/http/RecordedQuery.h"
#include "refhost/http/StreamMessages.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;
using Kind = RecordedFragments::Next::Kind;

constexpr std::size_t blockSize = 65536;

}  // namespace

RecordedSocket::RecordedSocket(BackgroundWork& work, std::shared_ptr<const RecordingDirectory> directory,
                               const HostClock& clock, Options options)
    : work_(work),
      clock_(clock),
      options_(std::move(options)),
      fragments_(std::make_unique<RecordedFragments>(std::move(directory), clock, options_.request))
{
}

void RecordedSocket::start(std::function<void()> wake)
{
    {
        const MutexLock lock(mutex_);
        wake_ = std::move(wake);
    }
    goOn();
}

void RecordedSocket::goOn()
{
    work_.wake(shared_from_this());
}

void RecordedSocket::cancel()
{
    {
        const MutexLock lock(mutex_);
        cancelled_ = true;
        wake_ = nullptr;
        ahead_ = std::string();
        taken_ = 0;
    }
    // The files are closed where they are read: that may take time.
    goOn();
}

void RecordedSocket::receive(std::string_view bytes)
{
    std::string payload;
    frames_.read(bytes, payload, answers_);
    if (!takes(payload))
    {
        frames_.close(WebSocketFrames::End::goingAway, answers_);
    }
}

/// Takes a client's lines. \returns false when one is wrong
bool RecordedSocket::takes(std::string_view payload)
{
    for (const char letter : payload)
    {
        if (letter != '\n')
        {
            line_ += letter;
            if (line_.size() > maxLine)
            {
                return false;
            }
            continue;
        }
        const std::optional<Duration> until = RecordedQuery::place(std::exchange(line_, {}));
        if (!until)
        {
            return false;
        }
        {
            const MutexLock lock(mutex_);
            until_ = until;
        }
        goOn();
    }
    return true;
}

BodySource::State RecordedSocket::read(std::size_t room, std::string& out)
{
    const MonotonicTime now = clock_.now();
    out += std::exchange(answers_, {});
    if (!frames_.reads() || !frames_.sends())
    {
        return State::ended;
    }
    bool makeMore = false;
    bool ended = false;
    {
        const MutexLock lock(mutex_);
        const std::size_t count = std::min(room, ahead_.size() - taken_);
        out.append(ahead_, taken_, count);
        const bool wasFull = ahead_.size() - taken_ >= maxAhead;
        taken_ += count;
        const std::size_t left = ahead_.size() - taken_;
        if (left == 0)
        {
            ahead_ = std::string();
            taken_ = 0;
        }
        ended = left == 0 && ended_;
        makeMore = wasFull && left < maxAhead && !ended_;
    }
    if (makeMore)
    {
        goOn();
    }
    // The user's rights are looked at now and then, and whenever there is nothing else to do.
    if (out.empty() || !checked_ || now - *checked_ >= checkInterval)
    {
        checked_ = now;
        if (!options_.permitted())
        {
            frames_.close(WebSocketFrames::End::goingAway, out);
            return State::ended;
        }
    }
    if (ended)
    {
        frames_.close(WebSocketFrames::End::normal, out);
        return State::ended;
    }
    if (!out.empty())
    {
        sent_ = now;
        return State::more;
    }
    if (sent_ && now - *sent_ >= maxSilence - std::chrono::seconds(1))
    {
        // It wants nothing now; that it is still there shows when this can be sent.
        sent_ = now;
        StreamMessages::add(Json{{"type", "idle"}}, out);
    }
    return State::waiting;
}

MonotonicTime RecordedSocket::run(MonotonicTime now)
{
    Duration until = Duration::max();
    {
        const MutexLock lock(mutex_);
        if (!cancelled_ && (ended_ || ahead_.size() - taken_ >= maxAhead))
        {
            return never;
        }
        until = until_.value_or(until);
        if (cancelled_)
        {
            until = Duration::min();
        }
    }
    if (until == Duration::min() || fragments_ == nullptr)
    {
        fragments_.reset();
        held_.reset();
        return never;
    }
    Made made;
    try
    {
        made = make(until);
    }
    catch (const std::exception& error)
    {
        Log::warning("HTTP: a recording cannot be read further: {}", Log::safe(error.what()));
        made.ended = true;
    }
    std::function<void()> wake;
    bool full = false;
    {
        const MutexLock lock(mutex_);
        if (!cancelled_)
        {
            ahead_.erase(0, std::exchange(taken_, 0));
            ahead_ += made.bytes;
        }
        ended_ = made.ended;
        full = ahead_.size() >= maxAhead;
        wake = wake_;
    }
    if (wake && (made.ended || !made.bytes.empty()))
    {
        wake();
    }
    if (made.ended)
    {
        fragments_.reset();
        return never;
    }
    if (made.grows)
    {
        return now + growthInterval;
    }
    return made.bytes.empty() || full ? never : now;
}

/// Makes the next bytes up to a place on the timeline.
RecordedSocket::Made RecordedSocket::make(Duration until)
{
    Made made;
    while (made.bytes.size() < blockSize)
    {
        RecordedFragments::Next next = held_ ? std::move(*held_) : fragments_->next();
        held_.reset();
        if (next.kind == Kind::later)
        {
            made.grows = true;
            break;
        }
        if (next.kind == Kind::end)
        {
            StreamMessages::add(Json{{"type", "end"}, {"reason", started_ ? "end" : "nothing"}}, made.bytes);
            made.ended = true;
            break;
        }
        if (next.kind == Kind::range && !started_ && options_.ahead && until == Duration::max())
        {
            until = positionIn(next.range) + *options_.ahead;
            const MutexLock lock(mutex_);
            until_ = until_.value_or(until);
        }
        if (next.kind == Kind::fragment && next.decode > until)
        {
            held_ = std::move(next);
            break;
        }
        add(next, made.bytes);
    }
    return made;
}

void RecordedSocket::add(const RecordedFragments::Next& next, std::string& out)
{
    switch (next.kind)
    {
        case Kind::description:
            StreamMessages::addDescription(next.video.get(), next.audio.get(), out);
            break;
        case Kind::range:
        {
            Json message{{"type", "range"},
                         {"date", JsonDocument::time(next.range.date)},
                         {"media", std::chrono::duration<double>(next.range.media).count()},
                         {"direction", options_.request.backwards ? -1 : 1}};
            if (!std::exchange(started_, true))
            {
                message["position"] = std::chrono::duration<double>(positionIn(next.range)).count();
            }
            StreamMessages::add(message, out);
            break;
        }
        default:
            StreamMessages::add(next.fragment, out);
            break;
    }
}

/// Where the instant that the client asked for is.
Duration RecordedSocket::positionIn(const RecordedFragments::Range& range) const
{
    const Duration since = options_.request.start - range.date;
    return options_.request.backwards ? range.media : range.media + std::max(since, Duration::zero());
}

}  // namespace refhost

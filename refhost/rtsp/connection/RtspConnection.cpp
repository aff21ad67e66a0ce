#include "refhost/rtsp/connection/RtspConnection.h"

#include <atomic>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/rtsp/connection/ConnectionLoop.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{
namespace
{

using State = ConnectionState;

// How long a client may take to read the last response.
constexpr std::chrono::seconds maxDraining(2);

std::uint64_t nextSerial()
{
    static std::atomic<std::uint64_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

class CorkedOutput
{
public:
    CorkedOutput(ClientOutput& output, std::string& buffer) : output_(output)
    {
        output_.cork(buffer);
    }
    ~CorkedOutput()
    {
        output_.uncork();
    }
    CorkedOutput(const CorkedOutput&) = delete;
    CorkedOutput& operator=(const CorkedOutput&) = delete;

private:
    ClientOutput& output_;
};

RequestReader::Limits readerLimits(const LimitsConfig& limits, bool http)
{
    RequestReader::Limits made;
    made.headerCount = static_cast<std::size_t>(limits.headerCount);
    made.headerBytes = static_cast<std::size_t>(limits.headerBytes);
    made.bodyBytes = static_cast<std::size_t>(limits.bodyBytes);
    made.http = http;
    return made;
}

}  // namespace

RtspConnection::RtspConnection(ConnectionLoop& loop, RtspServices& services,
                               std::shared_ptr<ByteStream> stream,
                               std::shared_ptr<ConnectionSlots::Slot> slot)
    : loop_(loop),
      services_(services),
      stream_(std::move(stream)),
      serial_(nextSerial()),
      refused_(slot == nullptr),
      slot_(std::move(slot)),
      output_(*stream_, maxWaiting, services.clock),
      reader_(std::make_unique<RequestReader>(
          readerLimits(services.policy.get()->limits, loop.http() != nullptr))),
      handler_(services, *this),
      incompleteSince_(currentTime()),
      standingSince_(*incompleteSince_),
      lastByteAt_(*incompleteSince_),
      livenessAt_(*incompleteSince_)
{
}

RtspConnection::~RtspConnection()
{
    close();
}

void RtspConnection::open()
{
    stream_->attach(loop_.events(),
                    [this](std::uint32_t ready)
                    {
                        // It is called while the stream is attached, and so while this exists; which may end meanwhile.
                        const auto self = shared_from_this();
                        onReady(ready);
                    });
}

void RtspConnection::close()
{
    if (state_.is(State::closed))
    {
        return;
    }
    state_.enter(State::closed);
    output_.close();
    handler_.connectionEnded();
    stream_->close();
    slot_.reset();
}

void RtspConnection::onReady(std::uint32_t ready)
{
    if (state_.is(State::closed))
    {
        return;
    }
    // Requests first: a TEARDOWN saves sending frames.
    if ((ready & ByteStream::receivable) != 0)
    {
        onReceivable();
    }
    else if ((ready & ByteStream::hungUp) != 0)
    {
        fail();
    }
    if ((ready & ByteStream::sendable) != 0 && !state_.is(State::closing) && !output_.onWritable())
    {
        fail();
    }
    resume();
    endWhereDone();
}

/// Closing a TCP connection with unread bytes resets it, which can lose the last response: so wait briefly
/// for the client's end.
void RtspConnection::endWhereDone()
{
    if (state_.is(State::closing))
    {
        loop_.close(*this);
    }
    else if (state_.is(State::draining) && output_.empty())
    {
        stream_->endSending();
    }
}

/// Closes it when its handler is done.
void RtspConnection::fail()
{
    if (!state_.is(State::closed))
    {
        state_.enter(State::closing);
    }
}

void RtspConnection::onReceivable()
{
    if (!state_.is(State::serving) && !state_.is(State::draining))
    {
        return;
    }
    ConnectionLoop::Scratch& scratch = loop_.scratch();
    const ByteStream::Result received = stream_->receive(scratch.input.data(), scratch.input.size());
    if (received.status == ByteStream::Status::blocked)
    {
        return;
    }
    if (received.status != ByteStream::Status::done)
    {
        fail();
        return;
    }
    lastByteAt_ = currentTime();
    if (state_.is(State::serving))
    {
        lendReader();
        reader_->feed(scratch.input.data(), received.count);
        serve(false);
    }
}

void RtspConnection::serve(bool lastTry)
{
    lendReader();
    {
        const CorkedOutput corked(output_, loop_.scratch().output);
        handleItems(lastTry);
    }
    returnReader();
    if (!established_)
    {
        noteStanding(currentTime());
    }
}

void RtspConnection::lendReader()
{
    if (reader_ == nullptr)
    {
        reader_ = std::move(loop_.scratch().reader);
    }
    if (reader_ == nullptr)
    {
        reader_ = std::make_unique<RequestReader>(readerLimits(services_.policy.get()->limits, false));
    }
}

/// Leaves the reader to the loop unless it remembers something.
void RtspConnection::returnReader()
{
    if (reader_->idle() && !state_.is(State::draining))
    {
        loop_.scratch().reader = std::move(reader_);
    }
}

/// A connection that is neither logged in nor has a session may be displaced.
void RtspConnection::noteStanding(MonotonicTime now)
{
    const bool established = handler_.loggedIn() || handler_.carriesSession();
    if (slot_ != nullptr && established != established_)
    {
        established_ = established;
        standingSince_ = now;
        slot_->setEstablished(established, now);
    }
}

void RtspConnection::handleItems(bool lastTry)
{
    ConnectionLoop::Scratch& scratch = loop_.scratch();
    while (state_.is(State::serving) && !congested())
    {
        RequestHandler::Result result = RequestHandler::Result::answered;
        switch (reader_->next(scratch.request))
        {
            case RequestReader::Item::none:
                if (!incompleteSince_ && reader_->kept() != 0)
                {
                    incompleteSince_ = currentTime();
                }
                return;
            case RequestReader::Item::frame:
                handler_.received(reader_->frame());
                break;
            case RequestReader::Item::http:
                enterHttp();
                return;
            case RequestReader::Item::malformed:
                result = handler_.reject(scratch.request, reader_->problem(), scratch.response);
                break;
            case RequestReader::Item::request:
                handshakeDone_ = true;
                result = refused_ ? handler_.refuse(scratch.request, scratch.response)
                                  : handler_.handle(scratch.request, scratch.response, lastTry);
                break;
        }
        if (result == RequestHandler::Result::notReady)
        {
            deferRequest();
            return;
        }
        if (result == RequestHandler::Result::delayed)
        {
            delayRequest();
            return;
        }
        if (result == RequestHandler::Result::answeredLast && state_.is(State::serving))
        {
            state_.enter(State::draining);
            drainingSince_ = currentTime();
        }
        // Each request has its own time to arrive and to wait.
        if (handshakeDone_)
        {
            incompleteSince_.reset();
        }
        lastTry = false;
        deferredSince_.reset();
    }
}

/// A connection that starts with HTTP becomes a stream of another one, or is refused.
void RtspConnection::enterHttp()
{
    stream_->detach();
    const HttpEntrance::Outcome outcome = loop_.http()->enter(
        {reader_->httpHead(), std::string(reader_->httpRest()), stream_, slot_}, currentTime());
    if (!outcome.refusal.empty())
    {
        open();
        sendResponse(outcome.refusal);
        drain();
        return;
    }
    // Closed without its stream, which goes on.
    state_.enter(State::closed);
    output_.close();
    handler_.connectionEnded();
    loop_.replace(*this, outcome.stream, std::exchange(slot_, nullptr));
}

void RtspConnection::drain()
{
    if (state_.is(State::serving))
    {
        handshakeDone_ = true;
        incompleteSince_.reset();
        state_.enter(State::draining);
        drainingSince_ = currentTime();
    }
}

void RtspConnection::endUnlessUsed()
{
    if (!handler_.carriesSession())
    {
        drain();
        endWhereDone();
    }
}

void RtspConnection::deferRequest()
{
    reader_->putBack();
    if (!deferredSince_)
    {
        deferredSince_ = currentTime();
    }
    state_.enter(State::deferred);
    stream_->watchReceive(false);
    loop_.addDeferred(*this);
}

/// Costs no thread: a timer of the loop continues, or the sweep where the clock was advanced.
void RtspConnection::delayRequest()
{
    reader_->putBack();
    delayedUntil_ = currentTime() + handler_.delay();
    state_.enter(State::deferred);
    stream_->watchReceive(false);
    loop_.events().after(handler_.delay(),
                         [weak = weak_from_this(), serial = ++delays_]
                         {
                             const auto self = weak.lock();
                             if (self != nullptr && self->delayedUntil_ && self->delays_ == serial)
                             {
                                 self->endDelay();
                             }
                         });
}

void RtspConnection::endDelay()
{
    delayedUntil_.reset();
    if (state_.is(State::deferred))
    {
        serveAgain();
        endWhereDone();
    }
}

/// Handles no further request while the client does not read earlier responses.
/// \returns true then; received bytes wait
bool RtspConnection::congested()
{
    if (output_.waitingResponses() <= congestedAbove)
    {
        return false;
    }
    reader_->keepRest();
    state_.enter(State::congested);
    progressAt_ = currentTime();
    stream_->watchReceive(false);
    return true;
}

void RtspConnection::resume()
{
    if (state_.is(State::congested) && output_.waitingResponses() <= congestedAbove)
    {
        serveAgain();
    }
}

void RtspConnection::retryDeferred()
{
    if (state_.is(State::deferred) && !delayedUntil_)
    {
        serveAgain();
        endWhereDone();
    }
}

void RtspConnection::serveAgain()
{
    state_.enter(State::serving);
    stream_->watchReceive(true);
    serve(deferredTooLong(currentTime()));
}

MonotonicTime RtspConnection::currentTime() const
{
    return services_.now();
}

bool RtspConnection::deferredTooLong(MonotonicTime now) const
{
    return deferredSince_ && now - *deferredSince_ >= maxDeferral;
}

bool RtspConnection::refused() const
{
    return refused_;
}

void RtspConnection::sweep(MonotonicTime now)
{
    noteProgress(now);
    noteLiveness(now);
    noteStanding(now);
    if (delayedUntil_)
    {
        if (now >= *delayedUntil_)
        {
            endDelay();
        }
    }
    else if (state_.is(State::deferred))
    {
        if (deferredTooLong(now))
        {
            retryDeferred();
        }
    }
    else if (isOverTime(now))
    {
        Log::debug("{}: ended an idle connection", peer().text());
        loop_.close(*this);
    }
}

void RtspConnection::noteProgress(MonotonicTime now)
{
    if (output_.bytesTaken() != bytesTakenBefore_)
    {
        bytesTakenBefore_ = output_.bytesTaken();
        progressAt_ = now;
    }
}

/// A client whose TCP acknowledges is alive, even if it reads nothing.
void RtspConnection::noteLiveness(MonotonicTime now)
{
    constexpr int looks = 16;  // per session timeout
    const Duration interval =
        Duration(std::chrono::seconds(services_.policy.get()->limits.sessionTimeout)) / looks;
    if (now - livenessAt_ < interval || !handler_.carriesSession())
    {
        return;
    }
    livenessAt_ = now;
    if (const auto silence = stream_->silence())
    {
        handler_.connectionAnswered(now - *silence);
    }
}

bool RtspConnection::isOverTime(MonotonicTime now)
{
    if (state_.is(State::closing))
    {
        return true;
    }
    if (state_.is(State::draining))
    {
        return now - drainingSince_ >= maxDraining;
    }
    const auto policy = services_.policy.get();
    const LimitsConfig& limits = policy->limits;
    const std::chrono::seconds handshakeTimeout(limits.handshakeTimeout);
    if (state_.is(State::congested))
    {
        return now - progressAt_ >= handshakeTimeout;
    }
    if (incompleteSince_ && now - *incompleteSince_ >= handshakeTimeout)
    {
        return true;
    }
    const std::chrono::seconds setupTimeout(limits.setupTimeout);
    if (slot_ != nullptr && !established_ && now - standingSince_ >= setupTimeout && slot_->scarce())
    {
        return true;
    }
    const std::chrono::seconds idleTimeout(limits.idleTimeout);
    return now - lastByteAt_ >= idleTimeout && !handler_.carriesSession();
}

SendStatus RtspConnection::writeFrames(const std::uint8_t* data, std::size_t size, bool more)
{
    return output_.sendFrames(data, size, more);
}

void RtspConnection::notifyWhenWritable(std::weak_ptr<TransportListener> listener)
{
    output_.notifyWhenWritable(std::move(listener));
}

void RtspConnection::flush()
{
    output_.flush();
}

void RtspConnection::sendResponse(std::string_view response)
{
    if (!output_.sendResponse(response))
    {
        fail();
    }
}

std::weak_ptr<FrameWriter> RtspConnection::frameWriter()
{
    if (!std::exchange(largeSendBuffer_, true))
    {
        stream_->setSendBuffer(static_cast<std::size_t>(services_.policy.get()->limits.sendBuffer) * 1024);
    }
    return std::static_pointer_cast<FrameWriter>(shared_from_this());
}

std::string RtspConnection::peerName() const
{
    return peer().text() + " (interleaved)";
}

/// From the object's begin, where its type and its owners stand, to the end of its output.
void RtspConnection::addFootprint(Footprint& footprint) const
{
    const auto* const begin = reinterpret_cast<const char*>(this);
    const auto* const end = reinterpret_cast<const char*>(&output_ + 1);
    constexpr std::size_t ownersSize = 16;  // what std::make_shared() puts in front
    footprint.add(begin - ownersSize, static_cast<std::size_t>(end - begin) + ownersSize);
    constexpr std::size_t streamSize = 128;  // of the part of any stream that sending uses
    footprint.add(stream_.get(), streamSize);
}

const SocketAddress& RtspConnection::peer() const
{
    return stream_->peer();
}

const SocketAddress& RtspConnection::local() const
{
    return stream_->local();
}

std::uint64_t RtspConnection::serial() const
{
    return serial_;
}

bool RtspConnection::encrypted() const
{
    return stream_->encrypted();
}

std::string RtspConnection::certificateName() const
{
    return stream_->certificateName();
}

}  // namespace refhost

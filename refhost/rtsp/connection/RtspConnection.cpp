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

using State = ConnectionState::State;

// How long a client may take to read the last response.
constexpr std::int64_t maxDrainingMs = 2000;

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

RequestReader::Limits readerLimits(const LimitsConfig& limits)
{
    return {static_cast<std::size_t>(limits.headerCount), static_cast<std::size_t>(limits.headerBytes),
            static_cast<std::size_t>(limits.bodyBytes)};
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
      reader_(readerLimits(services.limits)),
      handler_(services, *this),
      incompleteMs_(services.clock()),
      standingMs_(*incompleteMs_),
      lastByteMs_(*incompleteMs_),
      livenessMs_(*incompleteMs_)
{
}

RtspConnection::~RtspConnection()
{
    close();
}

void RtspConnection::open()
{
    stream_->attach(loop_.events(),
                    [self = shared_from_this()](std::uint32_t ready) { self->onReady(ready); });
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
    // Requests first: a TEARDOWN spares the frames that would go out now.
    if ((ready & ByteStream::receivable) != 0)
    {
        onReceivable();
    }
    else if ((ready & ByteStream::hungUp) != 0)
    {
        state_.fail();
    }
    if ((ready & ByteStream::sendable) != 0 && !state_.is(State::closing) && !output_.onWritable())
    {
        state_.fail();
    }
    resume();
    endWhereDone();
}

/// A TCP connection that is closed with unread bytes is reset, which can cost the client the last response: so
/// its end is waited for, not long.
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
        state_.fail();
        return;
    }
    lastByteMs_ = services_.clock();
    if (state_.is(State::serving))
    {
        reader_.feed(scratch.input.data(), received.count);
        serve(false);
    }
}

void RtspConnection::serve(bool lastTry)
{
    const CorkedOutput corked(output_, loop_.scratch().output);
    handleItems(lastTry);
    if (!established_)
    {
        noteStanding(services_.clock());
    }
}

/// Who is neither logged in nor has a session may have to make room.
void RtspConnection::noteStanding(std::int64_t nowMs)
{
    const bool established = handler_.loggedIn() || handler_.carriesSession();
    if (slot_ != nullptr && established != established_)
    {
        established_ = established;
        standingMs_ = nowMs;
        slot_->setEstablished(established, nowMs);
    }
}

void RtspConnection::handleItems(bool lastTry)
{
    ConnectionLoop::Scratch& scratch = loop_.scratch();
    while (state_.is(State::serving) && !congested())
    {
        RequestHandler::Result result = RequestHandler::Result::answered;
        switch (reader_.next(scratch.request))
        {
            case RequestReader::Item::none:
                if (!incompleteMs_ && reader_.kept() != 0)
                {
                    incompleteMs_ = services_.clock();
                }
                return;
            case RequestReader::Item::frame:
                handler_.received(reader_.frame());
                break;
            case RequestReader::Item::malformed:
                result = handler_.reject(scratch.request, reader_.problem(), scratch.response);
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
        if (result == RequestHandler::Result::answeredLast && state_.is(State::serving))
        {
            state_.enter(State::draining);
            drainingMs_ = services_.clock();
        }
        // The next request has its own time, to come and to wait.
        if (handshakeDone_)
        {
            incompleteMs_.reset();
        }
        lastTry = false;
        deferredMs_.reset();
    }
}

void RtspConnection::deferRequest()
{
    reader_.putBack();
    if (!deferredMs_)
    {
        deferredMs_ = services_.clock();
    }
    state_.enter(State::deferred);
    stream_->watchReceive(false);
    loop_.addDeferred(*this);
}

/// Handles no further request while the client owes the reading of earlier responses.
/// \returns true when that is so; what was received waits
bool RtspConnection::congested()
{
    if (output_.waitingResponses() <= congestedAbove)
    {
        return false;
    }
    reader_.keepRest();
    state_.enter(State::congested);
    progressMs_ = services_.clock();
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
    if (state_.is(State::deferred))
    {
        serveAgain();
        endWhereDone();
    }
}

void RtspConnection::serveAgain()
{
    state_.enter(State::serving);
    stream_->watchReceive(true);
    serve(deferredTooLong(services_.clock()));
}

bool RtspConnection::deferredTooLong(std::int64_t nowMs) const
{
    return deferredMs_ && nowMs - *deferredMs_ >= maxDeferralMs;
}

bool RtspConnection::refused() const
{
    return refused_;
}

void RtspConnection::sweep(std::int64_t nowMs)
{
    noteProgress(nowMs);
    noteLiveness(nowMs);
    noteStanding(nowMs);
    if (state_.is(State::deferred))
    {
        if (deferredTooLong(nowMs))
        {
            retryDeferred();
        }
    }
    else if (isOverTime(nowMs))
    {
        Log::debug("{}: ended an idle connection", peer().text());
        loop_.close(*this);
    }
}

void RtspConnection::noteProgress(std::int64_t nowMs)
{
    if (output_.bytesTaken() != bytesTakenBefore_)
    {
        bytesTakenBefore_ = output_.bytesTaken();
        progressMs_ = nowMs;
    }
}

/// A client whose system answers is alive, however long it does not read what its session sends.
void RtspConnection::noteLiveness(std::int64_t nowMs)
{
    constexpr int looks = 16;  // within the time that a session lives without a sign of life
    const std::int64_t everyMs = std::int64_t{services_.limits.sessionTimeout} * 1000 / looks;
    if (nowMs - livenessMs_ < everyMs || !handler_.carriesSession())
    {
        return;
    }
    livenessMs_ = nowMs;
    if (const auto silence = stream_->silence())
    {
        handler_.connectionAnswered(nowMs - silence->count());
    }
}

bool RtspConnection::isOverTime(std::int64_t nowMs)
{
    if (state_.is(State::closing))
    {
        return true;
    }
    if (state_.is(State::draining))
    {
        return nowMs - drainingMs_ >= maxDrainingMs;
    }
    const std::int64_t handshakeMs = std::int64_t{services_.limits.handshakeTimeout} * 1000;
    if (state_.is(State::congested))
    {
        return nowMs - progressMs_ >= handshakeMs;
    }
    if (incompleteMs_ && nowMs - *incompleteMs_ >= handshakeMs)
    {
        return true;
    }
    const std::int64_t setupMs = std::int64_t{services_.limits.setupTimeout} * 1000;
    if (slot_ != nullptr && !established_ && nowMs - standingMs_ >= setupMs && slot_->scarce())
    {
        return true;
    }
    const std::int64_t idleMs = std::int64_t{services_.limits.idleTimeout} * 1000;
    return nowMs - lastByteMs_ >= idleMs && !handler_.carriesSession();
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
        state_.fail();
    }
}

std::weak_ptr<FrameWriter> RtspConnection::frameWriter()
{
    if (!std::exchange(largeSendBuffer_, true))
    {
        stream_->setSendBuffer(static_cast<std::size_t>(services_.limits.sendBuffer) * 1024);
    }
    return std::static_pointer_cast<FrameWriter>(shared_from_this());
}

std::string RtspConnection::peerName() const
{
    return peer().text() + " (interleaved)";
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

}  // namespace refhost

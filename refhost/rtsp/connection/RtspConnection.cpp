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

// How long a client may take to read the last response before the connection goes.
constexpr std::int64_t lingerMs = 2000;

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
      begunMs_(services.clock()),
      standingMs_(begunMs_),
      lastByteMs_(begunMs_),
      livenessMs_(begunMs_)
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
    if (closed_)
    {
        return;
    }
    closed_ = true;
    output_.close();
    handler_.connectionEnded();
    stream_->close();
    slot_.reset();
}

void RtspConnection::onReady(std::uint32_t ready)
{
    if (closed_)
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
        doomed_ = true;
    }
    if ((ready & ByteStream::sendable) != 0 && !doomed_ && !output_.onWritable())
    {
        doomed_ = true;
    }
    resume();
    endWhereDone();
}

/// A TCP connection that is closed with unread bytes is reset, which can cost the client the last response: so
/// its end is waited for, not long.
void RtspConnection::endWhereDone()
{
    if (doomed_)
    {
        loop_.close(*this);
    }
    else if (lingering_ && output_.empty())
    {
        stream_->endSending();
    }
}

void RtspConnection::onReceivable()
{
    ConnectionLoop::Scratch& scratch = loop_.scratch();
    const ByteStream::Result received = stream_->receive(scratch.input.data(), scratch.input.size());
    if (received.status != ByteStream::Status::done)
    {
        doomed_ = received.status != ByteStream::Status::blocked;
        return;
    }
    lastByteMs_ = services_.clock();
    if (lingering_)
    {
        return;
    }
    reader_.feed(scratch.input.data(), received.count);
    process(false);
}

void RtspConnection::process(bool lastTry)
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
    while (!doomed_ && !lingering_ && !defer())
    {
        RequestHandler::Result result = RequestHandler::Result::answered;
        switch (reader_.next(scratch.request))
        {
            case RequestReader::Item::none:
                if (begunMs_ < 0 && reader_.kept() != 0)
                {
                    begunMs_ = services_.clock();
                }
                return;
            case RequestReader::Item::frame:
                handler_.received(reader_.frame());
                break;
            case RequestReader::Item::malformed:
                result = handler_.reject(scratch.request, reader_.problem(), scratch.response);
                break;
            case RequestReader::Item::request:
                greeted_ = true;
                result = refused_ ? handler_.refuse(scratch.request, scratch.response)
                                  : handler_.handle(scratch.request, scratch.response, lastTry);
                break;
        }
        if (result == RequestHandler::Result::notReady)
        {
            park();
            return;
        }
        if (result == RequestHandler::Result::answeredLast)
        {
            lingering_ = true;
            lingeringMs_ = services_.clock();
        }
        // The next request has its own time, to come and to wait.
        begunMs_ = greeted_ ? -1 : begunMs_;
        lastTry = false;
        parkedMs_ = -1;
    }
}

void RtspConnection::park()
{
    reader_.putBack();
    if (parkedMs_ < 0)
    {
        parkedMs_ = services_.clock();
    }
    stream_->watchReceive(false);
    loop_.addParked(*this);
}

/// Handles no further request while the client owes the reading of earlier responses.
/// \returns true when that is so; what was received waits
bool RtspConnection::defer()
{
    if (output_.waitingResponses() <= deferAbove)
    {
        return false;
    }
    reader_.keepRest();
    deferred_ = true;
    deferredMs_ = services_.clock();
    stream_->watchReceive(false);
    return true;
}

void RtspConnection::resume()
{
    if (!deferred_ || doomed_ || closed_ || output_.waitingResponses() > deferAbove)
    {
        return;
    }
    deferred_ = false;
    stream_->watchReceive(!parked());
    if (!parked())
    {
        process(false);
    }
}

void RtspConnection::retryParked()
{
    if (closed_ || parkedMs_ < 0)
    {
        return;
    }
    const bool lastTry = services_.clock() - parkedMs_ >= maxDeferredMs;
    stream_->watchReceive(true);
    process(lastTry);
    endWhereDone();
}

bool RtspConnection::parked() const
{
    return parkedMs_ >= 0;
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
    if (parked() && nowMs - parkedMs_ >= maxDeferredMs)
    {
        retryParked();
    }
    else if (tooOld(nowMs))
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
        deferredMs_ = nowMs;
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

bool RtspConnection::tooOld(std::int64_t nowMs)
{
    if (lingering_)
    {
        return nowMs - lingeringMs_ >= lingerMs;
    }
    if (parked())
    {
        return false;
    }
    const std::int64_t handshakeMs = std::int64_t{services_.limits.handshakeTimeout} * 1000;
    if (deferred_)
    {
        return nowMs - deferredMs_ >= handshakeMs;
    }
    if (begunMs_ >= 0 && nowMs - begunMs_ >= handshakeMs)
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
        doomed_ = true;
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

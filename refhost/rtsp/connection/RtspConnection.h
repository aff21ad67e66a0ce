#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "refhost/base/Times.h"
#include "refhost/net/ByteStream.h"
#include "refhost/rtp/InterleavedTransport.h"
#include "refhost/rtsp/connection/ClientOutput.h"
#include "refhost/rtsp/connection/ConnectionSlots.h"
#include "refhost/rtsp/connection/ConnectionState.h"
#include "refhost/rtsp/message/RequestReader.h"
#include "refhost/rtsp/session/ClientConnection.h"
#include "refhost/rtsp/session/RequestHandler.h"

namespace refhost
{

class ConnectionLoop;

/// One client's connection on an event loop: parses its stream into requests for a RequestHandler, and sends
/// the responses and the sessions' interleaved frames through one ClientOutput.
///
/// Receives nothing while a request is deferred because its media is not ready, or delayed after wrong
/// passwords, or while the client does not read its responses: later requests wait in the stream. ConnectionState has the details. A client that
/// reads no response for a while is closed.
///
/// Memory is bounded by the limits of RequestReader and ClientOutput; the system's send buffer is large only
/// from the first interleaved SETUP on. Between two requests it holds no reader: the loop's one serves all.
///
/// Owned by its ConnectionLoop until it closes; transports hold it weakly.
/// Threads: writeFrames() and notifyWhenWritable() any; everything else the loop's.
class RtspConnection : public FrameWriter,
                       public ClientConnection,
                       public std::enable_shared_from_this<RtspConnection>
{
public:
    /// How long a request may be deferred.
    static constexpr std::chrono::milliseconds maxDeferral = std::chrono::seconds(10);
    /// No further request is handled while more bytes of responses wait for the client.
    static constexpr std::size_t congestedAbove = std::size_t{16} * 1024;
    /// Bytes of responses that may wait before the connection is closed.
    static constexpr std::size_t maxWaiting = std::size_t{64} * 1024;

    /// \param stream  detached; owned and closed by the connection
    /// \param slot    null: answer the first request with 503 and close
    RtspConnection(ConnectionLoop& loop, RtspServices& services, std::shared_ptr<ByteStream> stream,
                   std::shared_ptr<ConnectionSlots::Slot> slot);
    ~RtspConnection() override;

    /// Starts receiving.
    /// \throws std::system_error when the system refuses it
    void open();
    /// Closes the connection and ends the sessions interleaved in it. Further calls do nothing.
    void close();

    /// Ends the connection, after what waits for the client, unless a session uses it.
    void endUnlessUsed();
    /// Retries a deferred request.
    void retryDeferred();
    /// Checks the timeouts.
    void sweep(MonotonicTime now);

    /// Whether it answers its first request with 503 and closes.
    bool refused() const;

    SendStatus writeFrames(const std::uint8_t* data, std::size_t size, bool more) override;
    void notifyWhenWritable(std::weak_ptr<TransportListener> listener) override;
    std::string peerName() const override;
    void addFootprint(Footprint& footprint) const override;

    void sendResponse(std::string_view response) override;
    void flush() override;
    std::weak_ptr<FrameWriter> frameWriter() override;
    const SocketAddress& peer() const override;
    const SocketAddress& local() const override;
    std::uint64_t serial() const override;
    bool encrypted() const override;
    std::string certificateName() const override;

private:
    void onReady(std::uint32_t ready);
    void onReceivable();
    void fail();
    void serve(bool lastTry);
    void handleItems(bool lastTry);
    void lendReader();
    void returnReader();
    void enterHttp();
    void drain();
    void deferRequest();
    void delayRequest();
    void endDelay();
    bool congested();
    void serveAgain();
    void resume();
    void endWhereDone();
    void noteProgress(MonotonicTime now);
    void noteLiveness(MonotonicTime now);
    void noteStanding(MonotonicTime now);
    MonotonicTime currentTime() const;
    bool deferredTooLong(MonotonicTime now) const;
    bool isOverTime(MonotonicTime now);

    ConnectionLoop& loop_;
    RtspServices& services_;
    const std::shared_ptr<ByteStream> stream_;
    const std::uint64_t serial_;
    const bool refused_;
    std::shared_ptr<ConnectionSlots::Slot> slot_;

    ClientOutput output_;
    std::unique_ptr<RequestReader> reader_;  // null between two messages
    RequestHandler handler_;
    StateMachine<ConnectionState> state_{ConnectionState::serving};
    bool handshakeDone_ = false;                    // a whole request was received
    std::optional<MonotonicTime> incompleteSince_;  // start of an incomplete request
    std::optional<MonotonicTime> deferredSince_;    // first deferral of the waiting request
    std::optional<MonotonicTime> delayedUntil_;     // of a request that waits after wrong passwords
    std::uint64_t delays_ = 0;                      // so far
    MonotonicTime progressAt_;                      // last byte that a congested client took
    MonotonicTime drainingSince_;                   // start of draining
    bool established_ = false;                      // logged in, or with a session
    MonotonicTime standingSince_;                   // last change of established_
    MonotonicTime lastByteAt_;                      // last byte received
    MonotonicTime livenessAt_;                      // last check of the stream's liveness
    std::uint64_t bytesTakenBefore_ = 0;
    bool largeSendBuffer_ = false;
};

}  // namespace refhost

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

/// One client's connection on an event loop: the bytes of its stream become requests for a RequestHandler,
/// whose responses and whose sessions' interleaved frames go out through one ClientOutput.
///
/// While a request is deferred, because its media is not ready yet, and while the client does not read the
/// responses it asked for, nothing more is received: later requests wait in the stream. ConnectionState has
/// the whole of it. A client that reads no response for a while is ended.
///
/// Memory: at most what RequestReader and ClientOutput keep, which their limits bound; the system's send
/// buffer is large only from the first interleaved SETUP on.
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
    /// With more bytes of responses than that waiting for the client, no further request is handled.
    static constexpr std::size_t congestedAbove = 16 * 1024;
    /// Bytes of responses that may wait for a client that does not read them.
    static constexpr std::size_t maxWaiting = 64 * 1024;

    /// \param stream  detached; the connection's from now on, which closes it
    /// \param slot    null: answer the first request with 503 and end
    RtspConnection(ConnectionLoop& loop, RtspServices& services, std::shared_ptr<ByteStream> stream,
                   std::shared_ptr<ConnectionSlots::Slot> slot);
    ~RtspConnection() override;

    /// Starts to receive.
    /// \throws std::system_error when the system refuses it
    void open();
    /// Ends the connection, and the sessions that live in it. Does nothing the second time.
    void close();

    /// Tries a deferred request again.
    void retryDeferred();
    /// Ends what is over its time.
    void sweep(MonotonicTime now);

    /// True when it answers its first request with 503 and ends.
    bool refused() const;

    SendStatus writeFrames(const std::uint8_t* data, std::size_t size, bool more) override;
    void notifyWhenWritable(std::weak_ptr<TransportListener> listener) override;
    std::string peerName() const override;

    void sendResponse(std::string_view response) override;
    void flush() override;
    std::weak_ptr<FrameWriter> frameWriter() override;
    const SocketAddress& peer() const override;
    const SocketAddress& local() const override;
    std::uint64_t serial() const override;

private:
    void onReady(std::uint32_t ready);
    void onReceivable();
    void fail();
    void serve(bool lastTry);
    void handleItems(bool lastTry);
    void deferRequest();
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
    RequestReader reader_;
    RequestHandler handler_;
    StateMachine<ConnectionState> state_{ConnectionState::serving};
    bool handshakeDone_ = false;                    // a whole request came
    std::optional<MonotonicTime> incompleteSince_;  // when the client started what is not a whole request yet
    std::optional<MonotonicTime> deferredSince_;    // when the request that waits was deferred first
    MonotonicTime progressAt_;                      // when a congested client last took a byte
    MonotonicTime drainingSince_;                   // when it started
    bool established_ = false;                      // logged in, or with a session
    MonotonicTime standingSince_;                   // when that changed last
    MonotonicTime lastByteAt_;                      // when the client last sent one
    MonotonicTime livenessAt_;  // when the stream was asked last whether the client answers
    std::uint64_t bytesTakenBefore_ = 0;
    bool largeSendBuffer_ = false;
};

}  // namespace refhost

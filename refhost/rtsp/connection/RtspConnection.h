#pragma once

#include <cstdint>
#include <memory>

#include "refhost/net/ByteStream.h"
#include "refhost/rtp/InterleavedTransport.h"
#include "refhost/rtsp/connection/ClientOutput.h"
#include "refhost/rtsp/connection/ConnectionSlots.h"
#include "refhost/rtsp/message/RequestReader.h"
#include "refhost/rtsp/session/ClientConnection.h"
#include "refhost/rtsp/session/RequestHandler.h"

namespace refhost
{

class ConnectionLoop;

/// One client's connection on an event loop: the bytes of its stream become requests for a RequestHandler,
/// whose responses and whose sessions' interleaved frames go out through one ClientOutput.
///
/// While a request waits for its stream ("parked"), nothing more is read: later requests wait in the stream.
/// The same while the client does not read the responses it asked for ("deferred"); one that reads none of
/// them for a while is ended.
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
    /// How long a request may wait for its stream.
    static constexpr std::int64_t maxDeferredMs = 10000;
    /// Bytes of responses that wait for the client when no further request is handled.
    static constexpr std::size_t deferAbove = 16 * 1024;
    /// Bytes of responses that may wait for a client that does not read them.
    static constexpr std::size_t maxWaiting = 64 * 1024;

    /// \param stream  detached; the connection's from now on, which closes it
    /// \param slot    null: answer the first request with 503 and end
    RtspConnection(ConnectionLoop& loop, RtspServices& services, std::shared_ptr<ByteStream> stream,
                   std::shared_ptr<ConnectionSlots::Slot> slot);
    ~RtspConnection() override;

    /// Starts to read.
    void open();
    /// Ends the connection, and the sessions that live in it. Does nothing the second time.
    void close();

    /// Tries a parked request again.
    void retryParked();
    /// Looks what became too old.
    void sweep(std::int64_t nowMs);

    bool parked() const;
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
    void process(bool lastTry);
    void handleItems(bool lastTry);
    void park();
    bool defer();
    void resume();
    void noteProgress(std::int64_t nowMs);
    void noteLiveness(std::int64_t nowMs);
    void endWhereDone();
    bool tooOld(std::int64_t nowMs);
    void noteStanding(std::int64_t nowMs);

    ConnectionLoop& loop_;
    RtspServices& services_;
    const std::shared_ptr<ByteStream> stream_;
    const std::uint64_t serial_;
    const bool refused_;
    std::shared_ptr<ConnectionSlots::Slot> slot_;

    ClientOutput output_;
    RequestReader reader_;
    RequestHandler handler_;
    bool closed_ = false;
    bool doomed_ = false;     // close at the next chance
    bool lingering_ = false;  // everything was said; what the client still sends is dropped
    std::int64_t parkedMs_ = -1;
    bool deferred_ = false;
    std::int64_t deferredMs_ = 0;  // when the client last took a byte
    bool largeSendBuffer_ = false;
    bool greeted_ = false;  // a whole request came
    std::int64_t begunMs_;  // when the client started what is not a whole request yet; -1: nothing is started
    bool established_ = false;  // logged in, or with a session
    std::int64_t standingMs_;   // when that changed last
    std::int64_t lastByteMs_;
    std::int64_t lingeringMs_ = 0;
    std::uint64_t bytesTakenBefore_ = 0;
    std::int64_t livenessMs_;  // when the stream was asked last whether the client answers
};

}  // namespace refhost

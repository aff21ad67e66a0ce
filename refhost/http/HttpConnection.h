#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "refhost/base/HostClock.h"
#include "refhost/config/Config.h"
#include "refhost/http/HttpReply.h"
#include "refhost/http/HttpRequest.h"
#include "refhost/http/HttpRequestReader.h"
#include "refhost/net/ByteStream.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// One client's connection to the HTTP service: its requests one after the other, and their replies, as fast as the
/// client takes them.
///
/// While a request is handled or replied to, up to `maxWaiting` bytes of further ones are received. A client that ends
/// its sending gets the reply in progress, and a client that resets the connection cancels it. Deadlines: for the bytes
/// of a request, for a client that takes nothing, and for connections without a request, as HttpConfig has them; for a
/// handler `maxHandling`. After a reply that switches to WebSocket, what comes is the source's.
///
/// Threads: the loop's, except the constructor.
class HttpConnection final : public std::enable_shared_from_this<HttpConnection>
{
public:
    static constexpr std::size_t maxWaiting = std::size_t{16} * 1024;
    /// Bytes of a made body that wait to be sent.
    static constexpr std::size_t maxUnsent = std::size_t{64} * 1024;
    static constexpr std::chrono::seconds maxHandling{60};
    /// How long the last reply's client may take to end its sending.
    static constexpr std::chrono::seconds maxDraining{2};

    /// Takes the reply to a request, once. Threads: any; does nothing when nobody waits for it any more.
    using Respond = std::function<void(HttpReply reply)>;

    struct Events
    {
        /// A request is complete: calls `respond`, inside or later.
        std::function<void(HttpRequest request, const Respond& respond)> requested;
        /// The connection closed by itself.
        std::function<void(HttpConnection& connection)> closed;
    };

    /// \param stream  detached
    /// \param loop    outlives close()
    /// \param serial  never reused; not 0
    HttpConnection(std::shared_ptr<ByteStream> stream, EventLoop& loop, const HttpConfig& config,
                   const HostClock& clock, std::uint64_t serial, Events events);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    /// Starts to serve.
    void open();
    /// Ends at once, without `closed`. Does nothing the second time.
    void close();
    /// Checks the deadlines.
    void sweep();

    const SocketAddress& peer() const;

private:
    class Gate;

    enum class State
    {
        reading,   ///< a request, or waits for one
        handling,  ///< the reply is not known yet
        replying,
        draining,  ///< the last reply is sent: what comes is dropped
        closed
    };

    void onReady(std::uint32_t events);
    bool receive();
    void readRequests();
    void handle(HttpRequest request);
    Respond responder();
    std::function<void()> waker();
    bool take(std::uint64_t request, HttpReply reply);
    void refuse(int status, std::string_view detail);
    void reply(HttpReply reply, bool keepAlive);
    void send();
    bool fill();
    void appendChunk(std::string_view bytes);
    bool allSent() const;
    ByteStream::Result sendRest();
    void passOn();
    void finishReply();
    void drain();
    void watch();
    void closeNow();
    std::optional<MonotonicTime> deadline() const;

    const std::shared_ptr<ByteStream> stream_;
    EventLoop& loop_;
    const std::shared_ptr<Gate> gate_;
    const HttpConfig config_;
    const HostClock& clock_;
    const std::uint64_t serial_;
    const Events events_;

    State state_ = State::reading;
    HttpRequestReader reader_;
    std::string input_;          // received and not consumed
    bool dispatching_ = false;   // `requested` is being called
    bool inputEnded_ = false;    // the client ended its sending
    bool first_ = true;          // no request was complete yet
    MonotonicTime since_;        // of the present state's last progress
    std::uint64_t request_ = 0;  // number of the present request
    std::shared_ptr<std::atomic<bool>> cancelled_;
    bool head_ = false;       // the present request's method is HEAD
    bool http10_ = false;     // the present request is of HTTP/1.0
    bool keepAlive_ = false;  // after the present request

    std::string unsent_;                         // of the reply
    BodySource::Shared behind_;                  // of the reply, behind unsent_
    std::size_t sent_ = 0;                       // of the two
    std::shared_ptr<const std::string> shared_;  // of the reply, behind unsent_
    std::shared_ptr<BodySource> body_;           // of the reply, behind unsent_; null once complete
    bool chunked_ = false;
    bool switched_ = false;              // the reply's body has the connection for itself
    bool waiting_ = false;               // for the body's wake
    std::size_t passed_ = 0;             // received bytes that the body got since it was read
    std::optional<std::uint64_t> owed_;  // bytes that the body has to make; nothing: not known
};

}  // namespace refhost

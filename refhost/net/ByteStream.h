#pragma once
// Tested by tests/refhost/net/ByteStreamContract_test.cpp.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "refhost/base/SocketAddress.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// A bidirectional byte stream of one connection over any carrier: TCP, TLS, the two connections of a tunnel,
/// memory. Never blocks.
///
/// A stream is attached to one event loop at a time and reports there the watched events it is ready for,
/// level-triggered as EventLoop does. How it detects readiness is up to the implementation: a stream that must
/// read before it can send watches its carrier for input and reports `sendable` afterwards; one that holds
/// decoded bytes reports `receivable` without new input. Bytes that a stream accepted but could not pass on
/// yet, it sends by itself later.
///
/// Life: created detached; attach(); detach() and attach() to another loop any number of times, which keeps
/// the watched events; close().
///
/// Threads: send(), watchReceive() and watchSend() on any thread, send() one at a time and not once close() is
/// called. All others: the loop's thread while attached, otherwise one at a time.
class ByteStream
{
public:
    enum class Status
    {
        done,     ///< at least one byte was transferred
        blocked,  ///< not possible now: watch for it
        ended,    ///< the peer ended its sending; receive() only
        failed    ///< the connection is unusable
    };

    struct Result
    {
        Status status;
        std::size_t count = 0;  ///< bytes transferred; 0 unless `done`
    };

    /// Events of a stream; any combination.
    static constexpr std::uint32_t receivable = EventLoop::readable;
    static constexpr std::uint32_t sendable = EventLoop::writable;
    /// Both directions ended, or an error; always reported.
    static constexpr std::uint32_t hungUp = EventLoop::hungUp;
    using Handler = EventLoop::IoHandler;

    /// Max number of parts that send() gathers.
    static constexpr std::size_t maxParts = 4;

    ByteStream() = default;
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    /// Closes.
    virtual ~ByteStream() = default;

    /// Calls `handler` on the loop's thread, never from within another operation of the stream, until detach()
    /// or close().
    /// \throws std::system_error when the system refuses it; the stream stays detached
    /// Requires: detached; `loop` lives until detach() or close().
    virtual void attach(EventLoop& loop, Handler handler) = 0;
    /// Once this returns, the handler is not called, and another loop may take the stream. Does nothing on a
    /// detached stream.
    virtual void detach() = 0;

    /// Whether `receivable` is reported; initially true.
    virtual void watchReceive(bool on) = 0;
    /// Whether `sendable` is reported; initially false.
    virtual void watchSend(bool on) = 0;

    /// Receives up to `size` bytes into `bytes`. May be `blocked` although `receivable` was reported.
    virtual Result receive(char* bytes, std::size_t size) = 0;

    /// Sends `parts` in order.
    /// \param count  number of parts, 1 to maxParts; together they hold at least one byte
    /// \param more   the caller sends more at once: the carrier may delay the bytes to join them
    /// \returns how many bytes were accepted. The caller may continue with any other bytes, so a stream must
    ///          not rely on being given the rest again
    virtual Result send(const std::string_view* parts, std::size_t count, bool more) = 0;

    /// Ends sending after the accepted bytes; receiving continues. Does nothing the second time.
    virtual void endSending() = 0;
    /// Detaches and ends both directions; drops bytes not passed on yet. Does nothing the second time.
    virtual void close() = 0;

    virtual const SocketAddress& peer() const = 0;
    virtual const SocketAddress& local() const = 0;

    /// Requests a send buffer of `bytes` from the system, for a stream that carries media from now on.
    virtual void setSendBuffer(std::size_t bytes) = 0;
    /// Time since the peer's system last answered, independent of its program.
    /// \returns nothing when unknown
    virtual std::optional<std::chrono::milliseconds> silence() const = 0;

    /// Whether the bytes are encrypted on the network.
    virtual bool encrypted() const
    {
        return false;
    }

    /// The common name of the certificate that the peer proved to have and that was verified; empty without one.
    virtual std::string certificateName() const
    {
        return {};
    }
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/net/ByteStreamContract_test.cpp.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "refhost/base/SocketAddress.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// The bytes of one connection in both directions, whatever carries them: TCP, TLS, the two connections of a
/// tunnel, memory. Never blocks.
///
/// A stream is attached to one event loop at a time and reports there what it is ready for: only what is
/// watched, and again as long as that lasts, as an EventLoop does. How it finds out is its own business. One
/// that must read before it can send watches its carrier for input and reports `sendable` afterwards; one that
/// holds decoded bytes reports `receivable` without new input; what it took and could not pass on yet it sends
/// without being asked again.
///
/// Life: detached, attach(), detach() and attach() elsewhere any number of times, close(). What is watched is
/// kept when it moves.
///
/// Threads: send(), watchReceive() and watchSend() any, send() by one at a time and by none once close() is
/// called. Everything else: the loop's while attached, otherwise one at a time.
class ByteStream
{
public:
    enum class Status
    {
        done,     ///< at least one byte was transferred
        blocked,  ///< not now: watch for it
        ended,    ///< the peer sends no more; receive() only
        failed    ///< the connection is of no more use
    };

    struct Result
    {
        Status status;
        std::size_t count = 0;  ///< bytes that were transferred; 0 unless `done`
    };

    /// What a stream is ready for; any combination.
    static constexpr std::uint32_t receivable = EventLoop::readable;
    static constexpr std::uint32_t sendable = EventLoop::writable;
    /// Both directions ended, or an error; reported whatever is watched.
    static constexpr std::uint32_t hungUp = EventLoop::hungUp;
    using Handler = EventLoop::IoHandler;

    /// How many parts send() gathers at most.
    static constexpr std::size_t maxParts = 4;

    ByteStream() = default;
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    /// Closes.
    virtual ~ByteStream() = default;

    /// Calls `handler` on the thread of `loop` from now on, never inside another operation of the stream. It
    /// is kept until detach() or close().
    /// \throws std::system_error when the system refuses it; the stream stays detached
    /// Requires: detached; `loop` lives until detach() or close().
    virtual void attach(EventLoop& loop, Handler handler) = 0;
    /// The handler is not called any more after the return, and another loop may have the stream. Does nothing
    /// on a detached one.
    virtual void detach() = 0;

    /// Whether `receivable` is reported; so at first.
    virtual void watchReceive(bool on) = 0;
    /// Whether `sendable` is reported; not at first.
    virtual void watchSend(bool on) = 0;

    /// Receives up to `size` bytes into `bytes`. May be `blocked` although `receivable` was reported.
    virtual Result receive(char* bytes, std::size_t size) = 0;

    /// Sends `parts` one behind the other.
    /// \param count  of the parts, 1 to maxParts; together they hold at least one byte
    /// \param more   more follows at once: the network may wait for it
    /// \returns how many bytes were taken. They are the stream's own now; the caller may follow them by any
    ///          others, so a stream never counts on seeing again what it did not take
    virtual Result send(const std::string_view* parts, std::size_t count, bool more) = 0;

    /// Ends sending behind what was taken; receiving goes on. Does nothing the second time.
    virtual void endSending() = 0;
    /// Detaches and ends both directions; what was not passed on is dropped. Does nothing the second time.
    virtual void close() = 0;

    virtual const SocketAddress& peer() const = 0;
    virtual const SocketAddress& local() const = 0;

    /// Has the system keep up to so many sent bytes, for a stream that carries media from now on.
    virtual void setSendBuffer(std::size_t bytes) = 0;
    /// How long ago the peer's system last answered, whatever its program does.
    /// \returns nothing when that is not known
    virtual std::optional<std::chrono::milliseconds> silence() const = 0;
};

}  // namespace refhost

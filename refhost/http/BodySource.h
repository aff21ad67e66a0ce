#pragma once
// Tested by tests/refhost/http/HttpConnection_test.cpp.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace refhost
{

/// The body of a reply that is made while it is sent, as fast as the client takes it.
///
/// Life: start(), any number of read(), then destroyed; cancel() before, when the client vanished. Threads: the HTTP
/// service's loop. No operation may block. \see BackgroundBody for bodies whose making blocks
class BodySource
{
public:
    enum class State
    {
        more,     ///< there may be more at once
        waiting,  ///< there is nothing more now: `wake` is called once there is
        ended,    ///< the body is complete
        failed    ///< it cannot be completed: the connection is cut, so that the client notices
    };

    /// read() is called after this time at the latest, that a body may show its client that it is still there.
    static constexpr std::chrono::seconds maxSilence{15};

    virtual ~BodySource() = default;

    /// \param wake  has read() called again after `waiting`. Threads: any; does nothing once the reply is over
    virtual void start(std::function<void()> wake) = 0;

    /// What the client sends, once the connection has switched to the source's protocol. Its answers are what read()
    /// returns next.
    virtual void receive(std::string_view /*bytes*/) {}

    /// Appends at most about `room` bytes to `out`.
    virtual State read(std::size_t room, std::string& out) = 0;

    /// Bytes that other bodies share.
    using Shared = std::shared_ptr<const std::vector<std::uint8_t>>;
    /// As read(), for bodies whose bytes are shared: they need not be copied.
    /// \param[out] behind  null, or what follows `out`
    virtual State readShared(std::size_t room, std::string& out, Shared& /*behind*/)
    {
        return read(room, out);
    }

    /// The client is gone: read() is not called any more.
    virtual void cancel() {}
};

}  // namespace refhost

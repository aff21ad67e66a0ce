#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "refhost/ingest/client/RtspClientEvents.h"
#include "refhost/ingest/client/RtspClientOptions.h"
#include "refhost/ingest/client/RtspClientState.h"
#include "refhost/net/StreamConnector.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

class RtspClientSession;

/// Reads one camera over RTSP (RFC 2326) on an event loop: describes, sets up and plays it, keeps the session
/// alive, and hands on the packets where they were received.
///
/// Logs in by Digest or Basic (RFC 7616, RFC 7617), at the host and port of its URL alone. Follows up to 5
/// redirects. Every wait has a deadline, and what a camera sends is bounded: by CameraReceiver, in what is
/// read before other work of the loop gets its turn, and in what is answered.
///
/// Life: start() once; then until onEnded(), stop() or the destructor. A client that is stopped leaves its
/// connection to the loop, for no longer than teardownTimeout: TEARDOWN is sent and its answer awaited there.
///
/// Threads: the loop's, for everything but the constructor.
class RtspClient
{
public:
    /// \param connector  makes the connection; it outlives the client's connection, and so does `loop`
    ///                   over TLS for rtsps
    /// \param url        rtsp:// or rtsps://[user[:password]@]host[:port][/path][?query]; user and password may be
    ///                   escaped (%40), or not
    /// \param events     outlives the client
    RtspClient(EventLoop& loop, StreamConnector& connector, const std::string& url,
               const RtspClientOptions& options, RtspClientEvents& events);
    /// As stop().
    ~RtspClient();
    RtspClient(const RtspClient&) = delete;
    RtspClient& operator=(const RtspClient&) = delete;

    /// Starts to connect. Reports nothing before the return, not even a URL that cannot be read.
    /// Requires: not started.
    void start();

    /// Ends; nothing is reported any more. Does nothing the second time, but for `closed`.
    /// \param closed  called once on the loop's thread when the connection is closed, after the return; not
    ///                called where the loop ends before
    void stop(std::function<void()> closed = {});

    /// Sends RTCP about a track that plays.
    /// \param size  1 to 65535
    /// \returns false when it was dropped: the track does not play, or the camera does not take what was sent
    bool sendReport(std::size_t track, const std::uint8_t* data, std::size_t size);

    RtspClientState state() const;

private:
    const std::shared_ptr<RtspClientSession> session_;
};

}  // namespace refhost

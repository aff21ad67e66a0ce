#pragma once
// Tested by tests/refhost/ingest/client/RtspClientUdp_test.cpp, tests/refhost/ingest/client/RtspClientQuirks_test.cpp.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/ingest/client/CameraDatagrams.h"
#include "refhost/ingest/client/CameraHeaders.h"
#include "refhost/ingest/client/CameraRequests.h"
#include "refhost/ingest/client/CameraTracks.h"
#include "refhost/ingest/client/RtspClientEvents.h"
#include "refhost/ingest/client/RtspClientOptions.h"
#include "refhost/net/ByteStream.h"

namespace refhost
{

/// Sets up the tracks of a camera, one SETUP after the other (RFC 2326, section 10.4), and chooses the transport: the
/// preferred one, and the other one where the camera refuses that with 461. All tracks of a session have the same.
///
/// Threads: the loop's.
class CameraSetUp
{
public:
    /// \param options  outlives this object
    /// \param events   of what comes over UDP
    CameraSetUp(EventLoop& loop, const RtspClientOptions& options, CameraDatagrams::Events& events);

    CameraTracks& tracks()
    {
        return tracks_;
    }

    /// Whether no track is left to set up.
    bool isComplete()
    {
        return tracks_.next() == nullptr;
    }

    /// Prepares the next SETUP, whose URL and headers are uri() and headers() then.
    /// \param connection  to the camera
    /// \param owner       of this object
    /// \returns why it cannot be sent; nothing when it can
    /// Requires: not complete.
    std::optional<RtspClientEnd> prepare(const ByteStream& connection, const std::weak_ptr<void>& owner);
    const std::string& uri();
    CameraRequests::Headers headers();

    /// Takes the answer: goes on to the next track, or has the same one set up over the other transport.
    /// \param host  for the log
    /// \returns why there will be no media; nothing when it goes on
    std::optional<RtspClientEnd> take(const CameraMessage& answer, const std::string& host);

    /// With the session that the camera gave, once it did.
    CameraRequests::Headers withSession(CameraRequests::Headers headers) const;
    Duration keepAliveInterval() const
    {
        return session_.keepAliveInterval();
    }

    bool overUdp() const
    {
        return transport_ == CameraTransport::udp;
    }
    /// Whether the other transport may be requested, by this session or the next one.
    bool mayRequestOther() const;
    /// Why the session ends that was set up over a transport on which nothing came; nothing where the other one
    /// cannot be requested.
    std::optional<RtspClientEnd> endForOtherTransport(std::string text, int status) const;

private:
    std::optional<RtspClientEnd> takeGranted(const CameraMessage& answer, CameraTracks::Track& track);
    CameraTransport otherTransport() const;

    EventLoop& loop_;
    const RtspClientOptions& options_;
    CameraDatagrams::Events& events_;
    CameraTracks tracks_;
    SessionReply session_;
    CameraTransport transport_;      ///< that is requested
    bool transportRefused_ = false;  ///< the other one was
    bool encrypted_ = false;         ///< the connection is
};

}  // namespace refhost

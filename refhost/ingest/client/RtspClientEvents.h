#pragma once
// Tested by tests/refhost/ingest/client/RtspClient_test.cpp.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/ingest/client/CameraTrack.h"
#include "refhost/ingest/client/CameraTransport.h"

namespace refhost
{

/// Why an RtspClient ended.
struct RtspClientEnd
{
    enum class Kind
    {
        unreachable,        ///< no address, no connection, or it broke before PLAY was answered
        unauthorized,       ///< the camera demands a login that there is none for, or that it refuses
        notFound,           ///< the camera knows no such stream, or describes nothing that was chosen
        noUsableTransport,  ///< the camera does not send over this transport; it may over another
        busy,               ///< the camera has no room for another client just now
        protocolError,      ///< the camera says what cannot be understood, or refuses a request
        timedOut,           ///< an answer did not come in time
        silent,             ///< it played, and media did not come in time
        endedByCamera       ///< the camera ended what was playing, or its connection broke
    };

    Kind kind = Kind::protocolError;
    std::string text;                    ///< for the log: one line, free of credentials
    int status = 0;                      ///< of the answer that refused, 0 where there was none
    std::optional<Duration> retryAfter;  ///< what the camera asks for (Retry-After); at most a day
    /// Another client may read the camera over this transport; with `noUsableTransport` only.
    std::optional<CameraTransport> otherTransport;
};

/// What an answer to PLAY says of one track (RTP-Info; RFC 2326, section 12.33).
struct CameraPlayInfo
{
    std::size_t track = 0;
    std::optional<std::uint16_t> sequence;   ///< of the first packet
    std::optional<std::uint32_t> timestamp;  ///< RTP's of the start of the range
};

/// What an RtspClient reports. Tracks are named by their index in the description.
///
/// Threads: the thread of the client's loop. Each call may stop or destroy the client.
class RtspClientEvents
{
public:
    /// The camera described what it has.
    /// \returns the indices of the tracks to set up; with none the client ends as notFound
    virtual std::vector<std::size_t> onDescribed(const std::vector<CameraTrack>& tracks) = 0;
    /// The camera answered PLAY. It has a row for each track that it sends: one that is not video is left out
    /// where the camera refuses to set it up.
    virtual void onPlaying(const std::vector<CameraPlayInfo>& tracks) = 0;
    /// An RTP packet of a track as it came, 1 to 65535 bytes that nothing was checked of; over UDP in the order
    /// in which the camera sent it, and of one SSRC at a time. The first may come before onPlaying().
    /// \param data     until the return
    /// \param arrival  when it was received from the system
    virtual void onPacket(std::size_t track, const std::uint8_t* data, std::size_t size,
                          MonotonicTime arrival) = 0;
    /// A packet of RTCP about a track, as for onPacket().
    virtual void onReport(std::size_t track, const std::uint8_t* data, std::size_t size,
                          MonotonicTime arrival) = 0;
    /// The client ended by itself; nothing is called any more.
    virtual void onEnded(const RtspClientEnd& end) = 0;

protected:
    ~RtspClientEvents() = default;
};

}  // namespace refhost

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"
#include "refhost/capture/CameraMessages.h"

// Reads what headers of a camera's answers say. All forms that cameras are known to write are taken, and numbers that
// nobody can mean are left out.
namespace refhost
{

/// Session (RFC 2326, section 12.37).
struct SessionReply
{
    static constexpr Duration defaultTimeout = std::chrono::seconds(60);
    static constexpr Duration maxTimeout = std::chrono::hours(24);

    std::string id;  ///< empty where the camera gives none
    Duration timeout = defaultTimeout;

    static SessionReply read(std::string_view value);

    /// How often to say that the session is still in use.
    Duration keepAliveInterval() const;
};

/// Transport of an answer to SETUP (RFC 2326, section 12.39).
struct TransportReply
{
    enum class Kind
    {
        asRequested,  ///< the camera leaves it out
        interleaved,  ///< over the RTSP connection
        udp,
        other  ///< such as multicast, or encrypted RTP
    };

    Kind kind = Kind::asRequested;
    std::optional<int> channel;           ///< of RTP, 0 to 255
    std::optional<int> reportChannel;     ///< of RTCP, 0 to 255
    std::optional<int> serverPort;        ///< that RTP comes from, 1 to 65535
    std::optional<int> serverReportPort;  ///< that RTCP comes from, 1 to 65535
    std::optional<SocketAddress> source;  ///< that media come from, where it is written as a number

    static TransportReply read(std::string_view value);
};

/// One track's part of RTP-Info (RFC 2326, section 12.33).
struct RtpInfo
{
    std::string url;  ///< empty where it is left out
    std::optional<std::uint16_t> sequence;
    std::optional<std::uint32_t> timestamp;

    static constexpr std::size_t maxParts = 32;  ///< others are left out
    static std::vector<RtpInfo> read(std::string_view value);
};

/// Retry-After in seconds (RFC 2068, section 14.38); a day at most. A date is left out.
std::optional<Duration> retryAfterOf(const CameraMessage& answer);

/// The method that keeps a session alive, by the answer to OPTIONS (Public; RFC 2326, section 12.28).
const char* keepAliveMethodOf(const CameraMessage& answer);

}  // namespace refhost

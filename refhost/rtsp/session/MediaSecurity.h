#pragma once
// Tested by tests/refhost/rtsp/session/MediaSecurity_test.cpp.

#include <map>
#include <optional>
#include <string_view>

#include "refhost/config/Config.h"
#include "refhost/rtsp/message/TransportHeader.h"

namespace refhost
{

/// What a camera's media must be protected by on its path to a client.
enum class Protection
{
    none,         ///< nothing
    tls,          ///< inside a TLS connection
    srtp,         ///< SRTP
    anyEncrypted  ///< one of the two
};

/// The configured protection of each camera, and what meets it. Threads: any; constant.
class MediaSecurity
{
public:
    explicit MediaSecurity(const ServerConfig& config);

    /// \param camera  nothing for a presentation of no camera
    Protection of(std::optional<int> camera) const;

    /// Whether keys may be sent on a connection.
    /// \param encrypted  nobody else can read the connection
    bool keysAllowed(bool encrypted) const
    {
        return encrypted || keysInClear_;
    }

    /// Whether the description announces SRTP.
    /// \param requested  by the client
    static bool describesSrtp(Protection protection, bool encrypted, bool requested);

    /// Whether media may be sent, or received, so.
    static bool admits(Protection protection, bool encrypted, const TransportChoice& choice);

    /// Whether groups are sent as SRTP, to all members alike.
    static bool encryptsGroup(Protection protection)
    {
        return protection == Protection::srtp || protection == Protection::anyEncrypted;
    }

    /// The key's value in the configuration, for the log.
    static std::string_view nameOf(Protection protection);

private:
    static Protection named(std::string_view name);

    Protection default_;
    bool keysInClear_;
    std::map<int, Protection> cameras_;  // those with a protection of their own
};

}  // namespace refhost

#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// The log's audit lines: who tried what, at level info, for administrators and for programs that ban
/// addresses (packaging/fail2ban/).
///
///     audit: authentication-failed address=192.0.2.7 user="admin" reason=password url="rtsp://…"
///
/// The fields of an event and their order are fixed; docs/security.md lists them. LogFormat::write() has the
/// escaping. URLs pass through Log::safe(), which masks credentials and bounds them; names are cut.
///
/// Where clients can provoke an event at will, each address (SocketAddress::networkOf()) has a number of
/// lines of each event: `burst` at once, and one more in each `refill`. The others are counted, and
/// reportSuppressed() writes the counts. At most `maxAddresses` pairs of event and address are kept; further
/// addresses share the lines of one.
///
/// Events are published to ServerEvents too: those of sessions and talk-back each, whatever the log's level and these limits;
/// the others with their lines.
///
/// Threads: any.
class AuditLog
{
public:
    static constexpr unsigned burst = 20;
    static constexpr std::chrono::seconds refill{1};
    static constexpr std::size_t maxAddresses = 1024;

    /// A limit kept a connection out.
    /// \param limit  the limit, a constant word such as "connections"
    static void connectionRefused(const SocketAddress& peer, std::string_view limit);

    /// A request had credentials that were refused.
    /// \param user    as the request names it; may be empty
    /// \param reason  a constant word
    static void authenticationFailed(const SocketAddress& peer, std::string_view user,
                                     std::string_view reason, std::string_view url);

    /// A request's credentials were not looked at, because too many were wrong before.
    /// \param seconds  until they will be again
    static void authenticationRefused(const SocketAddress& peer, std::string_view user,
                                      std::chrono::seconds seconds, std::string_view url);

    /// A user is not permitted what a request asks for.
    /// \param user   empty for one who did not log in
    /// \param right  the right that is missing, a constant word such as "live" or "talk"
    static void rightRefused(const SocketAddress& peer, std::string_view user, std::string_view right,
                             std::string_view url);

    /// A session of RTSP.
    struct Session
    {
        SocketAddress::Key address{};
        std::string_view user;       ///< empty without users
        std::string_view url;        ///< of the presentation
        std::string_view transport;  ///< of its first track, a constant word
    };

    /// What a session was sent.
    struct Sent
    {
        std::uint64_t bytes = 0;  ///< of RTP payload
        std::uint64_t lost = 0;   ///< packets that the client reports as lost
    };

    static void sessionStarted(const Session& session);
    static void sessionEnded(const Session& session, Duration duration, const Sent& sent);

    /// A client's audio is played from now on.
    static void talkBackTaken(const SocketAddress::Key& address, std::string_view user, std::string_view url);
    /// It is not played any more. Published to ServerEvents, without a line in the log.
    static void talkBackEnded(const SocketAddress::Key& address, std::string_view user, std::string_view url);

    /// \param what  a constant word
    static void configurationChanged(std::string_view what);

    /// How often each event happened that clients provoke, those included whose lines were suppressed.
    static std::vector<std::pair<std::string_view, std::uint64_t>> counts();

    /// Writes the number of suppressed lines of each event since the previous call; called every ten seconds
    /// or so, and at the end.
    static void reportSuppressed();
};

}  // namespace refhost

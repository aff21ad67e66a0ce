#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/access/UserAccess.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// Logs in the requests of one connection, for RTSP and HTTP alike: asks the brake, compares the credentials or
/// takes the user of the client's certificate, and writes what fails into the audit log.
///
///     const ConnectionLogin::Outcome outcome = login.attempt({method, uri, authorization, peer, serial}, false);
///
/// A request that is not decided yet is given to attempt() again, unchanged and before any other: after
/// `Outcome::span` when it is `delayed`, and when ChangeSignal reports a change when it is `pending`.
///
/// Threads: one at a time; `users` outlives it.
class ConnectionLogin
{
public:
    struct Request
    {
        std::string_view method;
        std::string_view uri;
        std::string_view authorization;  ///< value of the header; empty: there is none
        const SocketAddress& peer;
        std::uint64_t connection;      ///< its serial
        bool encrypted = false;        ///< the connection is
        std::string_view certificate;  ///< ByteStream::certificateName()
        Authenticator::SameResource same = nullptr;
    };

    enum class Result
    {
        granted,    ///< as Outcome::user
        challenge,  ///< 401, with UserAccess::challenges()
        stale,      ///< the same: the password is right, but the nonce is used up
        refused,    ///< 503, with Outcome::span as Retry-After: the credentials were not looked at
        busy,       ///< 503: too many passwords are being checked, or this one took too long
        delayed,    ///< not decided: wrong passwords came before
        pending     ///< not decided: a memory-hard hash is computed
    };

    struct Outcome
    {
        Result result = Result::challenge;
        std::string user;  ///< empty without users
        Duration span{0};
    };

    explicit ConnectionLogin(UserAccess& users);

    /// Whether the request is logged in by the client's certificate: credentials come before it.
    bool isCertified(const Request& request) const;

    /// \param last  decide now: `pending` becomes `busy`
    Outcome attempt(const Request& request, bool last);

    /// The connection ended: a request that is delayed does not come again.
    void giveUp();

    /// The user who logged in last; empty for none.
    const std::string& user() const;

private:
    bool admit(const Request& request, std::string_view claimed, Outcome& out);
    void noteFailure(const Request& request, std::string_view claimed, Authenticator::Denial denial);

    UserAccess& users_;
    std::string user_;
    std::unique_ptr<LoginBrake::Wait> wait_;  // of the request that is delayed
    bool admitted_ = false;                   // the brake let the request that is pending pass
};

}  // namespace refhost

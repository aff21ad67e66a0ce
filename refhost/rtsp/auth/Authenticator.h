#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/config/Config.h"
#include "refhost/rtsp/auth/NonceStore.h"
#include "refhost/rtsp/message/ResponseWriter.h"

namespace refhost
{

/// Authenticates requests of configured users: Basic, or Digest with MD5 or SHA-256 (RFC 7617, RFC 7616).
///
/// Passwords are kept as the hashes of Digest, and never logged. Threads: any.
class Authenticator
{
public:
    enum class Verdict
    {
        granted,
        denied,
        stale  ///< the password is right but the nonce expired: the client retries without asking its user
    };

    /// Why credentials are denied.
    enum class Denial
    {
        malformed,
        scheme,  ///< Basic where it is not accepted, a Digest without qop where that is not, or another scheme
        realm,   ///< of another realm
        resource,  ///< for another URL
        user,      ///< there is no such user
        password
    };
    /// As the log names it.
    static std::string_view nameOf(Denial denial);
    /// Whether credentials denied so were a guess at a password: the others were not compared with one.
    static bool isGuess(Denial denial);

    using Client = NonceStore::Client;

    struct Decision
    {
        Verdict verdict = Verdict::denied;
        Denial denial = Denial::malformed;  ///< if `verdict` is `denied`
        /// The user, if `verdict` is `granted`; empty without users.
        std::string user;
    };

    /// Without users every request is granted.
    /// \param digestWithoutQop  whether Digest responses without qop are accepted, which can be replayed from
    ///                          their client's address for NonceStore::uncountedLifetime
    Authenticator(const std::vector<UserConfig>& users, std::string realm, const HostClock& clock,
                  bool digestWithoutQop = true);

    /// Whether there are users to log in as.
    bool enabled() const;

    /// From now on these may log in.
    void setUsers(const std::vector<UserConfig>& users);

    /// The user that the value of an Authorization header names, known or not; empty when it names none.
    static std::string claimedUser(std::string_view authorization);

    /// \param method         of the request
    /// \param uri            of the request; a Digest response must have it, or that of the presentation
    /// \param authorization  value of the Authorization header; empty when there is none
    /// \param client         the origin of the request
    /// \param basic          whether Basic is accepted from there
    Decision check(std::string_view method, std::string_view uri, std::string_view authorization,
                   const Client& client, bool basic = true);

    /// Adds the WWW-Authenticate lines of a 401: Digest MD5, Digest SHA-256, Digest MD5 again, and Basic. Some
    /// clients take the first Digest and some the last, and both often know MD5 only; clients that choose the
    /// strongest find SHA-256.
    /// \param client  the nonce is for this one
    /// \param basic   whether Basic is offered
    void challenge(ResponseWriter& out, bool stale, const Client& client, bool basic = true) const;

private:
    struct Secret
    {
        std::string md5;
        std::string sha256;
    };

    using Users = std::unordered_map<std::string, Secret>;

    Decision checkBasic(const Users& users, std::string_view credentials) const;
    Decision checkDigest(const Users& users, std::string_view method, std::string_view uri,
                         std::string_view parameters, const Client& client);
    std::shared_ptr<const Users> users() const;

    const std::string realm_;
    const bool digestWithoutQop_;
    NonceStore nonces_;
    mutable Mutex mutex_;
    std::shared_ptr<const Users> users_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

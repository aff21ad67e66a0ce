#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/access/NonceStore.h"
#include "refhost/access/PasswordVerifier.h"
#include "refhost/base/Mutex.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// Authenticates requests of configured users: Basic, or Digest with MD5 or SHA-256 (RFC 7617, RFC 7616). The
/// requests are RTSP's or HTTP's.
///
/// Passwords are kept as the hashes of Digest or as memory-hard ones, and never logged. Where any user has a
/// memory-hard one, Basic of everybody takes as long. Threads: any.
class Authenticator
{
public:
    enum class Verdict
    {
        granted,
        denied,
        stale,    ///< the password is right but the nonce expired: the client retries without asking its user
        pending,  ///< a memory-hard hash is computed: check the same again when ChangeSignal reports a change
        busy      ///< too many of those wait
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
    /// Whether a Digest response for `digestUri` is one for a request for `requestUri`.
    using SameResource = bool (*)(std::string_view requestUri, std::string_view digestUri);

    struct Request
    {
        std::string_view method;
        std::string_view uri;
        std::string_view authorization;  ///< value of the Authorization header; empty when there is none
        Client client{};                 ///< the origin
        bool basic = true;               ///< whether Basic is accepted from there
        SameResource same = nullptr;     ///< null: equal texts
    };

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

    Decision check(const Request& request);

    /// The values of the WWW-Authenticate headers of a 401: Digest MD5, Digest SHA-256, Digest MD5 again, and
    /// Basic. Some clients take the first Digest and some the last, and both often know MD5 only; clients that
    /// choose the strongest find SHA-256. Where a user cannot answer Digest, Basic is offered alone if it is at
    /// all: clients that prefer Digest would not try it.
    /// \param client  the nonce is for this one
    /// \param basic   whether Basic is offered
    std::vector<std::string> challenges(bool stale, const Client& client, bool basic = true) const;

private:
    /// What is kept of a password. Where all are empty, nothing fits.
    struct Secret
    {
        std::string md5;
        std::string sha256;
        std::string slow;  ///< memory-hard; empty: none
    };
    struct Users
    {
        std::unordered_map<std::string, Secret> all;
        std::string slow;        ///< a memory-hard hash of one of them; empty: there is none
        bool basicOnly = false;  ///< one of them cannot answer Digest
    };

    static Secret secretOf(const UserConfig& user, const std::string& realm);
    Decision checkBasic(const Users& users, std::string_view credentials, const Client& client);
    Decision checkDigest(const Users& users, std::string_view parameters, const Request& request);
    std::shared_ptr<const Users> users() const;

    const std::string realm_;
    const bool digestWithoutQop_;
    NonceStore nonces_;
    PasswordVerifier verifier_;
    mutable Mutex mutex_;
    std::shared_ptr<const Users> users_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

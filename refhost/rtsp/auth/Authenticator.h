#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/rtsp/auth/NonceStore.h"
#include "refhost/rtsp/message/ResponseWriter.h"

namespace refhost
{

/// Decides whether a request comes from a configured user: Basic, or Digest with MD5 or SHA-256.
///
/// Passwords are kept as the hashes that Digest needs, and never logged. Threads: any.
class Authenticator
{
public:
    enum class Verdict
    {
        granted,
        denied,
        stale  ///< the password was right but the nonce is used up: ask again, without asking the user
    };

    using Client = NonceStore::Client;

    struct Decision
    {
        Verdict verdict = Verdict::denied;
        /// Who asks, where `verdict` is `granted`; empty without users. Lives as long as the authenticator.
        std::string_view user;
    };

    /// Without users everybody is granted.
    /// \param digestWithoutQop  whether Digest answers without qop are taken; they can be replayed from their
    ///                          client's address for NonceStore::uncountedLifetime
    Authenticator(const std::vector<UserConfig>& users, std::string realm, MonotonicClock clock,
                  bool digestWithoutQop = true);

    bool enabled() const;

    /// \param method         of the request
    /// \param uri            of the request; a Digest answer must name it, or the same presentation
    /// \param authorization  value of the Authorization header; empty when there is none
    /// \param client         where the request came from
    Decision check(std::string_view method, std::string_view uri, std::string_view authorization,
                   const Client& client);

    /// Adds the WWW-Authenticate lines of a 401: Digest MD5, Digest SHA-256, Digest MD5 again, Basic. Some
    /// clients take the first Digest and others the last, and both kinds often compute MD5 only; clients that
    /// choose the strongest find SHA-256.
    /// \param client  whom the nonce is for
    void challenge(ResponseWriter& out, bool stale, const Client& client) const;

private:
    struct Secret
    {
        std::string md5;
        std::string sha256;
    };

    Decision checkBasic(std::string_view credentials) const;
    Decision checkDigest(std::string_view method, std::string_view uri, std::string_view parameters,
                         const Client& client);

    const std::string realm_;
    const bool digestWithoutQop_;
    std::unordered_map<std::string, Secret> users_;
    NonceStore nonces_;
};

}  // namespace refhost

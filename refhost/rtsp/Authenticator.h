#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/device/Config.h"
#include "refhost/rtsp/NonceBook.h"
#include "refhost/rtsp/ResponseWriter.h"

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

    /// Without users everybody is granted.
    Authenticator(const std::vector<UserConfig>& users, std::string realm, MonotonicClock clock);

    bool enabled() const;

    /// \param method         of the request
    /// \param uri            of the request; a Digest answer must name it, or the same presentation
    /// \param authorization  value of the Authorization header; empty when there is none
    Verdict check(std::string_view method, std::string_view uri, std::string_view authorization);

    /// Adds the WWW-Authenticate lines of a 401: SHA-256, MD5, Basic, in this order, because some clients
    /// take the first Digest that they read and others the last, and only the former know SHA-256.
    void challenge(ResponseWriter& out, bool stale) const;

private:
    struct Secret
    {
        std::string md5;
        std::string sha256;
    };

    Verdict checkBasic(std::string_view credentials) const;
    Verdict checkDigest(std::string_view method, std::string_view uri, std::string_view parameters);

    const std::string realm_;
    std::unordered_map<std::string, Secret> users_;
    NonceBook nonces_;
};

}  // namespace refhost

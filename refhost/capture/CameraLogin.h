#pragma once

#include <map>
#include <string>
#include <string_view>

#include "refhost/capture/CameraMessages.h"

namespace refhost
{

/// Answers a camera's demand for a user: Digest with SHA-256 or MD5, otherwise Basic (RFC 2617, RFC 7616).
/// Threads: one at a time.
class CameraLogin
{
public:
    CameraLogin(std::string user, std::string password);

    /// Takes the demands of an answer with status 401; of several the safest is met.
    /// \returns false when there is no user, or none of them can be met
    bool challenge(const CameraMessage& answer);

    /// Whether the demand that is met came because the nonce was used up (RFC 7616, section 3.3).
    bool stale() const
    {
        return stale_;
    }

    /// The value of the Authorization header; empty while nothing was demanded.
    std::string authorization(std::string_view method, std::string_view uri);

private:
    enum class Scheme
    {
        none,
        basic,
        digestMd5,
        digestSha256
    };

    using Parameters = std::map<std::string, std::string>;

    void consider(const std::string& name, Parameters& parameters);

    std::string user_;
    std::string password_;
    Scheme scheme_ = Scheme::none;
    std::string realm_;
    std::string nonce_;
    std::string opaque_;
    std::string algorithm_;  ///< as the camera writes it; empty where it does not
    bool qop_ = false;
    bool stale_ = false;
    unsigned count_ = 0;
};

}  // namespace refhost

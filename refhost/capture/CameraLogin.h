#pragma once

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

    void consider(std::string_view demand);

    std::string user_;
    std::string password_;
    Scheme scheme_ = Scheme::none;
    std::string realm_;
    std::string nonce_;
    std::string opaque_;
    bool qop_ = false;
    unsigned count_ = 0;
};

}  // namespace refhost

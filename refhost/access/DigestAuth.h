#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace refhost
{

/// The arithmetic of HTTP Digest authentication with qop "auth" or none (RFC 2617, RFC 7616).
/// Threads: any; no state.
class DigestAuth
{
public:
    enum class Algorithm
    {
        md5,
        sha256
    };

    /// The fields of an Authorization header. Views into the header.
    struct Answer
    {
        std::string_view username;
        std::string_view realm;
        std::string_view nonce;
        std::string_view uri;
        std::string_view response;
        std::string_view qop;  ///< "auth" or empty
        std::string_view nonceCount;
        std::string_view clientNonce;
        Algorithm algorithm = Algorithm::md5;
    };

    /// Parses the text after "Digest ".
    /// \returns false when a required field is missing, or the algorithm or qop is not supported
    static bool parse(std::string_view parameters, Answer& out);

    /// Hash of "user:realm:password" in lower-case hexadecimal.
    static std::string secret(Algorithm algorithm, std::string_view user, std::string_view realm,
                              std::string_view password);

    /// The response of a client with the right password.
    static std::string expected(const Answer& answer, std::string_view secret, std::string_view method);

    /// Hash in lower-case hexadecimal.
    static std::string hash(Algorithm algorithm, std::string_view text);

    /// Compares in a time that depends only on the length of `b`.
    static bool equalInConstantTime(std::string_view a, std::string_view b);
};

}  // namespace refhost

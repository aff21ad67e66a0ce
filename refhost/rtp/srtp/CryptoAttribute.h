#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "refhost/rtp/srtp/SrtpKey.h"

namespace refhost
{

/// The value of an SDP attribute "crypto", which carries a key as it is (RFC 4568): only for descriptions that
/// nobody else can read. Threads: any; no state.
class CryptoAttribute
{
public:
    /// Appends "1 AES_CM_128_HMAC_SHA1_80 inline:…".
    static void append(std::string& out, const SrtpKey& key);

    /// \param value  a tag, a suite, and key parameters of which the first is used; session parameters that
    ///               change how packets look are refused
    /// \returns nothing for a malformed value, or what this host does not support
    static std::optional<SrtpKey> parse(std::string_view value);
};

}  // namespace refhost

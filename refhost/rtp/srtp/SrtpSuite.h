#pragma once
// Tested by tests/refhost/rtp/srtp/CryptoAttribute_test.cpp, tests/refhost/rtp/srtp/SrtpSealer_test.cpp.

#include <cstddef>
#include <optional>
#include <string_view>

namespace refhost
{

/// How SRTP encrypts and authenticates.
enum class SrtpSuite
{
    aesCm128HmacSha1Tag80,  ///< RFC 3711: AES in counter mode, HMAC-SHA1 of 80 bits
    aesCm128HmacSha1Tag32,  ///< the same with 32 bits in RTP; RTCP keeps 80 (RFC 4568, section 6.2.2)
    aeadAes128Gcm           ///< RFC 7714
};

struct SrtpSuiteInfo
{
    SrtpSuite suite;
    std::string_view name;  ///< as in SDP (RFC 4568)
    std::size_t keySize;    ///< bytes of the master key
    std::size_t saltSize;   ///< bytes of the master salt
    std::size_t rtpTag;     ///< bytes that an RTP packet grows by
    std::size_t rtcpTag;    ///< bytes that an RTCP packet grows by, beside its index of 4
};

const SrtpSuiteInfo& infoOf(SrtpSuite suite);

/// \param name  as in SDP; case matters
std::optional<SrtpSuite> srtpSuiteNamed(std::string_view name);

}  // namespace refhost

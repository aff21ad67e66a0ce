#include "refhost/rtp/srtp/SrtpSuite.h"

#include <array>

namespace refhost
{
namespace
{

// In the order of SrtpSuite.
constexpr std::array<SrtpSuiteInfo, 3> suites{{
    {SrtpSuite::aesCm128HmacSha1Tag80, "AES_CM_128_HMAC_SHA1_80", 16, 14, 10, 10},
    {SrtpSuite::aesCm128HmacSha1Tag32, "AES_CM_128_HMAC_SHA1_32", 16, 14, 4, 10},
    {SrtpSuite::aeadAes128Gcm, "AEAD_AES_128_GCM", 16, 12, 16, 16},
}};

}  // namespace

const SrtpSuiteInfo& infoOf(SrtpSuite suite)
{
    return suites.at(static_cast<std::size_t>(suite));
}

std::optional<SrtpSuite> srtpSuiteNamed(std::string_view name)
{
    for (const SrtpSuiteInfo& info : suites)
    {
        if (info.name == name)
        {
            return info.suite;
        }
    }
    return std::nullopt;
}

}  // namespace refhost

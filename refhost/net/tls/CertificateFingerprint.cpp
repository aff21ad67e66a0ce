#include "refhost/net/tls/CertificateFingerprint.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace refhost
{
namespace
{

constexpr std::string_view hexDigits = "0123456789ABCDEF";
constexpr std::size_t digitCount = 64;

/// The digits in capitals, without colons.
std::string digitsOf(const std::string& text)
{
    std::string digits;
    for (const char c : text)
    {
        if (c != ':')
        {
            digits += c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
        }
    }
    return digits;
}

}  // namespace

std::string CertificateFingerprint::of(const x509_st* certificate)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (certificate == nullptr || X509_digest(certificate, EVP_sha256(), digest, &size) != 1)
    {
        return {};
    }
    std::string text;
    for (unsigned int i = 0; i < size; ++i)
    {
        text += i == 0 ? "" : ":";
        text += hexDigits[digest[i] >> 4];
        text += hexDigits[digest[i] & 15];
    }
    return text;
}

bool CertificateFingerprint::isValid(const std::string& text)
{
    const std::string digits = digitsOf(text);
    return digits.size() == digitCount &&
           std::all_of(digits.begin(), digits.end(),
                       [](char c) { return hexDigits.find(c) != std::string_view::npos; });
}

bool CertificateFingerprint::same(const std::string& left, const std::string& right)
{
    return isValid(left) && digitsOf(left) == digitsOf(right);
}

}  // namespace refhost

#pragma once
// Tested by tests/refhost/net/tls/TlsConnector_test.cpp.

#include <string>

struct x509_st;

namespace refhost
{

/// The SHA-256 of a certificate as people compare it: hexadecimal digits, with or without colons between.
class CertificateFingerprint
{
public:
    /// \returns pairs of capital digits with colons between; empty for null
    static std::string of(const x509_st* certificate);

    /// Whether a text is a fingerprint.
    static bool isValid(const std::string& text);

    /// Whether two texts are the same fingerprint. An empty text is none.
    static bool same(const std::string& left, const std::string& right);
};

}  // namespace refhost

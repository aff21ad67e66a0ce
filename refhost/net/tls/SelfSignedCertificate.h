#pragma once

#include <string>

namespace refhost
{

/// A key (ECDSA P-256) and a certificate that it signed itself, kept in a folder so that clients can pin the
/// certificate's fingerprint. Threads: one at a time, in all processes that share the folder.
class SelfSignedCertificate
{
public:
    /// Years that a certificate is valid for.
    static constexpr int years = 10;

    /// Takes the pair of `folder`, and makes it where there is none yet or the certificate has expired. Both
    /// files are readable for their owner alone. The names in the certificate: localhost, the host's name, and
    /// the addresses of its interfaces.
    /// \param[out] error  one line that names the file and the reason, when false is returned
    bool prepare(const std::string& folder, std::string& error);

    const std::string& certificate() const;
    const std::string& key() const;

private:
    std::string certificate_;
    std::string key_;
};

}  // namespace refhost

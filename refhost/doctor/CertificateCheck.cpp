#include "refhost/doctor/CertificateCheck.h"

#include <fmt/format.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr int soon = 30;  // days

template <auto function>
struct FreedBy
{
    template <typename Object>
    void operator()(Object* object) const
    {
        function(object);
    }
};

using File = std::unique_ptr<FILE, FreedBy<&std::fclose>>;
using Certificate = std::unique_ptr<X509, FreedBy<&X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, FreedBy<&EVP_PKEY_free>>;

/// \returns null, and adds why, when the file cannot be opened
File opened(const std::string& path, const char* key, std::vector<Finding>& found)
{
    File file(std::fopen(path.c_str(), "re"));
    if (file == nullptr)
    {
        found.push_back(Finding::failure(
            fmt::format("[tls] {} = {}: {}", key, Log::safe(path), std::strerror(errno)),
            errno == EACCES
                ? "Let the service's user read it: chgrp ovrtspd and chmod g+r, also on its folders"
                : "Correct the path"));
    }
    return file;
}

/// A password is never asked for.
int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/)
{
    return 0;
}

Finding judgedDates(const X509* certificate, const std::string& path)
{
    int days = 0;
    int seconds = 0;
    const std::string displayed = Log::safe(path);
    const char* const mend = "Have it renewed; the running server reads the new file by itself";
    if (ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate)) != 1)
    {
        return Finding::failure(fmt::format("the dates of {} cannot be read", displayed), mend);
    }
    if (days < 0 || seconds < 0)
    {
        return Finding::failure(fmt::format("the certificate {} expired {} days ago", displayed, -days),
                                mend);
    }
    if (X509_cmp_current_time(X509_get0_notBefore(certificate)) > 0)
    {
        return Finding::failure(fmt::format("the certificate {} is not valid yet", displayed),
                                "Set this machine's clock, or have the certificate made again");
    }
    return days < soon
               ? Finding::warning(fmt::format("the certificate {} expires in {} days", displayed, days), mend)
               : Finding::good(fmt::format("the certificate {} is valid for {} days", displayed, days));
}

void judgeKeyMode(const std::string& path, std::vector<Finding>& found)
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0)
    {
        found.push_back(Finding::warning(fmt::format("everybody can read the key {}", Log::safe(path)),
                                         fmt::format("chmod o= {}", Log::safe(path))));
    }
}

}  // namespace

CertificateCheck::CertificateCheck(const ServerConfig& config) : config_(config) {}

std::string CertificateCheck::subject() const
{
    return "certificate";
}

std::vector<Finding> CertificateCheck::run()
{
    std::vector<Finding> found;
    const TlsConfig& tls = config_.tls;
    if (tls.selfSigned)
    {
        return {Finding::good("the server makes its own, and again when it has expired")};
    }
    if (!tls.enabled())
    {
        return {Finding::good("none is configured: media and passwords travel in the clear")};
    }
    const std::string& keyPath = tls.key.empty() ? tls.certificate : tls.key;
    const File certificateFile = opened(tls.certificate, "certificate", found);
    const File keyFile = opened(keyPath, "key", found);
    const File authority = tls.clientCa.empty() ? nullptr : opened(tls.clientCa, "client-ca", found);
    if (certificateFile == nullptr || keyFile == nullptr)
    {
        return found;
    }
    const Certificate certificate(PEM_read_X509(certificateFile.get(), nullptr, &noPassword, nullptr));
    const Key key(PEM_read_PrivateKey(keyFile.get(), nullptr, &noPassword, nullptr));
    if (certificate == nullptr)
    {
        found.push_back(Finding::failure(fmt::format("{} holds no certificate", Log::safe(tls.certificate)),
                                         "Name a PEM file: -----BEGIN CERTIFICATE-----"));
    }
    else
    {
        found.push_back(judgedDates(certificate.get(), tls.certificate));
    }
    if (key == nullptr)
    {
        found.push_back(
            Finding::failure(fmt::format("{} holds no key without a password", Log::safe(keyPath)),
                             "Name a PEM file with an unencrypted key: openssl pkey -in … -out …"));
    }
    else if (certificate != nullptr && X509_check_private_key(certificate.get(), key.get()) != 1)
    {
        found.push_back(Finding::failure(fmt::format("the key {} is not the one of the certificate {}",
                                                     Log::safe(keyPath), Log::safe(tls.certificate)),
                                         "Name the key with which the certificate was requested"));
    }
    judgeKeyMode(keyPath, found);
    return found;
}

}  // namespace refhost

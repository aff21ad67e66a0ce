#include "refhost/net/tls/SelfSignedCertificate.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>

#include "refhost/base/Descriptor.h"
#include "refhost/base/InterfaceAddresses.h"
#include "refhost/net/tls/TlsError.h"

namespace refhost
{
namespace
{

template <auto free>
struct Free
{
    template <class Object>
    void operator()(Object* object) const
    {
        free(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Free<&EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Free<&X509_free>>;
using Memory = std::unique_ptr<BIO, Free<&BIO_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Free<&X509_EXTENSION_free>>;
using File = std::unique_ptr<std::FILE, Free<&std::fclose>>;

constexpr long secondsPerYear = 365L * 86400;

bool isValid(const std::string& path)
{
    const File file(std::fopen(path.c_str(), "re"));
    const Certificate read(file == nullptr ? nullptr : PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
    return read != nullptr && X509_cmp_current_time(X509_get0_notAfter(read.get())) > 0;
}

/// As OpenSSL writes names: "DNS:localhost,IP:127.0.0.1".
std::string subjectNames()
{
    std::string names = "DNS:localhost,IP:127.0.0.1,IP:::1";
    char host[256] = {};
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-.";
    if (::gethostname(host, sizeof host - 1) == 0 && host[0] != '\0' &&
        std::string_view(host).find_first_not_of(letters) == std::string_view::npos)
    {
        names += std::string(",DNS:") + host;
    }
    for (const InterfaceAddress& each : interfaceAddresses())
    {
        const std::string address = each.address.text();
        if (!each.loopback && !address.empty() && address.find('%') == std::string::npos)
        {
            names += ",IP:" + address;
        }
    }
    return names;
}

bool addExtension(X509* certificate, int kind, const std::string& value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    return extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1;
}

Certificate sign(EVP_PKEY* key)
{
    Certificate made(X509_new());
    X509* const certificate = made.get();
    std::uint64_t serial = 0;
    if (certificate == nullptr || RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) != 1)
    {
        return nullptr;
    }
    X509_NAME* const name = X509_get_subject_name(certificate);
    const auto* const commonName = reinterpret_cast<const unsigned char*>("ovrtspd");
    const bool good = X509_set_version(certificate, 2) == 1 &&
                      ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1) == 1 &&
                      X509_gmtime_adj(X509_getm_notBefore(certificate), -86400) != nullptr &&
                      X509_gmtime_adj(X509_getm_notAfter(certificate),
                                      SelfSignedCertificate::years * secondsPerYear) != nullptr &&
                      X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, commonName, -1, -1, 0) == 1 &&
                      X509_set_issuer_name(certificate, name) == 1 &&
                      X509_set_pubkey(certificate, key) == 1 &&
                      addExtension(certificate, NID_basic_constraints, "critical,CA:FALSE") &&
                      addExtension(certificate, NID_subject_alt_name, subjectNames()) &&
                      X509_sign(certificate, key, EVP_sha256()) != 0;
    return good ? std::move(made) : nullptr;
}

/// Writes a file whole or not at all.
bool writePrivately(const std::string& path, BIO* content, std::string& error)
{
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(content, &bytes);
    const std::string temporary = path + ".new";
    ::unlink(temporary.c_str());
    const Descriptor file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file || ::write(file.get(), bytes, static_cast<std::size_t>(size)) != size ||
        ::fsync(file.get()) != 0 || ::rename(temporary.c_str(), path.c_str()) != 0)
    {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace

bool SelfSignedCertificate::prepare(const std::string& folder, std::string& error)
{
    certificate_ = folder + "/certificate.pem";
    key_ = folder + "/key.pem";
    if (isValid(certificate_) && ::access(key_.c_str(), R_OK) == 0)
    {
        return true;
    }
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    if (failure)
    {
        error = folder + ": " + failure.message();
        return false;
    }
    const Key key(EVP_EC_gen("P-256"));
    const Certificate certificate = key == nullptr ? nullptr : sign(key.get());
    const Memory keyText(BIO_new(BIO_s_mem()));
    const Memory certificateText(BIO_new(BIO_s_mem()));
    if (certificate == nullptr || keyText == nullptr || certificateText == nullptr ||
        PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1 ||
        PEM_write_bio_X509(certificateText.get(), certificate.get()) != 1)
    {
        error = "no self-signed certificate: " + takeTlsError();
        return false;
    }
    return writePrivately(key_, keyText.get(), error) &&
           writePrivately(certificate_, certificateText.get(), error);
}

const std::string& SelfSignedCertificate::certificate() const
{
    return certificate_;
}

const std::string& SelfSignedCertificate::key() const
{
    return key_;
}

}  // namespace refhost

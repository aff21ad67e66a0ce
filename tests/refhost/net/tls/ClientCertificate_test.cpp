#include "refhost/net/tls/ClientCertificate.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "refhost/net/tls/SelfSignedCertificate.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

Certificate read(const std::string& file)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_file(file.c_str(), "r"), &BIO_free);
    return {PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr), &X509_free};
}

std::string nameOf(const std::vector<std::string>& commonNames, int type = MBSTRING_UTF8)
{
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), &X509_free);
    X509_NAME* const subject = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("org"), -1,
                               -1, 0);
    for (const std::string& name : commonNames)
    {
        EXPECT_EQ(1, X509_NAME_add_entry_by_NID(subject, NID_commonName, type,
                                                reinterpret_cast<const unsigned char*>(name.data()),
                                                static_cast<int>(name.size()), -1, 0));
    }
    return ClientCertificate::nameOf(*certificate);
}

TEST(ClientCertificate, ItsNameIsTheOneCommonName)
{
    EXPECT_EQ(nameOf({"admin"}), "admin");
    EXPECT_EQ(nameOf({"J\xc3\xb6rg M."}), "J\xc3\xb6rg M.");
    EXPECT_EQ(nameOf({std::string("\0a\0b", 4)}, V_ASN1_BMPSTRING), "ab");
}

TEST(ClientCertificate, ItsNameIsEmptyWhereItCouldBeTakenForAnother)
{
    EXPECT_EQ(nameOf({}), "");
    EXPECT_EQ(nameOf({"admin", "guest"}), "");
    EXPECT_EQ(nameOf({std::string("admin\0.evil", 11)}), "");
    EXPECT_EQ(nameOf({"admin\n"}), "");
    EXPECT_EQ(nameOf({std::string(300, 'a')}, V_ASN1_UTF8STRING), "");
}

TEST(ClientCertificate, IsTrustedWhileItIsValidAndOfAKnownCa)
{
    TemporaryFolder folder;
    TemporaryFolder otherFolder;
    SelfSignedCertificate pair;
    SelfSignedCertificate other;
    std::string error;
    ASSERT_TRUE(pair.prepare(folder.path(), error)) << error;
    ASSERT_TRUE(other.prepare(otherFolder.path(), error)) << error;
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                                    &SSL_CTX_free);
    ASSERT_EQ(1, SSL_CTX_load_verify_file(context.get(), pair.certificate().c_str()));
    const std::time_t now = std::time(nullptr);
    constexpr std::time_t year = 366 * 86400;
    EXPECT_TRUE(ClientCertificate::isTrusted(*context, *read(pair.certificate()), now));
    EXPECT_FALSE(ClientCertificate::isTrusted(*context, *read(pair.certificate()),
                                              now + (SelfSignedCertificate::years + 1) * year));
    EXPECT_FALSE(ClientCertificate::isTrusted(*context, *read(other.certificate()), now));
}

}  // namespace
}  // namespace refhost

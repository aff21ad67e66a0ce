#include "refhost/net/tls/SelfSignedCertificate.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(SelfSignedCertificate, TheKeyIsForItsOwnerAlone)
{
    const TemporaryFolder folder;
    SelfSignedCertificate pair;
    std::string error;
    ASSERT_TRUE(pair.prepare(folder / "new/tls", error)) << error;
    struct stat status
    {
    };
    ASSERT_EQ(0, ::stat(pair.key().c_str(), &status));
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST(SelfSignedCertificate, StaysTheSameOnceItIsMade)
{
    const TemporaryFolder folder;
    SelfSignedCertificate pair;
    std::string error;
    ASSERT_TRUE(pair.prepare(folder.path(), error)) << error;
    const std::string certificate = contentOf(pair.certificate());
    const std::string key = contentOf(pair.key());
    EXPECT_FALSE(certificate.empty());
    ASSERT_TRUE(SelfSignedCertificate().prepare(folder.path(), error)) << error;
    EXPECT_EQ(contentOf(pair.certificate()), certificate);
    EXPECT_EQ(contentOf(pair.key()), key);
}

TEST(SelfSignedCertificate, IsMadeAgainWhenItCannotBeRead)
{
    const TemporaryFolder folder;
    SelfSignedCertificate pair;
    std::string error;
    ASSERT_TRUE(pair.prepare(folder.path(), error)) << error;
    std::ofstream(pair.certificate()) << "damaged";
    ASSERT_TRUE(pair.prepare(folder.path(), error)) << error;
    EXPECT_NE(contentOf(pair.certificate()).find("BEGIN CERTIFICATE"), std::string::npos);
}

TEST(SelfSignedCertificate, NamesTheHostAndItsAddresses)
{
    const TemporaryFolder folder;
    SelfSignedCertificate pair;
    std::string error;
    ASSERT_TRUE(pair.prepare(folder.path(), error)) << error;
    std::FILE* const file = std::fopen(pair.certificate().c_str(), "re");
    ASSERT_NE(file, nullptr);
    const std::unique_ptr<X509, decltype(&X509_free)> read(PEM_read_X509(file, nullptr, nullptr, nullptr),
                                                           &X509_free);
    std::fclose(file);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(1, X509_check_host(read.get(), "localhost", 0, 0, nullptr));
    EXPECT_EQ(1, X509_check_ip_asc(read.get(), "127.0.0.1", 0));
    EXPECT_EQ(1, X509_check_ip_asc(read.get(), "::1", 0));
    EXPECT_EQ(0, X509_check_host(read.get(), "elsewhere.example", 0, 0, nullptr));
}

TEST(SelfSignedCertificate, AFolderThatCannotBeMadeIsNamed)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "file") << "x";
    std::string error;
    EXPECT_FALSE(SelfSignedCertificate().prepare(folder / "file/tls", error));
    EXPECT_NE(error.find(folder / "file/tls"), std::string::npos) << error;
}

}  // namespace
}  // namespace refhost

#include "refhost/net/tls/TlsContext.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "refhost/net/tls/SelfSignedCertificate.h"
#include "refhost/net/tls/TlsStream.h"
#include "tests/CapturedErrors.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/net/LoopbackPair.h"
#include "tests/refhost/net/tls/TlsPeer.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using test::LoopbackPair;
using test::makeTlsServer;
using test::TlsPeer;
using test::tlsServerOptions;

void writeFile(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

/// A server's side of one connection.
class Served
{
public:
    explicit Served(const TlsContext& context, const TlsPeer::Options& options = TlsPeer::Options())
        : stream_(std::make_shared<TlsStream>(std::move(sockets_.near), sockets_.peer, context)),
          peer(sockets_.far.get(), options)
    {
        stream_->attach(loop_,
                        [this](std::uint32_t ready)
                        {
                            char bytes[100];
                            if ((ready & ByteStream::receivable) != 0)
                            {
                                const auto result = stream_->receive(bytes, sizeof bytes);
                                const std::string_view part(bytes, result.count);
                                if (result.status == ByteStream::Status::done)
                                {
                                    stream_->send(&part, 1, false);
                                }
                                else if (result.status != ByteStream::Status::blocked)
                                {
                                    stream_->watchReceive(false);
                                }
                            }
                            if ((ready & ByteStream::hungUp) != 0)
                            {
                                stream_->close();
                            }
                        });
        connected = peer.connect();
    }
    ~Served()
    {
        runOn(loop_, [this] { stream_->close(); });
    }
    Served(const Served&) = delete;
    Served& operator=(const Served&) = delete;

    /// True when the server returns what the client writes.
    bool echoes()
    {
        peer.write("echo");
        return peer.read() == "echo";
    }

private:
    EventLoop loop_{"served"};
    LoopbackPair sockets_;
    std::shared_ptr<TlsStream> stream_;

public:
    TlsPeer peer;
    bool connected = false;
};

std::string fingerprintSeen(Served& served)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    X509* const certificate = SSL_get0_peer_certificate(served.peer.ssl());
    EXPECT_EQ(1, X509_digest(certificate, EVP_sha256(), digest, &size));
    std::string text;
    for (unsigned int i = 0; i < size; ++i)
    {
        char byte[4];
        std::snprintf(byte, sizeof byte, "%s%02X", i == 0 ? "" : ":", digest[i]);
        text += byte;
    }
    return text;
}

/// A pair of its own in `folder`.
TlsContext::Server makePair(const std::string& folder)
{
    SelfSignedCertificate pair;
    std::string error;
    EXPECT_TRUE(pair.prepare(folder, error)) << error;
    TlsContext::Server options;
    options.certificate = pair.certificate();
    options.key = pair.key();
    return options;
}

std::string encryptedKey()
{
    EVP_PKEY* const key = EVP_EC_gen("P-256");
    BIO* const text = BIO_new(BIO_s_mem());
    EXPECT_EQ(1,
              PEM_write_bio_PrivateKey(text, key, EVP_aes_128_cbc(),
                                       reinterpret_cast<const unsigned char*>("word"), 4, nullptr, nullptr));
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(text, &bytes);
    std::string result(bytes, static_cast<std::size_t>(size));
    BIO_free(text);
    EVP_PKEY_free(key);
    return result;
}

TEST(TlsContext, WhatIsWrongNamesTheFileAndTheReason)
{
    const TemporaryFolder folder;
    const TemporaryFolder other;
    const std::string foreignKey = makePair(other.path()).key;
    writeFile(folder / "text.pem", "no certificate");
    writeFile(folder / "locked.pem", encryptedKey());
    struct Case
    {
        const char* name;
        std::function<void(TlsContext::Server&)> change;
        std::string file;
        std::string reason;
    };
    const Case cases[] = {
        {"no certificate", [&](auto& o) { o.certificate = folder / "none.pem"; }, folder / "none.pem",
         "No such file"},
        {"certificate is text", [&](auto& o) { o.certificate = folder / "text.pem"; }, folder / "text.pem",
         "no start line"},
        {"no key", [&](auto& o) { o.key = folder / "none.pem"; }, folder / "none.pem", "No such file"},
        {"key is text", [&](auto& o) { o.key = folder / "text.pem"; }, folder / "text.pem", ": "},
        {"key is encrypted", [&](auto& o) { o.key = folder / "locked.pem"; }, folder / "locked.pem", ": "},
        {"key of another certificate", [&](auto& o) { o.key = foreignKey; }, foreignKey, "values mismatch"},
        {"key left out", [](auto& o) { o.key.clear(); }, tlsServerOptions().certificate, ": "},
        {"no client CA", [&](auto& o) { o.clientCa = folder / "none.pem"; }, folder / "none.pem",
         "No such file"},
        {"client CA is text", [&](auto& o) { o.clientCa = folder / "text.pem"; }, folder / "text.pem", ": "},
        {"unknown cipher", [](auto& o) { o.ciphers = "NOT-A-CIPHER"; }, "NOT-A-CIPHER", "no cipher match"},
        {"unknown suite", [](auto& o) { o.ciphers = "TLS_NOT_A_SUITE"; }, "TLS_NOT_A_SUITE", ": "},
    };
    for (const Case& tested : cases)
    {
        TlsContext::Server options = tlsServerOptions();
        tested.change(options);
        std::string error;
        EXPECT_EQ(TlsContext::forServer(options, error), nullptr) << tested.name;
        EXPECT_NE(error.find(tested.file), std::string::npos) << tested.name << ": " << error;
        EXPECT_NE(error.find(tested.reason), std::string::npos) << tested.name << ": " << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << tested.name << ": " << error;
    }
}

TEST(TlsContext, ServesThePairOfOneFile)
{
    const TemporaryFolder folder;
    TlsContext::Server options = makePair(folder.path());
    std::ofstream(options.certificate, std::ios::app) << std::ifstream(options.key).rdbuf();
    options.key.clear();
    Served served(*makeTlsServer(options));
    EXPECT_TRUE(served.connected);
}

TEST(TlsContext, AFingerprintIsThatOfTheCertificateThatClientsSee)
{
    const auto context = makeTlsServer();
    Served served(*context);
    EXPECT_EQ(context->fingerprint(), fingerprintSeen(served));
}

TEST(TlsContext, ChangedFilesServeTheNextConnectionAndDropNone)
{
    const TemporaryFolder folder;
    const TemporaryFolder other;
    const TlsContext::Server options = makePair(folder.path());
    const TlsContext::Server next = makePair(other.path());
    const auto context = makeTlsServer(options);
    const std::string before = context->fingerprint();
    Served old(*context);
    ASSERT_TRUE(old.echoes());

    std::filesystem::rename(next.certificate, options.certificate);
    context->refresh();
    std::filesystem::rename(next.key, options.key);
    context->refresh();
    EXPECT_EQ(context->fingerprint(), before) << "the files may still be changing";
    context->refresh();

    EXPECT_NE(context->fingerprint(), before);
    Served fresh(*context);
    EXPECT_EQ(fingerprintSeen(fresh), context->fingerprint());
    EXPECT_TRUE(old.echoes());
}

TEST(TlsContext, ABadNewFileKeepsTheOldCertificateAndIsLoggedOnce)
{
    const TemporaryFolder folder;
    const TlsContext::Server options = makePair(folder.path());
    const auto context = makeTlsServer(options);
    const std::string before = context->fingerprint();
    CapturedErrors log;
    writeFile(options.certificate, "gone wrong");
    for (int i = 0; i < 5; ++i)
    {
        context->refresh();
    }
    EXPECT_EQ(log.linesWith(options.certificate).size(), 1u);
    EXPECT_EQ(context->fingerprint(), before);
    Served served(*context);
    EXPECT_TRUE(served.echoes());
}

class TlsVersions : public testing::TestWithParam<int>
{
};

TEST_P(TlsVersions, ASessionIsResumedByItsTicket)
{
    const auto context = makeTlsServer();
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> clients(SSL_CTX_new(TLS_client_method()),
                                                                    &SSL_CTX_free);
    TlsPeer::Options options;
    options.version = GetParam();
    options.context = clients.get();
    std::unique_ptr<SSL_SESSION, decltype(&SSL_SESSION_free)> session(nullptr, &SSL_SESSION_free);
    {
        Served first(*context, options);
        ASSERT_TRUE(first.connected);
        ASSERT_TRUE(first.echoes());
        EXPECT_EQ(0, SSL_session_reused(first.peer.ssl()));
        first.peer.endWriting();
        session.reset(SSL_get1_session(first.peer.ssl()));
    }
    options.session = session.get();
    Served second(*context, options);
    EXPECT_TRUE(second.connected);
    EXPECT_EQ(1, SSL_session_reused(second.peer.ssl()));
    EXPECT_TRUE(second.echoes());
}

INSTANTIATE_TEST_SUITE_P(Both, TlsVersions, testing::Values(TLS1_2_VERSION, TLS1_3_VERSION),
                         [](const testing::TestParamInfo<int>& tested)
                         { return tested.param == TLS1_2_VERSION ? "Tls12" : "Tls13"; });

TEST(TlsContext, OlderVersionsThanTheMinimumAreRefused)
{
    TlsContext::Server options = tlsServerOptions();
    options.minVersion = "1.3";
    const auto context = makeTlsServer(options);
    TlsPeer::Options client;
    client.version = TLS1_2_VERSION;
    EXPECT_FALSE(Served(*context, client).connected);
    client.version = TLS1_3_VERSION;
    EXPECT_TRUE(Served(*context, client).connected);
}

TEST(TlsContext, CiphersOfBothVersionsAreChosenByOneList)
{
    TlsContext::Server options = tlsServerOptions();
    options.ciphers = "ECDHE-ECDSA-AES256-GCM-SHA384:TLS_CHACHA20_POLY1305_SHA256";
    const auto context = makeTlsServer(options);
    TlsPeer::Options client;
    client.version = TLS1_2_VERSION;
    EXPECT_STREQ(SSL_get_cipher_name(Served(*context, client).peer.ssl()), "ECDHE-ECDSA-AES256-GCM-SHA384");
    client.version = TLS1_3_VERSION;
    EXPECT_STREQ(SSL_get_cipher_name(Served(*context, client).peer.ssl()), "TLS_CHACHA20_POLY1305_SHA256");
}

TEST(TlsContext, WithAClientCaOnlyItsClientsAreServed)
{
    TlsContext::Server options = tlsServerOptions();
    const TemporaryFolder client;
    const TemporaryFolder stranger;
    options.clientCa = makePair(client.path()).certificate;
    const auto context = makeTlsServer(options);
    TlsPeer::Options known;
    known.certificate = client / "certificate.pem";
    known.key = client / "key.pem";
    EXPECT_TRUE(Served(*context, known).echoes());
    TlsPeer::Options unknown;
    unknown.certificate = makePair(stranger.path()).certificate;
    unknown.key = stranger / "key.pem";
    EXPECT_FALSE(Served(*context, unknown).echoes());
    EXPECT_FALSE(Served(*context).echoes());
}

TEST(TlsContext, KernelSupportIsASentence)
{
    EXPECT_NE(TlsContext::kernelSupport().find("kernel TLS"), std::string::npos);
}

}  // namespace
}  // namespace refhost

#include "tests/refhost/net/tls/TlsPeer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>

#include "refhost/net/tls/SelfSignedCertificate.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace test
{

TlsContext::Server tlsServerOptions()
{
    static const TemporaryFolder folder;
    SelfSignedCertificate pair;
    std::string error;
    EXPECT_TRUE(pair.prepare(folder.path(), error)) << error;
    TlsContext::Server options;
    options.certificate = pair.certificate();
    options.key = pair.key();
    return options;
}

std::unique_ptr<TlsContext> makeTlsServer(const TlsContext::Server& options)
{
    std::string error;
    auto made = TlsContext::forServer(options, error);
    EXPECT_NE(made, nullptr) << error;
    return made;
}

TlsPeer::TlsPeer(int socket, const Options& options) : socket_(socket), bytesAtOnce_(options.bytesAtOnce)
{
    context_ = options.context == nullptr
                   ? std::shared_ptr<SSL_CTX>(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free)
                   : std::shared_ptr<SSL_CTX>(options.context, [](SSL_CTX*) {});
    if (!options.certificate.empty())
    {
        EXPECT_EQ(1, SSL_CTX_use_certificate_chain_file(context_.get(), options.certificate.c_str()));
        EXPECT_EQ(1, SSL_CTX_use_PrivateKey_file(context_.get(), options.key.c_str(), SSL_FILETYPE_PEM));
    }
    ssl_ = std::shared_ptr<SSL>(SSL_new(context_.get()), &SSL_free);
    SSL_set_bio(ssl(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_connect_state(ssl());
    if (options.version != 0)
    {
        SSL_set_min_proto_version(ssl(), options.version);
        SSL_set_max_proto_version(ssl(), options.version);
    }
    if (options.session != nullptr)
    {
        SSL_set_session(ssl(), options.session);
    }
}

TlsPeer::~TlsPeer() = default;

SSL* TlsPeer::ssl() const
{
    return ssl_.get();
}

bool TlsPeer::connect()
{
    int result = SSL_do_handshake(ssl());
    sendOut();
    while (result != 1 && SSL_get_error(ssl(), result) == SSL_ERROR_WANT_READ && receive())
    {
        result = SSL_do_handshake(ssl());
        sendOut();
    }
    return result == 1;
}

void TlsPeer::write(const std::string& bytes)
{
    sendRaw(encrypted(bytes));
}

std::string TlsPeer::encrypted(const std::string& bytes)
{
    EXPECT_EQ(static_cast<int>(bytes.size()), SSL_write(ssl(), bytes.data(), static_cast<int>(bytes.size())));
    std::string records;
    char* data = nullptr;
    const long size = BIO_get_mem_data(SSL_get_wbio(ssl()), &data);
    records.assign(data, static_cast<std::size_t>(size));
    BIO_reset(SSL_get_wbio(ssl()));
    return records;
}

std::string TlsPeer::read()
{
    char bytes[16384];
    while (!ended_ && !broken_)
    {
        const int count = SSL_read(ssl(), bytes, sizeof bytes);
        sendOut();
        if (count > 0)
        {
            return std::string(bytes, static_cast<std::size_t>(count));
        }
        const int error = SSL_get_error(ssl(), count);
        ended_ = error == SSL_ERROR_ZERO_RETURN;
        broken_ = !ended_ && (error != SSL_ERROR_WANT_READ || !receive());
    }
    return {};
}

bool TlsPeer::ended() const
{
    return ended_;
}

bool TlsPeer::broken() const
{
    return broken_;
}

void TlsPeer::endWriting()
{
    SSL_shutdown(ssl());
    sendOut();
}

void TlsPeer::sendRaw(const std::string& bytes)
{
    for (std::size_t sent = 0; sent < bytes.size();)
    {
        const std::size_t size = std::min(bytesAtOnce_, bytes.size() - sent);
        const ssize_t count = ::send(socket_, bytes.data() + sent, size, MSG_NOSIGNAL);
        if (count <= 0)
        {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

void TlsPeer::sendOut()
{
    char* data = nullptr;
    const long size = BIO_get_mem_data(SSL_get_wbio(ssl()), &data);
    const std::string bytes(data, static_cast<std::size_t>(size));
    BIO_reset(SSL_get_wbio(ssl()));
    sendRaw(bytes);
}

bool TlsPeer::receive()
{
    char bytes[16384];
    const ssize_t count = ::recv(socket_, bytes, sizeof bytes, 0);
    if (count <= 0)
    {
        return false;
    }
    return BIO_write(SSL_get_rbio(ssl()), bytes, static_cast<int>(count)) == count;
}

}  // namespace test
}  // namespace refhost

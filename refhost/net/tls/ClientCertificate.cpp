#include "refhost/net/tls/ClientCertificate.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <memory>

namespace refhost
{
namespace
{

constexpr std::size_t maxName = 256;  // bytes of 64 characters

void release(unsigned char* text)
{
    OPENSSL_free(text);
}

SSL_TICKET_RETURN onTicket(SSL* ssl, SSL_SESSION* session, const unsigned char* /*name*/,
                           std::size_t /*size*/, SSL_TICKET_STATUS status, void* /*unused*/)
{
    if (status != SSL_TICKET_SUCCESS && status != SSL_TICKET_SUCCESS_RENEW)
    {
        return SSL_TICKET_RETURN_IGNORE_RENEW;
    }
    X509* const certificate = SSL_SESSION_get0_peer(session);
    if (certificate == nullptr ||
        !ClientCertificate::isTrusted(*SSL_get_SSL_CTX(ssl), *certificate, std::time(nullptr)))
    {
        return SSL_TICKET_RETURN_IGNORE_RENEW;
    }
    return status == SSL_TICKET_SUCCESS ? SSL_TICKET_RETURN_USE : SSL_TICKET_RETURN_USE_RENEW;
}

}  // namespace

std::string ClientCertificate::nameOf(const x509_st& certificate)
{
    const X509_NAME* const subject = X509_get_subject_name(&certificate);
    const int at = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (at < 0 || X509_NAME_get_index_by_NID(subject, NID_commonName, at) >= 0)
    {
        return {};
    }
    unsigned char* bytes = nullptr;
    const int size = ASN1_STRING_to_UTF8(&bytes, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
    const std::unique_ptr<unsigned char, decltype(&release)> held(bytes, &release);
    if (size <= 0 || static_cast<std::size_t>(size) > maxName)
    {
        return {};
    }
    std::string name(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    const bool controls = std::any_of(
        name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
    return controls ? std::string() : name;
}

bool ClientCertificate::isTrusted(ssl_ctx_st& context, x509_st& certificate, std::time_t time)
{
    const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> check(X509_STORE_CTX_new(),
                                                                                &X509_STORE_CTX_free);
    if (check == nullptr ||
        X509_STORE_CTX_init(check.get(), SSL_CTX_get_cert_store(&context), &certificate, nullptr) != 1)
    {
        return false;
    }
    X509_STORE_CTX_set_default(check.get(), "ssl_client");
    X509_STORE_CTX_set_time(check.get(), 0, time);
    const bool trusted = X509_verify_cert(check.get()) == 1;
    ERR_clear_error();
    return trusted;
}

void ClientCertificate::verifyResumptions(ssl_ctx_st& context)
{
    SSL_CTX_set_session_ticket_cb(&context, nullptr, &onTicket, nullptr);
}

}  // namespace refhost

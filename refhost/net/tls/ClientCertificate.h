#pragma once

#include <ctime>
#include <string>

struct ssl_ctx_st;
struct x509_st;

namespace refhost
{

/// What a server takes of its clients' certificates. Threads: any; no state.
class ClientCertificate
{
public:
    /// The common name (CN) of a certificate's subject as UTF-8.
    /// \returns an empty text where there is none, more than one, or one that is longer than 64 characters or
    ///          holds control characters: such a name could be taken for another
    static std::string nameOf(const x509_st& certificate);

    /// Whether a client's certificate is valid at `time`, and signed by one of the CAs that `context` trusts. CAs
    /// that the client sent between them are not known here.
    static bool isTrusted(ssl_ctx_st& context, x509_st& certificate, std::time_t time);

    /// Has `context` verify a client's certificate at each resumption of a session again, which OpenSSL by itself
    /// does not: it may have expired since. Where it is not trusted, a whole handshake follows, with its checks.
    static void verifyResumptions(ssl_ctx_st& context);
};

}  // namespace refhost

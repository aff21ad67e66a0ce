#include "refhost/net/tls/TlsContext.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include "refhost/base/AuditLog.h"
#include "refhost/base/Descriptor.h"
#include "refhost/base/Log.h"
#include "refhost/net/tls/CertificateFingerprint.h"
#include "refhost/net/tls/ClientCertificate.h"
#include "refhost/net/tls/TlsError.h"

#ifndef TCP_ULP
#define TCP_ULP 31
#endif

namespace refhost
{
namespace
{

using Context = std::shared_ptr<ssl_ctx_st>;

constexpr const char* defaultCiphers = "ECDHE+AESGCM:ECDHE+CHACHA20";
constexpr std::string_view sessionContext = "ovrtspd";

/// \returns why the kernel cannot encrypt; empty when it can
std::string kernelObstacle()
{
#if defined(OPENSSL_NO_KTLS) || !defined(SSL_OP_ENABLE_KTLS)
    return "this build of OpenSSL has none";
#else
    const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    constexpr char name[] = "tls";
    // A kernel that has it refuses an unconnected socket for that reason alone.
    const bool has =
        ::setsockopt(socket.get(), IPPROTO_TCP, TCP_ULP, name, sizeof name) == 0 || errno == ENOTCONN;
    return has ? "" : std::string("the kernel has none loaded (modprobe tls): ") + std::strerror(errno);
#endif
}

/// \returns nothing when the file can be read
std::string unreadable(const std::string& path)
{
    errno = 0;
    const std::ifstream file(path, std::ios::binary);
    return file ? "" : std::strerror(errno == 0 ? EIO : errno);
}

/// \returns "what PATH: reason"
std::string problem(std::string_view what, const std::string& path, const std::string& reason)
{
    return std::string(what) + " " + path + ": " + reason;
}

/// Without it OpenSSL asks on the terminal.
int noPassphrase(char*, int, int, void*)
{
    return -1;
}

/// Ciphers of TLS 1.2 and suites of TLS 1.3 are set by different calls.
bool setCiphers(SSL_CTX* context, const std::string& list, std::string& error)
{
    std::string ciphers;
    std::string suites;
    for (std::size_t start = 0; start < list.size();)
    {
        const std::size_t end = std::min(list.find_first_of(":, ", start), list.size());
        const std::string name = list.substr(start, end - start);
        std::string& group = name.rfind("TLS_", 0) == 0 ? suites : ciphers;
        group += (group.empty() || name.empty() ? "" : ":") + name;
        start = end + 1;
    }
    ciphers = ciphers.empty() ? defaultCiphers : ciphers;
    if (SSL_CTX_set_cipher_list(context, ciphers.c_str()) != 1 ||
        (!suites.empty() && SSL_CTX_set_ciphersuites(context, suites.c_str()) != 1))
    {
        error = "ciphers \"" + list + "\": " + takeTlsError();
        return false;
    }
    return true;
}

bool useCertificate(SSL_CTX* context, const TlsContext::Server& options, std::string& error)
{
    const std::string& key = options.key.empty() ? options.certificate : options.key;
    std::string reason = unreadable(options.certificate);
    if (reason.empty() && SSL_CTX_use_certificate_chain_file(context, options.certificate.c_str()) != 1)
    {
        reason = takeTlsError();
    }
    if (!reason.empty())
    {
        error = problem("certificate", options.certificate, reason);
        return false;
    }
    reason = unreadable(key);
    if (reason.empty() && SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1)
    {
        reason = takeTlsError();
    }
    else if (reason.empty() && SSL_CTX_check_private_key(context) != 1)
    {
        reason = "is not the key of " + options.certificate + ": " + takeTlsError();
    }
    error = reason.empty() ? "" : problem("key", key, reason);
    return reason.empty();
}

bool useClientCa(SSL_CTX* context, const std::string& file, std::string& error)
{
    std::string reason = unreadable(file);
    if (reason.empty() && SSL_CTX_load_verify_file(context, file.c_str()) != 1)
    {
        reason = takeTlsError();
    }
    STACK_OF(X509_NAME)* const names = reason.empty() ? SSL_load_client_CA_file(file.c_str()) : nullptr;
    if (names == nullptr)
    {
        error = problem("client CA", file, reason.empty() ? takeTlsError() : reason);
        return false;
    }
    SSL_CTX_set_client_CA_list(context, names);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    ClientCertificate::verifyResumptions(*context);
    return true;
}

Context newContext(const SSL_METHOD* method, bool kernelTls)
{
    Context made(SSL_CTX_new(method), &SSL_CTX_free);
    SSL_CTX* const context = made.get();
    if (context == nullptr)
    {
        return nullptr;
    }
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION |
                                     SSL_OP_CIPHER_SERVER_PREFERENCE | SSL_OP_PRIORITIZE_CHACHA);
    // Idle connections hold no record buffers.
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE |
                                  SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // A record's header and body with one system call.
    SSL_CTX_set_read_ahead(context, 1);
    SSL_CTX_set_default_passwd_cb(context, &noPassphrase);
#ifdef SSL_OP_ENABLE_KTLS
    if (kernelTls)
    {
        SSL_CTX_set_options(context, SSL_OP_ENABLE_KTLS);
    }
#endif
    return made;
}

Context loadServer(const TlsContext::Server& options, std::string& error)
{
    ERR_clear_error();
    Context made = newContext(TLS_server_method(), options.kernelTls);
    SSL_CTX* const context = made.get();
    if (context == nullptr)
    {
        error = "no TLS: " + takeTlsError();
        return nullptr;
    }
    SSL_CTX_set_min_proto_version(context, options.minVersion == "1.3" ? TLS1_3_VERSION : TLS1_2_VERSION);
    // Tickets hold the sessions; nothing is kept here.
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(context, 1);
    SSL_CTX_set_session_id_context(context, reinterpret_cast<const unsigned char*>(sessionContext.data()),
                                   sessionContext.size());
    const bool good = setCiphers(context, options.ciphers, error) &&
                      useCertificate(context, options, error) &&
                      (options.clientCa.empty() || useClientCa(context, options.clientCa, error));
    ERR_clear_error();
    return good ? made : nullptr;
}

/// What is allowed but will not work for every client, or not for long.
void warnAbout(SSL_CTX* context, const TlsContext::Server& options)
{
    const X509* const certificate = SSL_CTX_get0_certificate(context);
    constexpr int warnedDays = 14;
    int days = 0;
    int seconds = 0;
    if (ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate)) == 1 && days < warnedDays)
    {
        Log::warning(
            "TLS certificate {} {}", options.certificate,
            days < 0 || seconds < 0 ? "has expired" : "expires in " + std::to_string(days) + " days");
    }
    const std::string& key = options.key.empty() ? options.certificate : options.key;
    struct stat status
    {
    };
    if (::stat(key.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0)
    {
        Log::warning("everybody can read the TLS key {}: chmod o= {}", key, key);
    }
}

}  // namespace

std::unique_ptr<TlsContext> TlsContext::forServer(const Server& options, std::string& error)
{
    Server usable = options;
    usable.kernelTls = options.kernelTls && kernelObstacle().empty();
    Context loaded = loadServer(usable, error);
    if (loaded == nullptr)
    {
        return nullptr;
    }
    warnAbout(loaded.get(), usable);
    return std::unique_ptr<TlsContext>(new TlsContext(std::move(usable), std::move(loaded), false));
}

std::unique_ptr<TlsContext> TlsContext::forClient(const Client& options, std::string& error)
{
    ERR_clear_error();
    Context made = newContext(TLS_client_method(), false);
    std::string reason = made == nullptr || options.ca.empty() ? "" : unreadable(options.ca);
    const bool good = made != nullptr && reason.empty() &&
                      (options.ca.empty() ? SSL_CTX_set_default_verify_paths(made.get())
                                          : SSL_CTX_load_verify_file(made.get(), options.ca.c_str())) == 1;
    if (!good)
    {
        error = problem("CA", options.ca, reason.empty() ? takeTlsError() : reason);
        return nullptr;
    }
    SSL_CTX_set_verify(made.get(), options.verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    Server unused;
    unused.kernelTls = false;
    return std::unique_ptr<TlsContext>(new TlsContext(std::move(unused), std::move(made), true));
}

TlsContext::TlsContext(Server options, std::shared_ptr<ssl_ctx_st> context, bool client)
    : options_(std::move(options)),
      client_(client),
      loaded_(stamps()),
      seen_(loaded_),
      context_(std::move(context))
{
}

std::vector<TlsContext::FileStamp> TlsContext::stamps() const
{
    std::vector<FileStamp> all;
    for (const std::string& path : {options_.certificate, options_.key, options_.clientCa})
    {
        struct stat status
        {
        };
        const bool there = !path.empty() && ::stat(path.c_str(), &status) == 0;
        all.push_back(there ? FileStamp{static_cast<std::int64_t>(status.st_ino), status.st_size,
                                        status.st_mtim.tv_sec, status.st_mtim.tv_nsec}
                            : FileStamp{});
    }
    return all;
}

void TlsContext::refresh()
{
    const std::vector<FileStamp> now = stamps();
    if (std::exchange(seen_, now) != now || now == loaded_)
    {
        return;
    }
    loaded_ = now;
    std::string error;
    Context fresh = loadServer(options_, error);
    if (fresh == nullptr)
    {
        Log::error("TLS goes on with the certificate that it has: {}", error);
        return;
    }
    warnAbout(fresh.get(), options_);
    {
        const MutexLock guard(mutex_);
        context_.swap(fresh);
    }
    Log::info("read the TLS certificate {} again: SHA-256 {}", options_.certificate, fingerprint());
    AuditLog::configurationChanged("certificate");
}

std::shared_ptr<ssl_ctx_st> TlsContext::current() const
{
    const MutexLock guard(mutex_);
    return context_;
}

bool TlsContext::isClient() const
{
    return client_;
}

bool TlsContext::usesKernel() const
{
    return options_.kernelTls;
}

std::uint64_t TlsContext::recordsPerKey() const
{
    return options_.recordsPerKey;
}

std::string TlsContext::fingerprint() const
{
    const Context context = current();
    return CertificateFingerprint::of(SSL_CTX_get0_certificate(context.get()));
}

std::string TlsContext::kernelSupport()
{
    const std::string obstacle = kernelObstacle();
    return obstacle.empty() ? "kernel TLS is used for ciphers that the kernel has"
                            : "no kernel TLS: " + obstacle;
}

}  // namespace refhost

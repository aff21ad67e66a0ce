#include "refhost/net/tls/TlsStream.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/net/tls/CertificateFingerprint.h"
#include "refhost/net/tls/ClientCertificate.h"
#include "refhost/net/tls/PlainClient.h"
#include "refhost/net/tls/TlsError.h"

namespace refhost
{
namespace
{

constexpr std::size_t maxRecord = SSL3_RT_MAX_PLAIN_LENGTH;
// Of a record beyond its bytes: header, type, tag; more than any cipher needs.
constexpr std::size_t recordOverhead = 64;

bool isAddress(const std::string& host)
{
    return SocketAddress::parse(host).has_value();
}

/// What the server's certificate must hold, and what the client asks the server for.
void expectHost(ssl_st* ssl, const std::string& host)
{
    if (isAddress(host))
    {
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host.c_str());
        return;
    }
    SSL_set1_host(ssl, host.c_str());
    SSL_set_tlsext_host_name(ssl, host.c_str());
}

/// Reads what the peer sent before it noticed: closing a TCP connection with unread bytes resets it, which
/// can cost the peer the alert that says why.
void dropReceived(TcpStream& tcp)
{
    constexpr int reads = 16;
    char bytes[4096];
    for (int i = 0; i < reads && tcp.receive(bytes, sizeof bytes).status == ByteStream::Status::done; ++i)
    {
    }
}

std::string whyHandshakeFailed(ssl_st* ssl)
{
    const long verified = SSL_get_verify_result(ssl);
    const unsigned long code = ERR_peek_error();
    if (ERR_GET_REASON(code) == SSL_R_CERTIFICATE_VERIFY_FAILED && verified != X509_V_OK)
    {
        ERR_clear_error();
        return std::string("certificate refused: ") + X509_verify_cert_error_string(verified);
    }
    return code == 0 ? "the peer ended the connection" : takeTlsError();
}

}  // namespace

void TlsStream::FreeSsl::operator()(ssl_st* ssl) const
{
    SSL_free(ssl);
}

TlsStream::TlsStream(Descriptor socket, const SocketAddress& peer, const TlsContext& context,
                     std::shared_ptr<void> handshake, const std::string& host)
    : tcp_(std::move(socket), peer),
      client_(context.isClient()),
      recordsPerKey_(context.recordsPerKey()),
      handshake_(std::move(handshake))
{
    const MutexLock guard(mutex_);
    ssl_.reset(SSL_new(context.current().get()));
    const int kernelSocket = context.usesKernel() ? tcp_.descriptor() : -1;
    BIO* const bio = ssl_ == nullptr ? nullptr : carrier_.makeBio(kernelSocket);
    if (bio == nullptr)
    {
        throw std::bad_alloc();
    }
    SSL_set_bio(ssl_.get(), bio, bio);
    if (!client_)
    {
        SSL_set_accept_state(ssl_.get());
        return;
    }
    SSL_set_connect_state(ssl_.get());
    expectHost(ssl_.get(), host);
    wantsWrite_ = true;
}

TlsStream::~TlsStream()
{
    close();
}

void TlsStream::attach(EventLoop& loop, Handler handler)
{
    auto shared = std::make_shared<Handler>(std::move(handler));
    const MutexLock guard(mutex_);
    tcp_.attach(loop, [this](std::uint32_t ready) { onTcp(ready); });
    handler_.attach(loop, std::move(shared));
    update();
}

void TlsStream::detach()
{
    std::shared_ptr<Handler> handler;  // ends without the lock
    {
        const MutexLock guard(mutex_);
        handler = handler_.detach();
    }
    tcp_.detach();
}

void TlsStream::watchReceive(bool on)
{
    const MutexLock guard(mutex_);
    watchesReceive_ = on;
    update();
}

void TlsStream::watchSend(bool on)
{
    const MutexLock guard(mutex_);
    watchesSend_ = on;
    update();
}

void TlsStream::onTcp(std::uint32_t ready)
{
    std::shared_ptr<Handler> handler;
    std::uint32_t now = ready & hungUp;
    {
        const MutexLock guard(mutex_);
        if ((ready & sendable) != 0)
        {
            pending_ = (std::exchange(wantsWrite_, false) && state_ == State::established) || pending_;
            flush();
        }
        bool input = state_ == State::established && (ready & receivable) != 0;
        if (state_ == State::handshake)
        {
            handshake();
        }
        const bool established = state_ == State::established;
        input = input || held();
        now |= watchesReceive_ && input ? receivable : 0u;
        now |= watchesSend_ && established && carrier_.empty() && (ready & sendable) != 0 ? sendable : 0u;
        now |= state_ == State::failed ? hungUp : 0u;
        handler = handler_.handler();
        update();
    }
    // The last access: the handler may end this object.
    if (now != 0 && handler != nullptr)
    {
        (*handler)(now);
    }
}

void TlsStream::handshake()
{
    ERR_clear_error();
    const int result = SSL_do_handshake(ssl_.get());
    const int error = SSL_get_error(ssl_.get(), result);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE)
    {
        wantsWrite_ = error == SSL_ERROR_WANT_WRITE;
        flush();
        return;
    }
    if (result != 1)
    {
        std::string reason = whyHandshakeFailed(ssl_.get());
        const std::string_view plain =
            client_ ? std::string_view() : PlainClient::protocolOf(carrier_.firstReceived());
        if (plain.empty())
        {
            flush();  // the alert
        }
        else
        {
            reason = "the client speaks " + std::string(plain) + " without TLS";
            PlainClient::answer(tcp_, plain);
        }
        Log::limited(Log::Level::info, "TLS handshakes failed", "{}: TLS handshake failed: {}",
                     tcp_.peer().text(), Log::safe(reason));
        dropReceived(tcp_);
        fail(reason);
        return;
    }
    state_ = State::established;
    handshake_.reset();
    pending_ = SSL_has_pending(ssl_.get()) == 1;
    Log::debug("{}: {} with {}{}{}", tcp_.peer().text(), SSL_get_version(ssl_.get()),
               SSL_get_cipher_name(ssl_.get()), SSL_session_reused(ssl_.get()) == 1 ? ", resumed" : "",
               carrier_.kernelSends() ? ", by the kernel" : "");
    flush();
}

void TlsStream::fail(const std::string& reason)
{
    if (state_ < State::failed)
    {
        Log::debug("{}: TLS connection failed: {}", tcp_.peer().text(), Log::safe(reason));
        state_ = State::failed;
        failure_ = reason;
        handshake_.reset();
    }
}

void TlsStream::flush(bool more)
{
    if (!carrier_.flush(more))
    {
        fail("not writable");
    }
    else if (ending_ && carrier_.empty())
    {
        tcp_.endSending();
    }
}

/// Whether a receive() has a result without anything new from TCP.
bool TlsStream::held() const
{
    return state_ == State::failed || (state_ == State::established && (pending_ || ended_));
}

/// What TCP is watched for follows from the state of both directions.
void TlsStream::update()
{
    if (state_ == State::closed)
    {
        return;
    }
    const bool established = state_ == State::established;
    const bool reads = state_ == State::handshake || (established && watchesReceive_ && !held());
    const bool writes =
        state_ != State::failed && (wantsWrite_ || !carrier_.empty() || (established && watchesSend_));
    const std::uint32_t watched = (reads && !carrier_.full() ? receivable : 0u) | (writes ? sendable : 0u);
    tcpWatch_.set(tcp_, watched);
    reportHeld();
}

/// Reports on the loop what no event of TCP will.
void TlsStream::reportHeld()
{
    if (watchesReceive_ && held())
    {
        handler_.post([this](const Handler& handler) { onHeld(handler); });
    }
}

void TlsStream::onHeld(const Handler& handler)
{
    std::uint32_t now = 0;
    {
        const MutexLock guard(mutex_);
        handler_.takePosted();
        now = watchesReceive_ && held() ? receivable : 0u;
        update();
    }
    if (now != 0)
    {
        handler(now);
    }
}

ByteStream::Result TlsStream::receive(char* bytes, std::size_t size)
{
    const MutexLock guard(mutex_);
    if (state_ != State::established)
    {
        return {state_ == State::handshake ? Status::blocked : Status::failed};
    }
    if (ended_)
    {
        return {Status::ended};
    }
    std::size_t count = 0;
    ERR_clear_error();
    const int result = SSL_read_ex(ssl_.get(), bytes, size, &count);
    pending_ = result == 1 && SSL_has_pending(ssl_.get()) == 1;
    const Result received = result == 1 ? Result{Status::done, count} : notReceived(result);
    flush();  // what OpenSSL answered
    update();
    return received;
}

ByteStream::Result TlsStream::notReceived(int result)
{
    switch (SSL_get_error(ssl_.get(), result))
    {
        case SSL_ERROR_WANT_WRITE:
            wantsWrite_ = true;
            return {Status::blocked};
        case SSL_ERROR_WANT_READ:
            return {Status::blocked};
        case SSL_ERROR_ZERO_RETURN:
            ended_ = true;
            return {Status::ended};
        default:
            fail(takeTlsError());
            return {Status::failed};
    }
}

ByteStream::Result TlsStream::send(const std::string_view* parts, std::size_t count, bool more)
{
    const MutexLock guard(mutex_);
    if (state_ > State::established)
    {
        return {Status::failed};
    }
    if (state_ == State::handshake || !carrier_.empty())
    {
        return {Status::blocked};
    }
    if (carrier_.kernelSends())
    {
        return tcp_.send(parts, count, more);
    }
    const std::size_t accepted = sendRecords(parts, std::min(count, maxParts));
    flush(more);
    update();
    return state_ == State::established ? Result{Status::done, accepted} : Result{Status::failed};
}

/// Cuts `parts` into records as large as possible; copies only where a record has several parts.
std::size_t TlsStream::sendRecords(const std::string_view* parts, std::size_t count)
{
    std::size_t left = 0;
    std::for_each(parts, parts + count, [&](std::string_view part) { left += part.size(); });
    left = std::min(left, maxAccepted);
    carrier_.reserve(left + recordOverhead * (left / maxRecord + 1));
    char gathered[maxRecord];
    std::size_t filled = 0;
    std::size_t accepted = 0;
    std::string_view part;
    while (left != 0)
    {
        for (; part.empty(); ++parts)
        {
            part = *parts;
        }
        const std::size_t size = std::min({part.size(), maxRecord - filled, left});
        const bool whole = filled == 0 && (size == maxRecord || size == left);
        if (!whole)
        {
            std::memcpy(gathered + filled, part.data(), size);
            filled += size;
        }
        left -= size;
        if (whole || filled == maxRecord || left == 0)
        {
            if (!sendRecord(whole ? part.data() : gathered, whole ? size : filled))
            {
                return accepted;
            }
            filled = 0;
        }
        accepted += size;
        part.remove_prefix(size);
    }
    return accepted;
}

bool TlsStream::sendRecord(const char* bytes, std::size_t size)
{
    // Long before a key is worn out (RFC 8446 section 5.5): viewers stay for weeks.
    if (++records_ >= recordsPerKey_ && SSL_version(ssl_.get()) == TLS1_3_VERSION)
    {
        records_ = 0;
        SSL_key_update(ssl_.get(), SSL_KEY_UPDATE_NOT_REQUESTED);
    }
    std::size_t written = 0;
    ERR_clear_error();
    if (SSL_write_ex(ssl_.get(), bytes, size, &written) != 1 || written != size)
    {
        fail(takeTlsError());
        return false;
    }
    return true;
}

void TlsStream::endSending()
{
    const MutexLock guard(mutex_);
    if (std::exchange(ending_, true) || state_ == State::closed)
    {
        return;
    }
    if (state_ == State::established)
    {
        ERR_clear_error();
        SSL_shutdown(ssl_.get());
    }
    flush();
    update();
}

void TlsStream::close()
{
    detach();
    std::shared_ptr<void> handshake;
    {
        const MutexLock guard(mutex_);
        if (state_ == State::closed)
        {
            return;
        }
        if (state_ == State::established && !ending_)
        {
            ERR_clear_error();
            SSL_shutdown(ssl_.get());
            carrier_.flush();
        }
        state_ = State::closed;
        handshake.swap(handshake_);
        ssl_.reset();
    }
    tcp_.close();
}

const SocketAddress& TlsStream::peer() const
{
    return tcp_.peer();
}

const SocketAddress& TlsStream::local() const
{
    return tcp_.local();
}

void TlsStream::setSendBuffer(std::size_t bytes)
{
    tcp_.setSendBuffer(bytes);
}

std::optional<std::chrono::milliseconds> TlsStream::silence() const
{
    return tcp_.silence();
}

bool TlsStream::encrypted() const
{
    return true;
}

std::string TlsStream::failure()
{
    const MutexLock guard(mutex_);
    return failure_;
}

std::string TlsStream::peerFingerprint()
{
    const MutexLock guard(mutex_);
    return ssl_ == nullptr ? "" : CertificateFingerprint::of(SSL_get0_peer_certificate(ssl_.get()));
}

std::string TlsStream::unverified()
{
    const MutexLock guard(mutex_);
    const long result = ssl_ == nullptr ? X509_V_ERR_UNSPECIFIED : SSL_get_verify_result(ssl_.get());
    return result == X509_V_OK ? "" : X509_verify_cert_error_string(result);
}

std::string TlsStream::certificateName() const
{
    const MutexLock guard(mutex_);
    const X509* const certificate =
        state_ == State::established ? SSL_get0_peer_certificate(ssl_.get()) : nullptr;
    const bool verified = certificate != nullptr && SSL_get_verify_result(ssl_.get()) == X509_V_OK;
    return verified ? ClientCertificate::nameOf(*certificate) : std::string();
}

}  // namespace refhost

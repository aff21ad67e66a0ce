#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/base/Descriptor.h"
#include "refhost/base/Mutex.h"
#include "refhost/net/CarrierWatch.h"
#include "refhost/net/StreamHandler.h"
#include "refhost/net/TcpStream.h"
#include "refhost/net/tls/TlsCarrier.h"
#include "refhost/net/tls/TlsContext.h"

struct ssl_st;

namespace refhost
{

/// A TLS connection over TCP, as server or client (RFC 5246, RFC 8446).
///
/// The handshake starts with attach() and runs on the loop without anybody watching; until it is done the
/// stream is blocked in both directions. A failed handshake is reported as `hungUp`, and logged. A peer that
/// ends TCP without close_notify makes receive() `failed` and not `ended`: what it sent may be truncated.
///
/// send() accepts up to `maxAccepted` bytes at a time, encrypts them as records as large as possible, and
/// passes them to the system in one call; what the system does not take is kept and sent later. close() sends
/// close_notify where it can at once.
///
/// Memory: while nothing is under way, none of OpenSSL's record buffers; at most about 64 KiB of unsent records
/// for a peer that does not read.
///
/// Threads: as ByteStream, with one lock of its own, never held while the handler is called.
class TlsStream final : public ByteStream
{
public:
    static constexpr std::size_t maxAccepted = std::size_t{64} * 1024;

    /// \param socket     connected, non-blocking
    /// \param context    decides whether this is the server or the client
    /// \param handshake  released when the handshake is over: counts handshakes under way; may be null
    /// \param host       client: the name or address that the server's certificate must hold, where it is
    ///                   verified
    /// \throws std::bad_alloc
    TlsStream(Descriptor socket, const SocketAddress& peer, const TlsContext& context,
              std::shared_ptr<void> handshake = nullptr, const std::string& host = {});
    ~TlsStream() override;

    void attach(EventLoop& loop, Handler handler) override;
    void detach() override;
    void watchReceive(bool on) override;
    void watchSend(bool on) override;
    Result receive(char* bytes, std::size_t size) override;
    Result send(const std::string_view* parts, std::size_t count, bool more) override;
    void endSending() override;
    void close() override;
    const SocketAddress& peer() const override;
    const SocketAddress& local() const override;
    void setSendBuffer(std::size_t bytes) override;
    std::optional<std::chrono::milliseconds> silence() const override;
    bool encrypted() const override;
    std::string certificateName() const override;

    /// Why the connection failed: one line; empty while it did not.
    std::string failure();
    /// The SHA-256 of the peer's certificate, in hexadecimal with colons; empty without one, and before the handshake
    /// is over.
    std::string peerFingerprint();
    /// Why the peer's certificate is not trusted by the context's CAs and for the host; empty when it is. It is judged
    /// whether the context demands that or not. Requires: the handshake is over.
    std::string unverified();

private:
    /// What is done with the connection. Each state may go to every later one.
    enum class State
    {
        handshake,
        established,
        failed,
        closed
    };
    struct FreeSsl
    {
        void operator()(ssl_st* ssl) const;
    };

    void onTcp(std::uint32_t ready);
    void onHeld(const Handler& handler);
    void handshake() OV_REQUIRES(mutex_);
    void fail(const std::string& reason) OV_REQUIRES(mutex_);
    void flush(bool more = false) OV_REQUIRES(mutex_);
    void update() OV_REQUIRES(mutex_);
    void reportHeld() OV_REQUIRES(mutex_);
    bool held() const OV_REQUIRES(mutex_);
    Result notReceived(int result) OV_REQUIRES(mutex_);
    bool sendRecord(const char* bytes, std::size_t size) OV_REQUIRES(mutex_);
    std::size_t sendRecords(const std::string_view* parts, std::size_t count) OV_REQUIRES(mutex_);

    TcpStream tcp_;
    const bool client_;
    const std::uint64_t recordsPerKey_;
    mutable Mutex mutex_;
    TlsCarrier carrier_ OV_GUARDED_BY(mutex_){tcp_};
    std::unique_ptr<ssl_st, FreeSsl> ssl_ OV_GUARDED_BY(mutex_);  // before carrier_ goes
    std::shared_ptr<void> handshake_ OV_GUARDED_BY(mutex_);
    StreamHandler handler_ OV_GUARDED_BY(mutex_);
    State state_ OV_GUARDED_BY(mutex_) = State::handshake;
    std::string failure_ OV_GUARDED_BY(mutex_);
    std::uint64_t records_ OV_GUARDED_BY(mutex_) = 0;  // sent with the present key
    CarrierWatch tcpWatch_ OV_GUARDED_BY(mutex_);
    bool watchesReceive_ OV_GUARDED_BY(mutex_) = true;
    bool watchesSend_ OV_GUARDED_BY(mutex_) = false;
    bool wantsWrite_ OV_GUARDED_BY(mutex_) = false;  // OpenSSL goes on when TCP is writable
    bool pending_ OV_GUARDED_BY(mutex_) = false;     // OpenSSL holds received bytes
    bool ended_ OV_GUARDED_BY(mutex_) = false;       // close_notify came
    bool ending_ OV_GUARDED_BY(mutex_) = false;      // endSending() was called
};

}  // namespace refhost

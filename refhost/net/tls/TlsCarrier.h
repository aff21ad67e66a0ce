#pragma once
// Tested by tests/refhost/net/tls/TlsStream_test.cpp.

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "refhost/net/TcpStream.h"

struct bio_st;

namespace refhost
{

/// The TCP side of one TLS connection. OpenSSL reads directly from the TCP stream; what it writes is gathered
/// until flush(), so that all records of an access unit leave in one system call and OpenSSL never blocks.
/// Once the kernel encrypts (kernel TLS), OpenSSL writes directly.
///
/// Threads: one at a time.
class TlsCarrier
{
public:
    /// With more unsent bytes than this nothing more is received: a peer may make OpenSSL answer (KeyUpdate)
    /// and read none of the answers.
    static constexpr std::size_t maxUnsent = std::size_t{96} * 1024;

    /// \param tcp  outlives this object and the connection that uses bio()
    explicit TlsCarrier(TcpStream& tcp);
    TlsCarrier(const TlsCarrier&) = delete;
    TlsCarrier& operator=(const TlsCarrier&) = delete;

    /// \param kernelSocket  the stream's descriptor, to offer kernel TLS to OpenSSL; negative: not offered
    /// \returns a BIO that the caller owns; null when there is no memory
    bio_st* makeBio(int kernelSocket);

    /// Makes room for so many bytes more.
    void reserve(std::size_t bytes);
    /// Sends what is gathered, as far as the TCP stream accepts it.
    /// \param more  more bytes follow at once
    /// \returns false when the connection failed
    bool flush(bool more = false);

    /// The first bytes received, 8 at most: they say whether the peer speaks TLS at all.
    std::string_view firstReceived() const;

    /// Whether everything written was sent.
    bool empty() const;
    /// Whether more than `maxUnsent` bytes wait.
    bool full() const;
    /// Whether the kernel encrypts: bytes for the TCP stream are application data then.
    bool kernelSends() const;

private:
    struct Bio;

    void noteFirst(std::string_view received);

    TcpStream& tcp_;
    bio_st* kernel_ = nullptr;  // below the BIO, which owns it
    std::string unsent_;
    std::size_t sent_ = 0;  // of unsent_
    std::array<char, 8> first_{};
    std::size_t firstSize_ = 0;
    bool ended_ = false;  // the peer ended TCP
};

}  // namespace refhost

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Mutex.h"

struct ssl_ctx_st;

namespace refhost
{

/// What all TLS connections of one server, or of one kind of client, share: certificate, versions, ciphers.
/// TLS 1.2 and 1.3; sessions are resumed by tickets, never renegotiated.
///
/// A server's files are read again by refresh() when they changed. Connections keep what they started with.
///
/// Threads: any; refresh() one at a time.
class TlsContext
{
public:
    struct Server
    {
        std::string certificate;         ///< PEM file: the server's certificate, then its intermediates
        std::string key;                 ///< PEM file, unencrypted; empty: `certificate` holds it too
        std::string minVersion = "1.2";  ///< "1.2" or "1.3"
        /// OpenSSL cipher list for TLS 1.2, names of TLS 1.3 suites ("TLS_…") among them; empty: with forward
        /// secrecy and authenticated encryption
        std::string ciphers;
        std::string clientCa;   ///< PEM file; not empty: clients must have a certificate of these CAs
        bool kernelTls = true;  ///< where kernel, OpenSSL and cipher have it
        std::uint64_t recordsPerKey = std::uint64_t{1} << 23;  ///< TLS 1.3: then a KeyUpdate is sent
    };

    struct Client
    {
        bool verify = true;  ///< that the certificate is of a known CA and holds the host's name
        std::string ca;      ///< PEM file; empty: the system's CAs
    };

    /// \param[out] error  one line that names the file and the reason, when null is returned
    static std::unique_ptr<TlsContext> forServer(const Server& options, std::string& error);
    /// \param[out] error  as above
    static std::unique_ptr<TlsContext> forClient(const Client& options, std::string& error);

    /// Reads the files again when they have changed since the last call but one, so that files that are being
    /// written are left alone. Files that cannot be used are logged once and change nothing.
    /// Blocks for the time of reading them: not for an event loop.
    void refresh();

    /// For the next connection.
    std::shared_ptr<ssl_ctx_st> current() const;
    bool isClient() const;
    /// Whether kernel TLS is offered to connections: configured, and there.
    bool usesKernel() const;
    std::uint64_t recordsPerKey() const;

    /// SHA-256 of the certificate in hexadecimal with colons, as players show it. Empty for a client.
    std::string fingerprint() const;

    /// Whether kernel TLS can be used here, as a sentence for the log.
    static std::string kernelSupport();

private:
    /// Identifies a version of a file.
    using FileStamp = std::array<std::int64_t, 4>;

    TlsContext(Server options, std::shared_ptr<ssl_ctx_st> context, bool client);
    std::vector<FileStamp> stamps() const;

    const Server options_;
    const bool client_;
    std::vector<FileStamp> loaded_;  // refresh()'s alone, or of the last attempt
    std::vector<FileStamp> seen_;    // refresh()'s alone, at its last call
    mutable Mutex mutex_;
    std::shared_ptr<ssl_ctx_st> context_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

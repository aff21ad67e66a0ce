#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

#include "refhost/base/MonotonicClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Issues the nonces of Digest authentication and limits where, how long and how often each can be used.
///
/// A nonce proves by itself when, to which address and on which connection it was issued (it carries its time
/// and keyed hashes), so that challenges cost no memory. It is good from that address alone. Answers that
/// count their uses are taken once each. Answers that do not count cannot be told from replayed ones: they
/// are taken on the connection of their nonce, which nobody else can write to, and for `uncountedLifetime`
/// elsewhere. Only nonces that were used with a count and the right password are remembered, and of these the
/// newest `maxRemembered`; older ones count as expired. Threads: any; one lock of its own.
class NonceStore
{
public:
    /// Whom a nonce is issued to, and who uses it.
    struct Client
    {
        SocketAddress::Key address{};
        std::uint64_t connection = 0;  ///< serial of the RTSP connection
    };

    static constexpr std::chrono::minutes lifetime{10};
    /// How long a client that does not count may use a nonce on other connections.
    static constexpr std::chrono::minutes uncountedLifetime{1};
    static constexpr std::size_t maxRemembered = 4096;

    explicit NonceStore(MonotonicClock clock);

    /// A new nonce: hexadecimal text that nobody can guess.
    std::string issue(const Client& client) const;

    /// Takes one use of a nonce whose answer was right.
    /// \param nonceCount  the client's count of its uses, from 1 on; 0 when the client does not count
    /// \returns false when the nonce is not ours, expired or another client's, or this count was used before
    ///          or is far behind
    bool use(std::string_view nonce, std::uint64_t nonceCount, const Client& client);

    std::size_t remembered() const;

private:
    struct Uses
    {
        std::uint64_t highest = 0;
        std::uint64_t seen = 0;  // bit n: highest - n was used
    };

    std::string addressSignature(std::string_view text, const Client& client) const;
    std::string connectionSignature(std::string_view text, const Client& client) const;
    std::string sign(std::string_view text, const void* binding, std::size_t size) const;
    bool isIssuedTo(std::string_view nonce, const Client& client) const;
    bool isOfConnection(std::string_view nonce, const Client& client) const;
    bool useCounted(const std::string& nonce, std::uint64_t nonceCount, MonotonicTime issued);
    void remember(const std::string& nonce) OV_REQUIRES(mutex_);

    const MonotonicClock clock_;
    const std::string key_;
    mutable Mutex mutex_;
    std::unordered_map<std::string, Uses> uses_ OV_GUARDED_BY(mutex_);
    std::deque<std::string> order_ OV_GUARDED_BY(mutex_);  // of the first use
    MonotonicTime forgotten_ OV_GUARDED_BY(mutex_) =
        MonotonicTime::min();  // nonces issued up to then are expired
};

}  // namespace refhost

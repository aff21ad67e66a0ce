#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Issues the nonces of Digest authentication and limits where, how long and how often each is accepted.
///
/// A nonce contains its time and keyed hashes of the address and the connection it was issued to, so that
/// challenges need no memory. It is valid from that address only. With a nonce count (nc), each count is
/// accepted once. Without one, responses cannot be distinguished from replays: they are accepted on the
/// connection of their nonce, which nobody else can write to, and for `uncountedLifetime` on others. Only
/// nonces used with a count and the right password are remembered, the newest `maxRemembered` of them; older
/// ones are expired. Threads: any; one lock of its own.
class NonceStore
{
public:
    /// The client that a nonce is issued to, or that uses it.
    struct Client
    {
        SocketAddress::Key address{};
        std::uint64_t connection = 0;  ///< serial of the RTSP connection
    };

    static constexpr std::chrono::minutes lifetime{10};
    /// How long a nonce is valid on other connections without a nonce count.
    static constexpr std::chrono::minutes uncountedLifetime{1};
    static constexpr std::size_t maxRemembered = 4096;

    /// \param clock  outlives the store
    explicit NonceStore(const HostClock& clock);

    /// A new nonce: unpredictable hexadecimal text.
    std::string issue(const Client& client) const;

    /// Uses a nonce. Requires: the password of the response was right.
    /// \param nonceCount  the client's nonce count, from 1 on; 0 without one
    /// \returns false when the nonce is not ours, expired or another client's, or the count was used before
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

    const HostClock& clock_;
    const std::string key_;
    mutable Mutex mutex_;
    std::unordered_map<std::string, Uses> uses_ OV_GUARDED_BY(mutex_);
    std::deque<std::string> order_ OV_GUARDED_BY(mutex_);  // of the first use
    MonotonicTime forgotten_ OV_GUARDED_BY(mutex_) =
        MonotonicTime::min();  // nonces issued until then are expired
};

}  // namespace refhost

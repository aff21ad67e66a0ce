#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "refhost/rtsp/MonotonicClock.h"

namespace refhost
{

/// Issues the nonces of Digest authentication and sees to it that no answer is used twice.
///
/// A nonce proves by itself when it was issued and that it was issued here (it carries its time and a keyed
/// hash of it), so that asking for challenges costs no memory. Only nonces that were used with the right
/// password are remembered, and of these the newest `rememberedMost`; older ones count as expired.
/// Threads: any; one lock of its own.
class NonceBook
{
public:
    static constexpr std::int64_t lifetimeMs = 10 * 60 * 1000;
    static constexpr std::size_t rememberedMost = 4096;

    explicit NonceBook(MonotonicClock clock);

    /// A new nonce: hexadecimal text that nobody can guess.
    std::string issue() const;

    /// Takes one use of a nonce whose answer was right.
    /// \param nonceCount  the client's count of its uses, from 1 on; 0 when the client does not count
    /// \returns false when the nonce is not ours or expired, or this count was used before or is far behind
    bool use(std::string_view nonce, std::uint64_t nonceCount);

    std::size_t remembered() const;

private:
    struct Uses
    {
        std::uint64_t highest = 0;
        std::uint64_t seen = 0;  // bit n: highest - n was used
    };

    std::string sign(std::string_view text) const;
    bool isFresh(std::string_view nonce, std::int64_t& issuedMs) const;
    void remember(const std::string& nonce);

    const MonotonicClock clock_;
    const std::string key_;
    mutable std::mutex mutex_;
    std::unordered_map<std::string, Uses> uses_;
    std::deque<std::string> order_;  // of the first use
    std::int64_t forgottenMs_ = -1;  // nonces issued up to then are expired
};

}  // namespace refhost

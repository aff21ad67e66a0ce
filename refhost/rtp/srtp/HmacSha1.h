#pragma once
// Tested by tests/refhost/rtp/srtp/HmacSha1_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace refhost
{

/// HMAC-SHA1 (RFC 2104) with one key for many messages: the key is hashed once, and a message takes no memory.
///
/// Threads: any; constant.
class HmacSha1
{
public:
    static constexpr std::size_t size = 20;
    /// The longest key: that of SRTP has 20 bytes.
    static constexpr std::size_t maxKey = 64;

    using Digest = std::array<std::uint8_t, size>;

    /// Requires: a key of at most maxKey bytes.
    HmacSha1(const std::uint8_t* key, std::size_t keySize);
    ~HmacSha1();
    HmacSha1(const HmacSha1&) = delete;
    HmacSha1& operator=(const HmacSha1&) = delete;

    /// The digest of a message in two parts, of which the second may be empty.
    Digest of(const std::uint8_t* data, std::size_t dataSize, const std::uint8_t* more,
              std::size_t moreSize) const;

private:
    struct States;
    std::unique_ptr<States> states_;
};

}  // namespace refhost

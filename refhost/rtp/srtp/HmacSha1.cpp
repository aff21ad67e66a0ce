#include "refhost/rtp/srtp/HmacSha1.h"

// Its interface for messages copies contexts in new memory twice a message; these functions are the same code.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <algorithm>

namespace refhost
{

/// The hash's states behind the key's two blocks.
struct HmacSha1::States
{
    SHA_CTX inner{};
    SHA_CTX outer{};

    ~States()
    {
        OPENSSL_cleanse(&inner, sizeof inner);
        OPENSSL_cleanse(&outer, sizeof outer);
    }
};

HmacSha1::HmacSha1(const std::uint8_t* key, std::size_t keySize) : states_(std::make_unique<States>())
{
    constexpr std::uint8_t innerPad = 0x36;
    constexpr std::uint8_t outerPad = 0x5c;
    std::array<std::uint8_t, maxKey> block{};
    std::copy(key, key + std::min(keySize, maxKey), block.begin());
    const auto start = [&block](SHA_CTX& state, std::uint8_t change)
    {
        for (std::uint8_t& byte : block)
        {
            byte ^= change;
        }
        SHA1_Init(&state);
        SHA1_Update(&state, block.data(), block.size());
    };
    start(states_->inner, innerPad);
    start(states_->outer, innerPad ^ outerPad);
    OPENSSL_cleanse(block.data(), block.size());
}

HmacSha1::~HmacSha1() = default;

HmacSha1::Digest HmacSha1::of(const std::uint8_t* data, std::size_t dataSize, const std::uint8_t* more,
                              std::size_t moreSize) const
{
    Digest digest{};
    SHA_CTX state = states_->inner;
    SHA1_Update(&state, data, dataSize);
    if (moreSize != 0)
    {
        SHA1_Update(&state, more, moreSize);
    }
    SHA1_Final(digest.data(), &state);
    state = states_->outer;
    SHA1_Update(&state, digest.data(), digest.size());
    SHA1_Final(digest.data(), &state);
    return digest;
}

}  // namespace refhost

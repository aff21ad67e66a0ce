#include "refhost/rtp/srtp/SrtpKey.h"

#include <openssl/crypto.h>

#include <algorithm>

#include "refhost/base/RandomBytes.h"

namespace refhost
{

SrtpKey SrtpKey::random(SrtpSuite suite)
{
    SrtpKey key(suite);
    fillRandom(key.bytes_.data(), key.size());
    return key;
}

std::optional<SrtpKey> SrtpKey::of(SrtpSuite suite, const std::uint8_t* bytes, std::size_t size)
{
    SrtpKey key(suite);
    if (size != key.size())
    {
        return std::nullopt;
    }
    std::copy(bytes, bytes + size, key.bytes_.begin());
    return key;
}

SrtpKey::~SrtpKey()
{
    OPENSSL_cleanse(bytes_.data(), bytes_.size());
}

std::size_t SrtpKey::size() const
{
    const SrtpSuiteInfo& info = infoOf(suite_);
    return info.keySize + info.saltSize;
}

bool SrtpKey::operator==(const SrtpKey& other) const
{
    return suite_ == other.suite_ && CRYPTO_memcmp(bytes_.data(), other.bytes_.data(), bytes_.size()) == 0;
}

}  // namespace refhost

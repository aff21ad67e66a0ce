#include "refhost/rtp/srtp/SrtpSealer.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr std::size_t rtpHeaderSize = 12;
constexpr std::size_t rtcpHeaderSize = 8;
constexpr std::size_t indexSize = 4;
constexpr std::size_t gcmTag = 16;
constexpr std::uint8_t rtcpLabels = 3;  // the first of those for RTCP
constexpr std::uint32_t encryptedFlag = 0x80000000U;
constexpr std::uint32_t lastRtcpIndex = 0x7fffffffU;

int lengthOf(std::size_t size)
{
    return static_cast<int>(size);
}

/// Encrypts in counter mode from `start` on.
bool encryptCounter(EVP_CIPHER_CTX* cipher, const std::uint8_t* start, std::uint8_t* data, std::size_t size)
{
    int written = 0;
    return EVP_EncryptInit_ex(cipher, nullptr, nullptr, nullptr, start) == 1 &&
           EVP_EncryptUpdate(cipher, data, &written, data, lengthOf(size)) == 1;
}

/// The key stream of AES in counter mode is the function that derives keys.
void derive(const SrtpKey& key, std::uint8_t label, std::uint8_t* out, std::size_t size)
{
    const SrtpSuiteInfo& info = infoOf(key.suite());
    std::array<std::uint8_t, 16> start{};
    std::copy(key.data() + info.keySize, key.data() + info.keySize + info.saltSize, start.begin());
    start[7] ^= label;
    std::fill(out, out + size, std::uint8_t{0});
    EVP_CIPHER_CTX* const cipher = EVP_CIPHER_CTX_new();
    const bool done = cipher != nullptr &&
                      EVP_EncryptInit_ex(cipher, EVP_aes_128_ctr(), nullptr, key.data(), nullptr) == 1 &&
                      encryptCounter(cipher, start.data(), out, size);
    EVP_CIPHER_CTX_free(cipher);
    if (!done)
    {
        throw std::runtime_error("OpenSSL derives no SRTP keys");
    }
}

/// Bytes before the payload: the header, its CSRC list and extension. 0 where they do not fit.
std::size_t headerSizeOf(const std::uint8_t* packet, std::size_t size)
{
    if (size < rtpHeaderSize)
    {
        return 0;
    }
    std::size_t header = rtpHeaderSize + std::size_t{4} * (packet[0] & 0x0fU);
    if ((packet[0] & 0x10U) != 0)
    {
        if (size < header + 4)
        {
            return 0;
        }
        header += 4 + std::size_t{4} * readBig16(packet + header + 2);
    }
    return header <= size ? header : 0;
}

/// Writes the authentication tag of `data` and of the bytes behind it.
void authenticate(const HmacSha1& mac, const std::uint8_t* data, std::size_t size, const std::uint8_t* more,
                  std::size_t moreSize, std::uint8_t* tag, std::size_t tagSize)
{
    const HmacSha1::Digest digest = mac.of(data, size, more, moreSize);
    std::copy(digest.begin(), digest.begin() + static_cast<std::ptrdiff_t>(tagSize), tag);
}

/// Encrypts `data` in place and writes the tag behind it.
bool encryptGcm(EVP_CIPHER_CTX* cipher, const std::uint8_t* nonce, const std::uint8_t* header,
                std::size_t headerSize, const std::uint8_t* more, std::size_t moreSize, std::uint8_t* data,
                std::size_t size)
{
    int written = 0;
    return EVP_EncryptInit_ex(cipher, nullptr, nullptr, nullptr, nonce) == 1 &&
           EVP_EncryptUpdate(cipher, nullptr, &written, header, lengthOf(headerSize)) == 1 &&
           (moreSize == 0 || EVP_EncryptUpdate(cipher, nullptr, &written, more, lengthOf(moreSize)) == 1) &&
           EVP_EncryptUpdate(cipher, data, &written, data, lengthOf(size)) == 1 &&
           EVP_EncryptFinal_ex(cipher, data + size, &written) == 1 &&
           EVP_CIPHER_CTX_ctrl(cipher, EVP_CTRL_AEAD_GET_TAG, lengthOf(gcmTag), data + size) == 1;
}

/// The nonce of AES-GCM: the source and eight bytes of its counters, over the salt (RFC 7714, sections 8.1 and
/// 9.1).
std::array<std::uint8_t, 12> nonceOf(const std::uint8_t* salt, std::uint32_t ssrc, std::uint64_t counter)
{
    std::array<std::uint8_t, 12> nonce{};
    writeBig32(nonce.data() + 2, ssrc);
    writeBig16(nonce.data() + 6, static_cast<std::uint16_t>(counter >> 32U));
    writeBig32(nonce.data() + 8, static_cast<std::uint32_t>(counter));
    for (std::size_t i = 0; i < nonce.size(); ++i)
    {
        nonce[i] ^= salt[i];
    }
    return nonce;
}

}  // namespace

SrtpSealer::SessionKeys::SessionKeys(const SrtpKey& key, std::uint8_t firstLabel)
{
    derive(key, firstLabel, cipher.data(), cipher.size());
    derive(key, static_cast<std::uint8_t>(firstLabel + 1), authenticator.data(), authenticator.size());
    derive(key, static_cast<std::uint8_t>(firstLabel + 2), salt.data(), infoOf(key.suite()).saltSize);
}

SrtpSealer::SessionKeys::~SessionKeys()
{
    OPENSSL_cleanse(cipher.data(), cipher.size());
    OPENSSL_cleanse(authenticator.data(), authenticator.size());
    OPENSSL_cleanse(salt.data(), salt.size());
}

void SrtpSealer::FreeCipher::operator()(evp_cipher_ctx_st* context) const
{
    EVP_CIPHER_CTX_free(context);
}

SrtpSealer::SrtpSealer(const SrtpKey& key)
    : info_(infoOf(key.suite())),
      rtp_(key, 0),
      rtcp_(key, rtcpLabels),
      cipher_(makeCipher(rtp_)),
      mac_(info_.suite == SrtpSuite::aeadAes128Gcm ? nullptr : makeMac(rtp_))
{
}

SrtpSealer::~SrtpSealer() = default;

SrtpSealer::Cipher SrtpSealer::makeCipher(const SessionKeys& keys) const
{
    Cipher cipher(EVP_CIPHER_CTX_new());
    const bool gcm = info_.suite == SrtpSuite::aeadAes128Gcm;
    if (cipher == nullptr || EVP_EncryptInit_ex(cipher.get(), gcm ? EVP_aes_128_gcm() : EVP_aes_128_ctr(),
                                                nullptr, keys.cipher.data(), nullptr) != 1)
    {
        throw std::runtime_error("OpenSSL makes no cipher for SRTP");
    }
    return cipher;
}

std::unique_ptr<HmacSha1> SrtpSealer::makeMac(const SessionKeys& keys)
{
    return std::make_unique<HmacSha1>(keys.authenticator.data(), keys.authenticator.size());
}

/// \param index  48 bits
SrtpSealer::Block SrtpSealer::counterStart(const SessionKeys& keys, std::uint32_t ssrc, std::uint64_t index)
{
    Block start{};
    writeBig32(start.data() + 4, ssrc);
    writeBig16(start.data() + 8, static_cast<std::uint16_t>(index >> 32U));
    writeBig32(start.data() + 10, static_cast<std::uint32_t>(index));
    for (std::size_t i = 0; i < keys.salt.size(); ++i)
    {
        start[i] ^= keys.salt[i];
    }
    return start;
}

/// Takes the next sequence number. \returns false when the number was, or may have been, used before
bool SrtpSealer::advance(std::uint32_t ssrc, std::uint16_t sequence)
{
    if (ssrc_ != ssrc)
    {
        ssrc_ = ssrc;
        sequence_ = sequence;
        rolloverCounter_ = 0;
        return true;
    }
    const auto ahead = static_cast<std::uint16_t>(sequence - sequence_);
    if (ahead == 0 || ahead >= 0x8000U)
    {
        return false;
    }
    if (sequence < sequence_)
    {
        if (rolloverCounter_ == std::numeric_limits<std::uint32_t>::max())
        {
            return false;
        }
        ++rolloverCounter_;
    }
    sequence_ = sequence;
    return true;
}

bool SrtpSealer::seal(std::uint8_t* packet, std::size_t& size)
{
    const std::size_t header = headerSizeOf(packet, size);
    if (header == 0 || !advance(readBig32(packet + 8), readBig16(packet + 2)))
    {
        return false;
    }
    return mac_ == nullptr ? sealGcm(packet, size, header) : sealCounter(packet, size, header);
}

bool SrtpSealer::sealCounter(std::uint8_t* packet, std::size_t& size, std::size_t header)
{
    const std::uint64_t index = std::uint64_t{rolloverCounter_} << 16U | sequence_;
    const Block start = counterStart(rtp_, *ssrc_, index);
    std::array<std::uint8_t, 4> counter{};
    writeBig32(counter.data(), rolloverCounter_);
    if (!encryptCounter(cipher_.get(), start.data(), packet + header, size - header))
    {
        return false;
    }
    authenticate(*mac_, packet, size, counter.data(), counter.size(), packet + size, info_.rtpTag);
    size += info_.rtpTag;
    return true;
}

bool SrtpSealer::sealGcm(std::uint8_t* packet, std::size_t& size, std::size_t header)
{
    const auto nonce = nonceOf(rtp_.salt.data(), *ssrc_, std::uint64_t{rolloverCounter_} << 16U | sequence_);
    if (!encryptGcm(cipher_.get(), nonce.data(), packet, header, nullptr, 0, packet + header, size - header))
    {
        return false;
    }
    size += gcmTag;
    return true;
}

bool SrtpSealer::sealRtcp(std::uint8_t* packet, std::size_t& size)
{
    if (size < rtcpHeaderSize || rtcpIndex_ >= lastRtcpIndex)
    {
        return false;
    }
    ++rtcpIndex_;
    return mac_ == nullptr ? sealRtcpGcm(packet, size) : sealRtcpCounter(packet, size);
}

// Reports are rare: their contexts are made for each, and take no memory in between.

bool SrtpSealer::sealRtcpCounter(std::uint8_t* packet, std::size_t& size)
{
    const Block start = counterStart(rtcp_, readBig32(packet + 4), rtcpIndex_);
    const Cipher cipher = makeCipher(rtcp_);
    if (!encryptCounter(cipher.get(), start.data(), packet + rtcpHeaderSize, size - rtcpHeaderSize))
    {
        return false;
    }
    writeBig32(packet + size, encryptedFlag | rtcpIndex_);
    size += indexSize;
    authenticate(*makeMac(rtcp_), packet, size, nullptr, 0, packet + size, info_.rtcpTag);
    size += info_.rtcpTag;
    return true;
}

bool SrtpSealer::sealRtcpGcm(std::uint8_t* packet, std::size_t& size)
{
    const auto nonce = nonceOf(rtcp_.salt.data(), readBig32(packet + 4), rtcpIndex_);
    std::array<std::uint8_t, indexSize> index{};
    writeBig32(index.data(), encryptedFlag | rtcpIndex_);
    const Cipher cipher = makeCipher(rtcp_);
    if (!encryptGcm(cipher.get(), nonce.data(), packet, rtcpHeaderSize, index.data(), index.size(),
                    packet + rtcpHeaderSize, size - rtcpHeaderSize))
    {
        return false;
    }
    size += gcmTag;
    std::copy(index.begin(), index.end(), packet + size);
    size += indexSize;
    return true;
}

}  // namespace refhost

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "refhost/rtp/srtp/HmacSha1.h"
#include "refhost/rtp/srtp/SrtpKey.h"

struct evp_cipher_ctx_st;

namespace refhost
{

/// Encrypts RTP and RTCP of one source under one key (RFC 3711, RFC 7714), with OpenSSL, which uses the
/// processor's instructions. docs/design has why not libsrtp2, against which the tests hold it.
///
/// Counts how often the 16-bit sequence numbers start over. Seals each sequence number once, in their order.
/// Threads: one at a time.
class SrtpSealer
{
public:
    /// Bytes that sealing may add behind a packet.
    static constexpr std::size_t maxTrailer = 20;

    /// \throws std::runtime_error  when OpenSSL makes no context
    explicit SrtpSealer(const SrtpKey& key);
    ~SrtpSealer();
    SrtpSealer(const SrtpSealer&) = delete;
    SrtpSealer& operator=(const SrtpSealer&) = delete;

    /// Encrypts a packet in place. Requires: a well-formed RTP header, and room for maxTrailer more bytes.
    /// \returns false for a sequence number that is not ahead of the last one, and once the key is used up
    bool seal(std::uint8_t* packet, std::size_t& size);

    /// The same for a compound RTCP packet.
    bool sealRtcp(std::uint8_t* packet, std::size_t& size);

    /// The source of the last packet; nothing before the first.
    std::optional<std::uint32_t> ssrc() const
    {
        return ssrc_;
    }

    /// Its number: the sequence number, and above it how often those started over.
    std::uint64_t index() const
    {
        return std::uint64_t{rolloverCounter_} << 16U | sequence_;
    }

private:
    using Block = std::array<std::uint8_t, 16>;

    /// What is derived from the master key for RTP or RTCP (RFC 3711, section 4.3).
    struct SessionKeys
    {
        std::array<std::uint8_t, 16> cipher{};
        std::array<std::uint8_t, 20> authenticator{};
        std::array<std::uint8_t, 14> salt{};

        SessionKeys(const SrtpKey& key, std::uint8_t firstLabel);
        ~SessionKeys();
        SessionKeys(const SessionKeys&) = delete;
        SessionKeys& operator=(const SessionKeys&) = delete;
    };

    struct FreeCipher
    {
        void operator()(evp_cipher_ctx_st* context) const;
    };
    using Cipher = std::unique_ptr<evp_cipher_ctx_st, FreeCipher>;

    bool advance(std::uint32_t ssrc, std::uint16_t sequence);
    bool sealCounter(std::uint8_t* packet, std::size_t& size, std::size_t header);
    bool sealGcm(std::uint8_t* packet, std::size_t& size, std::size_t header);
    bool sealRtcpCounter(std::uint8_t* packet, std::size_t& size);
    bool sealRtcpGcm(std::uint8_t* packet, std::size_t& size);
    Cipher makeCipher(const SessionKeys& keys) const;
    static std::unique_ptr<HmacSha1> makeMac(const SessionKeys& keys);
    static Block counterStart(const SessionKeys& keys, std::uint32_t ssrc, std::uint64_t index);

    const SrtpSuiteInfo& info_;
    const SessionKeys rtp_;
    const SessionKeys rtcp_;
    const Cipher cipher_;                  // of RTP
    const std::unique_ptr<HmacSha1> mac_;  // of RTP; null with GCM
    std::optional<std::uint32_t> ssrc_;
    std::uint16_t sequence_ = 0;
    std::uint32_t rolloverCounter_ = 0;
    std::uint32_t rtcpIndex_ = 0;
};

}  // namespace refhost

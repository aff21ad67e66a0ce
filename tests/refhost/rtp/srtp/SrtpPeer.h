#pragma once

#include <gtest/gtest.h>
#include <srtp2/srtp.h>

#include <cstdint>
#include <string>
#include <vector>

#include "refhost/base/ByteOrder.h"
#include "refhost/rtp/srtp/SrtpKey.h"
#include "refhost/rtp/srtp/SrtpOpener.h"

namespace refhost
{
namespace test
{

/// libsrtp2 as the other end, in both directions.
class SrtpPeer
{
public:
    using Bytes = std::vector<std::uint8_t>;

    /// \param device  the key of what the device sends
    /// \param client  the key of what the client sends
    SrtpPeer(const SrtpKey& device, const SrtpKey& client)
    {
        // Starts the library as the server does, once: two that start it at a time disturb each other.
        EXPECT_TRUE(SrtpOpener::supports(device.suite()));
        receiving_ = make(device, ssrc_any_inbound);
        sending_ = make(client, ssrc_any_outbound);
    }

    ~SrtpPeer()
    {
        srtp_dealloc(receiving_);
        srtp_dealloc(sending_);
    }

    SrtpPeer(const SrtpPeer&) = delete;
    SrtpPeer& operator=(const SrtpPeer&) = delete;

    /// Receives one source from now on, whose sequence numbers have started over so often.
    void join(const SrtpKey& device, std::uint32_t ssrc, std::uint32_t rolloverCounter)
    {
        srtp_dealloc(receiving_);
        receiving_ = make(device, ssrc_specific, ssrc);
        EXPECT_EQ(srtp_set_stream_roc(receiving_, ssrc, rolloverCounter), srtp_err_status_ok);
    }

    /// Each is empty when the packet is not taken.
    Bytes open(const Bytes& packet)
    {
        return apply(srtp_unprotect, receiving_, packet);
    }
    Bytes openRtcp(const Bytes& packet)
    {
        return apply(srtp_unprotect_rtcp, receiving_, packet);
    }
    Bytes seal(const Bytes& packet)
    {
        return apply(srtp_protect, sending_, packet);
    }
    Bytes sealRtcp(const Bytes& packet)
    {
        return apply(srtp_protect_rtcp, sending_, packet);
    }

    static Bytes packet(std::uint32_t ssrc, std::uint16_t sequence, std::size_t payload = 100)
    {
        Bytes bytes(12 + payload, 0x5a);
        bytes[0] = 0x80;
        bytes[1] = 96;
        writeBig16(bytes.data() + 2, sequence);
        writeBig32(bytes.data() + 8, ssrc);
        return bytes;
    }

    /// An empty receiver report.
    static Bytes report(std::uint32_t ssrc)
    {
        Bytes bytes{0x80, 201, 0, 1, 0, 0, 0, 0};
        writeBig32(bytes.data() + 4, ssrc);
        return bytes;
    }

    static Bytes bytesOf(const std::string& text)
    {
        return Bytes(text.begin(), text.end());
    }

private:
    template <typename Operation>
    static Bytes apply(Operation operation, srtp_t session, const Bytes& packet)
    {
        Bytes room = packet;
        room.resize(packet.size() + SRTP_MAX_TRAILER_LEN + 4);
        int size = static_cast<int>(packet.size());
        if (operation(session, room.data(), &size) != srtp_err_status_ok)
        {
            return {};
        }
        room.resize(static_cast<std::size_t>(size));
        return room;
    }

    static srtp_t make(const SrtpKey& key, srtp_ssrc_type_t direction, std::uint32_t ssrc = 0)
    {
        srtp_policy_t policy{};
        switch (key.suite())
        {
            case SrtpSuite::aesCm128HmacSha1Tag80:
                srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtp);
                srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);
                break;
            case SrtpSuite::aesCm128HmacSha1Tag32:
                srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32(&policy.rtp);
                srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);
                break;
            case SrtpSuite::aeadAes128Gcm:
                srtp_crypto_policy_set_aes_gcm_128_16_auth(&policy.rtp);
                srtp_crypto_policy_set_aes_gcm_128_16_auth(&policy.rtcp);
                break;
        }
        policy.ssrc.type = direction;
        policy.ssrc.value = ssrc;
        policy.key = const_cast<unsigned char*>(key.data());
        policy.window_size = 128;
        srtp_t session = nullptr;
        EXPECT_EQ(srtp_create(&session, &policy), srtp_err_status_ok);
        return session;
    }

    srtp_t receiving_ = nullptr;
    srtp_t sending_ = nullptr;
};

}  // namespace test
}  // namespace refhost

#include "bench/load/SrtpReader.h"

#include <openssl/evp.h>
#include <srtp2/srtp.h>

#include <vector>

namespace rtspload
{

struct SrtpReader::Session
{
    srtp_t handle = nullptr;

    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session()
    {
        if (handle != nullptr)
        {
            srtp_dealloc(handle);
        }
    }
};

SrtpReader::SrtpReader() = default;
SrtpReader::~SrtpReader() = default;

bool SrtpReader::start(std::string_view keyManagement)
{
    static const bool ready = srtp_init() == srtp_err_status_ok;
    constexpr std::string_view protocol = "mikey ";
    constexpr std::size_t keySize = 30;
    if (!ready || keyManagement.substr(0, protocol.size()) != protocol)
    {
        return false;
    }
    keyManagement.remove_prefix(protocol.size());
    std::vector<unsigned char> message(keyManagement.size());
    const int size =
        EVP_DecodeBlock(message.data(), reinterpret_cast<const unsigned char*>(keyManagement.data()),
                        static_cast<int>(keyManagement.size()));
    if (size < 0)
    {
        return false;
    }
    std::size_t end = static_cast<std::size_t>(size);
    for (std::size_t i = keyManagement.size(); i > 0 && keyManagement[i - 1] == '='; --i)
    {
        --end;
    }
    // The last byte says that the key is not signed.
    if (end < keySize + 1)
    {
        return false;
    }
    srtp_policy_t policy{};
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtp);
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);
    policy.ssrc.type = ssrc_any_inbound;
    policy.key = message.data() + end - 1 - keySize;
    policy.window_size = 1024;
    session_ = std::make_unique<Session>();
    return srtp_create(&session_->handle, &policy) == srtp_err_status_ok;
}

bool SrtpReader::open(std::uint8_t* data, std::size_t& size)
{
    int length = static_cast<int>(size);
    const bool good = session_ && srtp_unprotect(session_->handle, data, &length) == srtp_err_status_ok;
    size = good ? static_cast<std::size_t>(length) : size;
    return good;
}

bool SrtpReader::openRtcp(std::uint8_t* data, std::size_t& size)
{
    int length = static_cast<int>(size);
    const bool good = session_ && srtp_unprotect_rtcp(session_->handle, data, &length) == srtp_err_status_ok;
    size = good ? static_cast<std::size_t>(length) : size;
    return good;
}

}  // namespace rtspload

#include "refhost/rtp/srtp/SrtpOpener.h"

#include <srtp2/srtp.h>

#include <algorithm>
#include <utility>

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr std::size_t rtpHeaderSize = 12;
constexpr std::size_t rtcpHeaderSize = 8;
/// Packets that may arrive late, as the replay protection sees them.
constexpr unsigned long replayWindow = 1024;

/// Starts the library, which stays until the process ends. Its status says nothing: it fails where another part of the
/// process, such as GStreamer's srtpdec, was first. Without it no session can be made.
void startLibrary()
{
    static const srtp_err_status_t status = srtp_init();
    (void)status;
}

void setSuite(SrtpSuite suite, srtp_policy_t& policy)
{
    switch (suite)
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
}

/// Applies an operation of the library, which counts sizes as int.
template <typename Operation>
bool apply(Operation operation, srtp_t session, std::uint8_t* packet, std::size_t& size)
{
    int length = static_cast<int>(size);
    if (operation(session, packet, &length) != srtp_err_status_ok || length < 0)
    {
        return false;
    }
    size = static_cast<std::size_t>(length);
    return true;
}

}  // namespace

struct SrtpOpener::Context
{
    srtp_t session = nullptr;

    Context() = default;
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context()
    {
        if (session != nullptr)
        {
            srtp_dealloc(session);
        }
    }
};

std::unique_ptr<SrtpOpener> SrtpOpener::make(const SrtpKey& key)
{
    startLibrary();
    srtp_policy_t policy{};
    setSuite(key.suite(), policy);
    policy.ssrc.type = ssrc_any_inbound;
    policy.key = const_cast<unsigned char*>(key.data());
    policy.window_size = replayWindow;
    auto context = std::make_unique<Context>();
    if (srtp_create(&context->session, &policy) != srtp_err_status_ok)
    {
        return nullptr;
    }
    return std::unique_ptr<SrtpOpener>(new SrtpOpener(std::move(context)));
}

bool SrtpOpener::supports(SrtpSuite suite)
{
    static const std::array<bool, 3> known{make(SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag80)) != nullptr,
                                           make(SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag32)) != nullptr,
                                           make(SrtpKey::random(SrtpSuite::aeadAes128Gcm)) != nullptr};
    return known.at(static_cast<std::size_t>(suite));
}

SrtpOpener::SrtpOpener(std::unique_ptr<Context> context) : context_(std::move(context)) {}

SrtpOpener::~SrtpOpener() = default;

bool SrtpOpener::open(std::uint8_t* packet, std::size_t& size)
{
    if (size < rtpHeaderSize)
    {
        return false;
    }
    const std::uint32_t ssrc = readBig32(packet + 8);
    if (!admits(ssrc) || !apply(srtp_unprotect, context_->session, packet, size))
    {
        return false;
    }
    note(ssrc);
    return true;
}

bool SrtpOpener::openRtcp(std::uint8_t* packet, std::size_t& size)
{
    if (size < rtcpHeaderSize)
    {
        return false;
    }
    const std::uint32_t ssrc = readBig32(packet + 4);
    if (!admits(ssrc) || !apply(srtp_unprotect_rtcp, context_->session, packet, size))
    {
        return false;
    }
    note(ssrc);
    return true;
}

/// The library keeps a stream for each SSRC.
bool SrtpOpener::admits(std::uint32_t ssrc) const
{
    const auto end = sources_.begin() + static_cast<std::ptrdiff_t>(sourceCount_);
    return sourceCount_ < maxSources || std::find(sources_.begin(), end, ssrc) != end;
}

void SrtpOpener::note(std::uint32_t ssrc)
{
    const auto end = sources_.begin() + static_cast<std::ptrdiff_t>(sourceCount_);
    if (std::find(sources_.begin(), end, ssrc) == end)
    {
        sources_[sourceCount_++] = ssrc;
    }
}

}  // namespace refhost

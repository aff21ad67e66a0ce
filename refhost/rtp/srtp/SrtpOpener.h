#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "refhost/rtp/srtp/SrtpKey.h"

namespace refhost
{

/// Opens RTP and RTCP that a client sent under one key (RFC 3711, RFC 7714), with libsrtp2: follows how often its
/// sequence numbers start over, and refuses packets received before. Threads: one at a time.
class SrtpOpener
{
public:
    /// Max SSRCs that one client may send with.
    static constexpr std::size_t maxSources = 8;

    /// \returns null when the library has not the key's suite
    static std::unique_ptr<SrtpOpener> make(const SrtpKey& key);
    /// Whether the library has the suite.
    static bool supports(SrtpSuite suite);

    ~SrtpOpener();
    SrtpOpener(const SrtpOpener&) = delete;
    SrtpOpener& operator=(const SrtpOpener&) = delete;

    /// Opens a packet in place.
    /// \param packet  at an address divisible by 4
    /// \returns false for one that is malformed, not authentic, received before, or of one SSRC too many
    bool open(std::uint8_t* packet, std::size_t& size);
    /// The same for a compound RTCP packet.
    bool openRtcp(std::uint8_t* packet, std::size_t& size);

private:
    struct Context;

    explicit SrtpOpener(std::unique_ptr<Context> context);
    bool admits(std::uint32_t ssrc) const;
    void note(std::uint32_t ssrc);

    const std::unique_ptr<Context> context_;
    std::array<std::uint32_t, maxSources> sources_{};
    std::size_t sourceCount_ = 0;
};

}  // namespace refhost

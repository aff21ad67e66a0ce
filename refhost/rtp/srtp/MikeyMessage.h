#pragma once
// Tested by tests/refhost/rtp/srtp/MikeyMessage_test.cpp, tests/fuzz/KeyFuzzer.cpp.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/rtp/srtp/SrtpKey.h"

namespace refhost
{

/// A MIKEY message in pre-shared mode that hands a key to SRTP (RFC 3830): the key is in the message as it is
/// (encryption NULL), as RTSP clients expect, so that it is as secret as the connection that carries it.
struct MikeyMessage
{
    /// An SSRC that the key is for. Clients also accept the key for others.
    struct CryptoSession
    {
        std::uint32_t ssrc = 0;
        std::uint32_t rolloverCounter = 0;
    };

    /// Bytes of the longest message that parse() takes.
    static constexpr std::size_t maxSize = 4096;

    SrtpKey key;
    std::vector<CryptoSession> sessions;

    /// \param now  the message's date
    static std::vector<std::uint8_t> write(const SrtpKey& key, const std::vector<CryptoSession>& sessions,
                                           WallTime now);

    /// Takes the initiator's message with a traffic key and one SRTP policy. Without a policy, the suite is
    /// that of 80 bits.
    /// \returns nothing for a malformed message, one that is encrypted, signed or needs a key derived, or a
    ///          policy that this host does not support
    static std::optional<MikeyMessage> parse(const std::uint8_t* data, std::size_t size);
};

}  // namespace refhost

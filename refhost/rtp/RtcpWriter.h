#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/rtp/RtcpReader.h"

namespace refhost
{

/// One compound RTCP packet of a sender or a receiver: report, canonical name and, at the end, BYE (RFC 3550,
/// sections 6.4.1, 6.4.2, 6.5.1 and 6.6). Allocates nothing.
class RtcpWriter
{
public:
    /// Characters of a canonical name: random text (RFC 7022, section 4.2).
    static constexpr std::size_t nameSize = 16;
    using Name = std::array<char, nameSize>;

    /// A unique random name.
    static Name randomName();

    struct SenderReport
    {
        std::uint32_t ssrc = 0;
        WallTime wall;
        std::uint32_t rtpTimestamp = 0;  ///< of the same instant
        std::uint32_t packets = 0;       ///< sent so far
        std::uint32_t octets = 0;        ///< payload bytes sent so far
    };

    RtcpWriter(const SenderReport& report, const Name& name, bool bye);

    struct ReceiverReport
    {
        std::uint32_t ssrc = 0;    ///< the receiver's
        bool hasBlock = false;     ///< `source` and `reception` are filled
        std::uint32_t source = 0;  ///< SSRC of the reported sender
        ReceptionReport reception;
    };

    static RtcpWriter ofReceiver(const ReceiverReport& report, const Name& name, bool bye);

    const std::uint8_t* data() const
    {
        return bytes_.data();
    }

    std::size_t size() const
    {
        return size_;
    }

private:
    RtcpWriter() = default;

    void put32(std::uint32_t value);
    void putCnameAndBye(std::uint32_t ssrc, const Name& name, bool bye);

    std::array<std::uint8_t, 72> bytes_;
    std::size_t size_ = 0;
};

}  // namespace refhost

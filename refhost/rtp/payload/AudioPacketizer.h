#pragma once

#include "refhost/media/Codec.h"
#include "refhost/rtp/payload/Packetizer.h"

namespace refhost
{

/// Audio whose packets are units of their own: PCMU and PCMA (RFC 3551), in several where a block is larger
/// than a packet, and Opus (RFC 7587). Threads: one at a time.
class AudioPacketizer : public Packetizer
{
public:
    AudioPacketizer(Codec codec, std::size_t payloadSize);

protected:
    const char* packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                         std::vector<std::shared_ptr<AccessUnit>>& out) override;

private:
    const CodecInfo& info_;
    const std::size_t payloadSize_;
};

}  // namespace refhost

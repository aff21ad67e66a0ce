#pragma once

#include "refhost/rtp/payload/Packetizer.h"

namespace refhost
{

/// AAC in mode AAC-hbr of RFC 3640 (section 3.3.6): a unit in a packet, or in fragments where it is larger.
/// Threads: one at a time.
class AacPacketizer : public Packetizer
{
public:
    explicit AacPacketizer(std::size_t payloadSize);

protected:
    const char* packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                         std::vector<std::shared_ptr<AccessUnit>>& out) override;

private:
    const std::size_t payloadSize_;
};

}  // namespace refhost

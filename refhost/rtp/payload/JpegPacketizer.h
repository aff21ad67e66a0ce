#pragma once

#include "refhost/rtp/payload/Packetizer.h"

namespace refhost
{

/// MJPEG (RFC 2435) with the quantizers of each frame in its first packet. JPEGs that it cannot carry are
/// refused: others than baseline 4:2:0 and 4:2:2 of three components, with quantizers of 8 bits, the usual
/// Huffman tables and sides that are multiples of 8 up to 2040. Threads: one at a time.
class JpegPacketizer : public Packetizer
{
public:
    explicit JpegPacketizer(std::size_t payloadSize);

protected:
    const char* packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                         std::vector<std::shared_ptr<AccessUnit>>& out) override;

private:
    const std::size_t payloadSize_;
};

}  // namespace refhost

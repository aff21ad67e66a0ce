#include "refhost/rtp/payload/AacPacketizer.h"

#include <algorithm>

#include "refhost/rtp/payload/AacHeader.h"
#include "refhost/rtp/payload/PacketRun.h"

namespace refhost
{
AacPacketizer::AacPacketizer(std::size_t payloadSize)
    : Packetizer(Codec::aac), payloadSize_(std::max(payloadSize, AacHeader::size + 1))
{
}

const char* AacPacketizer::packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                                    std::vector<std::shared_ptr<AccessUnit>>& out)
{
    if (unit.bytes.size() > AacHeader::maxUnitSize)
    {
        return "a unit of AAC with more than 8191 bytes";
    }
    const AacHeader header(unit.bytes.size());
    const ByteSpan bytes(unit.bytes);
    const std::size_t step = payloadSize_ - AacHeader::size;
    const std::size_t packets = (bytes.size + step - 1) / step;
    constexpr std::size_t front = AccessUnit::framingSize + AccessUnit::rtpHeaderSize + AacHeader::size;
    PacketRun run;
    run.expect(bytes.size + packets * front, packets);
    for (std::size_t at = 0; at < bytes.size; at += step)
    {
        run.add({header.bytes.data(), header.bytes.size()},
                bytes.from(at).first(std::min(step, bytes.size - at)));
    }
    out.push_back(run.finish(rtpTimestamp, true));
    out.back()->captureTime = unit.captureTime;
    out.back()->keyFrame = true;
    return nullptr;
}

}  // namespace refhost

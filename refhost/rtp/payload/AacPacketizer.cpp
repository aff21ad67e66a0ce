#include "refhost/rtp/payload/AacPacketizer.h"

#include <algorithm>
#include <array>

#include "refhost/base/ByteOrder.h"
#include "refhost/rtp/payload/PacketRun.h"

namespace refhost
{
namespace
{

constexpr std::size_t headerSize = 4;  // length of the headers in bits; one header
constexpr std::size_t maxUnitSize = 8191;
constexpr std::uint16_t headerBits = 16;
constexpr unsigned indexBits = 3;

}  // namespace

AacPacketizer::AacPacketizer(std::size_t payloadSize)
    : Packetizer(Codec::aac), payloadSize_(std::max(payloadSize, headerSize + 1))
{
}

const char* AacPacketizer::packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                                    std::vector<std::shared_ptr<AccessUnit>>& out)
{
    if (unit.bytes.size() > maxUnitSize)
    {
        return "a unit of AAC with more than 8191 bytes";
    }
    std::array<std::uint8_t, headerSize> header{};
    writeBig16(header.data(), headerBits);
    writeBig16(header.data() + 2, static_cast<std::uint16_t>(unit.bytes.size() << indexBits));
    const ByteSpan bytes(unit.bytes);
    const std::size_t step = payloadSize_ - headerSize;
    const std::size_t packets = (bytes.size + step - 1) / step;
    constexpr std::size_t front = AccessUnit::framingSize + AccessUnit::rtpHeaderSize + headerSize;
    PacketRun run;
    run.expect(bytes.size + packets * front, packets);
    for (std::size_t at = 0; at < bytes.size; at += step)
    {
        run.add({header.data(), header.size()}, bytes.from(at).first(std::min(step, bytes.size - at)));
    }
    out.push_back(run.finish(rtpTimestamp, true));
    out.back()->captureTime = unit.captureTime;
    out.back()->keyFrame = true;
    return nullptr;
}

}  // namespace refhost

#include "refhost/rtp/payload/AudioPacketizer.h"

#include <algorithm>
#include <chrono>

#include "refhost/rtp/payload/PacketRun.h"

namespace refhost
{

AudioPacketizer::AudioPacketizer(Codec codec, std::size_t payloadSize)
    : Packetizer(codec), info_(infoOf(codec)), payloadSize_(std::max<std::size_t>(payloadSize, 1))
{
}

const char* AudioPacketizer::packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                                      std::vector<std::shared_ptr<AccessUnit>>& out)
{
    const auto channels = static_cast<std::size_t>(std::max(unit.format->channels, 1));
    const ByteSpan block(unit.bytes);
    if (info_.samplesIn(block.data, block.size, static_cast<int>(channels)) == 0)
    {
        return "not a whole number of samples";
    }
    const bool whole = info_.codec == Codec::opus;
    if (whole && block.size > payloadSize_)
    {
        return "an Opus packet is larger than a packet of this transport may be";
    }
    const std::size_t step = std::max(payloadSize_ / channels, std::size_t{1}) * channels;
    for (std::size_t at = 0; at < block.size; at += step)
    {
        const auto samples = static_cast<std::uint32_t>(whole ? 0 : at / channels);
        const std::size_t size = std::min(step, block.size - at);
        PacketRun run;
        run.expect(AccessUnit::framingSize + AccessUnit::rtpHeaderSize + size, 1);
        run.add(block.from(at).first(whole ? block.size : size), {});
        out.push_back(run.finish(rtpTimestamp + samples, false));
        out.back()->keyFrame = true;
        out.back()->captureTime =
            unit.captureTime + std::chrono::nanoseconds(std::chrono::seconds(samples)) / info_.clockRate;
    }
    return nullptr;
}

}  // namespace refhost

#include "refhost/rtp/payload/AacTrack.h"

#include <utility>

namespace refhost
{

std::optional<AacTrack> AacTrack::of(std::vector<std::uint8_t> config, int clockRate)
{
    const auto read = AudioConfig::read(config);
    if (!read)
    {
        return std::nullopt;
    }
    AacTrack track;
    track.format.codec = Codec::aac;
    track.format.sampleRate = static_cast<int>(read->sampleRate);
    track.format.channels = read->channels;
    track.format.codecData = std::move(config);
    track.unitTicks = static_cast<std::uint32_t>(std::uint64_t{read->frameSamples} *
                                                 static_cast<std::uint64_t>(clockRate) / read->sampleRate);
    return track;
}

}  // namespace refhost

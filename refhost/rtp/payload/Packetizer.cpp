#include "refhost/rtp/payload/Packetizer.h"

#include <algorithm>

#include "refhost/rtp/payload/AacPacketizer.h"
#include "refhost/rtp/payload/AudioPacketizer.h"
#include "refhost/rtp/payload/FormatText.h"
#include "refhost/rtp/payload/JpegPacketizer.h"
#include "refhost/rtp/payload/NalPacketizer.h"
#include "refhost/rtp/payload/ParameterSets.h"

namespace refhost
{
namespace
{

double frameRateOf(const MediaFormat& format)
{
    if (format.codec != Codec::h264)
    {
        return 0;
    }
    ParameterSets sets(NalSyntax::of(format.codec));
    sets.takeRecord(format.codecData);
    return sets.frameRate();
}

}  // namespace

std::unique_ptr<Packetizer> Packetizer::make(Codec codec, int payloadSize)
{
    constexpr int maxPayloadSize = 65000;  // of a datagram, and of lengths in 16 bits
    const auto size = static_cast<std::size_t>(std::clamp(payloadSize, 1, maxPayloadSize));
    switch (codec)
    {
        case Codec::h264:
        case Codec::h265:
            return std::make_unique<NalPacketizer>(codec, size);
        case Codec::aac:
            return std::make_unique<AacPacketizer>(size);
        case Codec::mjpeg:
            return std::make_unique<JpegPacketizer>(size);
        case Codec::pcmu:
        case Codec::pcma:
        case Codec::opus:
            return std::make_unique<AudioPacketizer>(codec, size);
    }
    return nullptr;
}

const char* Packetizer::pack(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                             std::vector<std::shared_ptr<AccessUnit>>& out)
{
    if (!unit.format || unit.format->codec != codec_)
    {
        return "a unit of another codec";
    }
    return unit.bytes.empty() ? "an empty unit" : packUnit(unit, rtpTimestamp, out);
}

bool Packetizer::describe(const MediaFormat& format, const std::string& trackId, SubMediaInfo& out)
{
    const CodecInfo& info = infoOf(format.codec);
    const bool isVideo = info.kind == MediaKind::video;
    SubMediaInfo track;
    track.trackId = trackId;
    track.mediaType = isVideo ? "video" : "audio";
    track.encodingName = info.encodingName;
    track.bitRate = info.bitRate;
    track.payloadType = info.payloadType;
    track.clockRate = info.clockRate > 0 ? info.clockRate : format.sampleRate;
    track.channels = isVideo ? 0 : info.channels > 0 ? info.channels : std::max(format.channels, 1);
    track.width = format.width;
    track.height = format.height;
    if (track.clockRate <= 0 || !formatText(format, track.formatParameters))
    {
        return false;
    }
    track.frameRate = frameRateOf(format);
    out = track;
    return true;
}

}  // namespace refhost

#include "refhost/capture/FileTrack.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "refhost/rtp/payload/AudioConfig.h"

namespace refhost
{
namespace
{

/// Of a decoder configuration record (ISO/IEC 14496-15); a byte stream's parameter sets start with zeros.
constexpr std::uint8_t recordVersion = 1;

bool hasRecord(const MediaFormat& format)
{
    return !format.codecData.empty() && format.codecData.front() == recordVersion;
}

bool completeAudio(MediaFormat& format)
{
    constexpr int maxOpusChannels = 2;
    const CodecInfo& info = infoOf(format.codec);
    if (format.codec == Codec::aac)
    {
        // RTP counts in the core codec's rate, which files with a faster extension do not name.
        const auto config = AudioConfig::read(format.codecData);
        if (!config)
        {
            return false;
        }
        format.sampleRate = static_cast<int>(config->sampleRate);
        format.channels = config->channels;
        return true;
    }
    if (format.codec == Codec::opus)
    {
        format.sampleRate = info.clockRate;
        if (format.channels < 1 || format.channels > maxOpusChannels)
        {
            return false;
        }
        // The file's own header says how much to skip at its start.
        format.codecData = info.makeCodecData(format.channels);
        return true;
    }
    return format.sampleRate == info.clockRate && format.channels == 1;
}

double frameRateOf(const AVStream& stream)
{
    const AVRational rate = stream.avg_frame_rate;
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
}

}  // namespace

std::optional<FileTrack> FileTrack::of(const AVStream& stream)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    const std::optional<Codec> codec = codecInLibav(avcodec_get_name(parameters.codec_id));
    if (!codec)
    {
        return std::nullopt;
    }
    MediaFormat format;
    format.codec = *codec;
    if (infoOf(*codec).needsCodecData && parameters.extradata_size > 0)
    {
        format.codecData.assign(parameters.extradata,
                                parameters.extradata + static_cast<std::size_t>(parameters.extradata_size));
    }
    if (isVideo(*codec))
    {
        format.width = parameters.width;
        format.height = parameters.height;
        if (infoOf(*codec).needsCodecData && !hasRecord(format))
        {
            return std::nullopt;
        }
        return FileTrack{std::make_shared<const MediaFormat>(std::move(format)), frameRateOf(stream)};
    }
    format.sampleRate = parameters.sample_rate;
    format.channels = parameters.ch_layout.nb_channels;
    if (!completeAudio(format))
    {
        return std::nullopt;
    }
    return FileTrack{std::make_shared<const MediaFormat>(std::move(format))};
}

}  // namespace refhost

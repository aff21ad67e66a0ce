#include "refhost/playback/SegmentCaps.h"

#include <memory>

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace refhost
{
namespace
{

GstValuePtr<GstCaps> withCodecData(GstCaps* caps, const AVCodecParameters& parameters)
{
    GstBuffer* data =
        gst_buffer_new_memdup(parameters.extradata, static_cast<gsize>(parameters.extradata_size));
    gst_caps_set_simple(caps, "codec_data", GST_TYPE_BUFFER, data, nullptr);
    gst_buffer_unref(data);
    return GstValuePtr<GstCaps>(caps);
}

GstValuePtr<GstCaps> videoCaps(const char* name, const char* format, const AVStream& stream)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    GstCaps* caps = gst_caps_new_simple(name, "stream-format", G_TYPE_STRING, format, "alignment",
                                        G_TYPE_STRING, "au", nullptr);
    if (parameters.width > 0 && parameters.height > 0)
    {
        gst_caps_set_simple(caps, "width", G_TYPE_INT, parameters.width, "height", G_TYPE_INT,
                            parameters.height, nullptr);
    }
    const AVRational rate = stream.avg_frame_rate;
    if (rate.num > 0 && rate.den > 0)
    {
        gst_caps_set_simple(caps, "framerate", GST_TYPE_FRACTION, rate.num, rate.den, nullptr);
    }
    return withCodecData(caps, parameters);
}

GstCaps* soundCaps(const char* name, const AVCodecParameters& parameters)
{
    return gst_caps_new_simple(name, "rate", G_TYPE_INT, parameters.sample_rate, "channels", G_TYPE_INT,
                               parameters.ch_layout.nb_channels, nullptr);
}

/// RTP has a payload type of its own for these at this rate alone (RFC 3551, section 4.5.14).
bool isTelephone(const AVCodecParameters& parameters)
{
    return parameters.sample_rate == 8000 && parameters.ch_layout.nb_channels == 1;
}

}  // namespace

std::optional<SegmentCaps> segmentCaps(const AVStream& stream)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    const bool described = parameters.extradata_size > 0;
    switch (parameters.codec_id)
    {
        case AV_CODEC_ID_H264:
            return described ? std::optional<SegmentCaps>(
                                   {MediaCoding::h264, videoCaps("video/x-h264", "avc", stream)})
                             : std::nullopt;
        case AV_CODEC_ID_HEVC:
            return described ? std::optional<SegmentCaps>(
                                   {MediaCoding::h265, videoCaps("video/x-h265", "hvc1", stream)})
                             : std::nullopt;
        case AV_CODEC_ID_AAC:
        {
            if (!described)
            {
                return std::nullopt;
            }
            GstCaps* caps = soundCaps("audio/mpeg", parameters);
            gst_caps_set_simple(caps, "mpegversion", G_TYPE_INT, 4, "stream-format", G_TYPE_STRING, "raw",
                                nullptr);
            return SegmentCaps{MediaCoding::aac, withCodecData(caps, parameters)};
        }
        case AV_CODEC_ID_PCM_MULAW:
        case AV_CODEC_ID_PCM_ALAW:
        {
            if (!isTelephone(parameters))
            {
                return std::nullopt;
            }
            const bool mu = parameters.codec_id == AV_CODEC_ID_PCM_MULAW;
            return SegmentCaps{
                mu ? MediaCoding::pcmu : MediaCoding::pcma,
                GstValuePtr<GstCaps>(soundCaps(mu ? "audio/x-mulaw" : "audio/x-alaw", parameters))};
        }
        default:
            return std::nullopt;
    }
}

bool isDecodable(const AVStream& stream)
{
    const auto release = [](AVCodecContext* context) { avcodec_free_context(&context); };
    const AVCodec* const codec = avcodec_find_decoder(stream.codecpar->codec_id);
    const std::unique_ptr<AVCodecContext, decltype(release)> decoder(
        codec == nullptr ? nullptr : avcodec_alloc_context3(codec), release);
    if (!decoder || avcodec_parameters_to_context(decoder.get(), stream.codecpar) < 0)
    {
        // Nobody knows.
        return true;
    }
    decoder->thread_count = 1;
    decoder->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM;
    return avcodec_open2(decoder.get(), codec, nullptr) == 0;
}

}  // namespace refhost

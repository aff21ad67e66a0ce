#include "refhost/playback/SegmentCaps.h"

#include <memory>
#include <utility>

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace refhost
{
namespace
{

void addVideo(const AVStream& stream, GstCaps* caps)
{
    const AVCodecParameters& parameters = *stream.codecpar;
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
}

void addAudio(const AVCodecParameters& parameters, GstCaps* caps)
{
    gst_caps_set_simple(caps, "rate", G_TYPE_INT, parameters.sample_rate, "channels", G_TYPE_INT,
                        parameters.ch_layout.nb_channels, nullptr);
}

void addCodecData(const AVCodecParameters& parameters, GstCaps* caps)
{
    GstBuffer* data =
        gst_buffer_new_memdup(parameters.extradata, static_cast<gsize>(parameters.extradata_size));
    gst_caps_set_simple(caps, "codec_data", GST_TYPE_BUFFER, data, nullptr);
    gst_buffer_unref(data);
}

}  // namespace

std::optional<SegmentCaps> segmentCaps(const AVStream& stream)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    const std::optional<Codec> codec = codecInLibav(avcodec_get_name(parameters.codec_id));
    if (!codec || (infoOf(*codec).needsCodecData && parameters.extradata_size <= 0))
    {
        return std::nullopt;
    }
    const CodecInfo& info = infoOf(*codec);
    GstValuePtr<GstCaps> caps(gst_caps_from_string(info.caps));
    switch (info.kind)
    {
        case MediaKind::video:
            addVideo(stream, caps.get());
            break;
        case MediaKind::audio:
            addAudio(parameters, caps.get());
            break;
    }
    if (info.needsCodecData)
    {
        addCodecData(parameters, caps.get());
    }
    // Not every rate of audio can be sent.
    const GstValuePtr<GstCaps> accepted(gst_caps_from_string(info.acceptedCaps));
    return gst_caps_can_intersect(caps.get(), accepted.get())
               ? std::optional<SegmentCaps>({*codec, std::move(caps)})
               : std::nullopt;
}

bool isDecodable(const AVStream& stream)
{
    const auto release = [](AVCodecContext* context) { avcodec_free_context(&context); };
    const AVCodec* const codec = avcodec_find_decoder(stream.codecpar->codec_id);
    const std::unique_ptr<AVCodecContext, decltype(release)> decoder(
        codec == nullptr ? nullptr : avcodec_alloc_context3(codec), release);
    if (!decoder || avcodec_parameters_to_context(decoder.get(), stream.codecpar) < 0)
    {
        // Unknown: do not refuse it.
        return true;
    }
    decoder->thread_count = 1;
    decoder->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM;
    return avcodec_open2(decoder.get(), codec, nullptr) == 0;
}

}  // namespace refhost

#include "refhost/snapshot/JpegMaker.h"

#include <algorithm>
#include <cstring>
#include <memory>

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace refhost
{
namespace
{

/// Of the encoder, 1 (best) to 31.
constexpr int quality = 4;

struct Free
{
    void operator()(AVCodecContext* context) const
    {
        avcodec_free_context(&context);
    }
    void operator()(AVFrame* frame) const
    {
        av_frame_free(&frame);
    }
    void operator()(AVPacket* packet) const
    {
        av_packet_free(&packet);
    }
    void operator()(SwsContext* context) const
    {
        sws_freeContext(context);
    }
};

using ContextPtr = std::unique_ptr<AVCodecContext, Free>;
using FramePtr = std::unique_ptr<AVFrame, Free>;
using PacketPtr = std::unique_ptr<AVPacket, Free>;

ContextPtr openDecoder(const MediaFormat& format)
{
    const AVCodecDescriptor* const known = avcodec_descriptor_get_by_name(infoOf(format.codec).libavName);
    const AVCodec* const codec = known == nullptr ? nullptr : avcodec_find_decoder(known->id);
    ContextPtr decoder(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (!decoder)
    {
        return nullptr;
    }
    decoder->thread_count = 1;
    decoder->max_pixels = JpegMaker::maxPixels;
    if (!format.codecData.empty())
    {
        const std::size_t size = format.codecData.size();
        decoder->extradata = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
        if (decoder->extradata == nullptr)
        {
            return nullptr;
        }
        std::copy(format.codecData.begin(), format.codecData.end(), decoder->extradata);
        decoder->extradata_size = static_cast<int>(size);
    }
    return avcodec_open2(decoder.get(), codec, nullptr) == 0 ? std::move(decoder) : nullptr;
}

/// \returns null for a corrupt frame
FramePtr decode(const MediaFormat& format, ByteSpan bytes)
{
    const ContextPtr decoder = openDecoder(format);
    const PacketPtr packet(av_packet_alloc());
    FramePtr frame(av_frame_alloc());
    if (!decoder || !packet || !frame || av_new_packet(packet.get(), static_cast<int>(bytes.size)) != 0)
    {
        return nullptr;
    }
    std::copy(bytes.begin(), bytes.end(), packet->data);
    packet->flags = AV_PKT_FLAG_KEY;
    const bool decoded = avcodec_send_packet(decoder.get(), packet.get()) == 0 &&
                         avcodec_send_packet(decoder.get(), nullptr) == 0 &&
                         avcodec_receive_frame(decoder.get(), frame.get()) == 0;
    const bool whole =
        decoded && frame->decode_error_flags == 0 && (frame->flags & AV_FRAME_FLAG_CORRUPT) == 0;
    return whole && frame->width > 0 && frame->height > 0 ? std::move(frame) : nullptr;
}

/// The format without its range, which is said apart.
AVPixelFormat plainFormat(int format)
{
    switch (format)
    {
        case AV_PIX_FMT_YUVJ420P:
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            return AV_PIX_FMT_YUV444P;
        default:
            return static_cast<AVPixelFormat>(format);
    }
}

/// To the size, and to the colours of JPEG: full range, the matrix of BT.601.
FramePtr scale(const AVFrame& source, int width)
{
    constexpr int one = 1 << 16;
    const AVPixelFormat format = plainFormat(source.format);
    const int height = std::max(
        2, static_cast<int>((std::int64_t{source.height} * width + source.width / 2) / source.width) / 2 * 2);
    FramePtr frame(av_frame_alloc());
    const std::unique_ptr<SwsContext, Free> scaler(sws_getContext(source.width, source.height, format, width,
                                                                  height, AV_PIX_FMT_YUV420P, SWS_AREA,
                                                                  nullptr, nullptr, nullptr));
    if (!frame || !scaler)
    {
        return nullptr;
    }
    const bool full = source.color_range == AVCOL_RANGE_JPEG || format != source.format;
    const int matrix = source.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_ITU601;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(matrix), full ? 1 : 0,
                             sws_getCoefficients(SWS_CS_ITU601), 1, 0, one, one);
    frame->width = width;
    frame->height = height;
    frame->format = AV_PIX_FMT_YUV420P;
    frame->color_range = AVCOL_RANGE_JPEG;
    if (av_frame_get_buffer(frame.get(), 0) != 0)
    {
        return nullptr;
    }
    sws_scale(scaler.get(), source.data, source.linesize, 0, source.height, frame->data, frame->linesize);
    return frame;
}

std::optional<std::string> encode(AVFrame& frame)
{
    const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const ContextPtr encoder(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    const PacketPtr packet(av_packet_alloc());
    if (!encoder || !packet)
    {
        return std::nullopt;
    }
    encoder->thread_count = 1;
    encoder->width = frame.width;
    encoder->height = frame.height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->color_range = AVCOL_RANGE_JPEG;
    encoder->time_base = AVRational{1, 1};
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = FF_QP2LAMBDA * quality;
    frame.quality = encoder->global_quality;
    frame.pts = 0;
    if (avcodec_open2(encoder.get(), codec, nullptr) != 0 || avcodec_send_frame(encoder.get(), &frame) != 0 ||
        avcodec_receive_packet(encoder.get(), packet.get()) != 0)
    {
        return std::nullopt;
    }
    return std::string(packet->data, packet->data + packet->size);
}

}  // namespace

std::optional<std::string> JpegMaker::make(const MediaFormat& format, ByteSpan frame, int width,
                                           std::string& error)
{
    constexpr std::size_t maxBytes = std::size_t{1} << 26U;
    error = "the frame is corrupt";
    if (frame.empty() || frame.size > maxBytes || !isVideo(format.codec))
    {
        return std::nullopt;
    }
    const FramePtr decoded = decode(format, frame);
    if (!decoded)
    {
        return std::nullopt;
    }
    const int even = std::max(2, decoded->width / 2 * 2);
    const int wide = width <= 0 ? even : std::clamp(width / 2 * 2, 2, even);
    if (format.codec == Codec::mjpeg && wide == even)
    {
        return std::string(frame.begin(), frame.end());
    }
    const FramePtr scaled = scale(*decoded, wide);
    auto jpeg = scaled ? encode(*scaled) : std::nullopt;
    if (!jpeg)
    {
        error = "the frame cannot be converted";
    }
    return jpeg;
}

}  // namespace refhost

#include "refhost/talkback/LibavDecoder.h"

extern "C"
{
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>

namespace refhost
{
namespace
{

std::int16_t sampleOf(float value)
{
    if (std::isnan(value))
    {
        return 0;
    }
    return static_cast<std::int16_t>(std::lrint(std::clamp(value * 32768.0F, -32768.0F, 32767.0F)));
}

std::int16_t sampleOf(std::int16_t value)
{
    return value;
}

template <class Sample>
void appendSamples(const AVFrame& frame, std::vector<std::int16_t>& samples)
{
    const int channels = frame.ch_layout.nb_channels;
    const bool planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) != 0;
    samples.reserve(samples.size() + static_cast<std::size_t>(frame.nb_samples * channels));
    for (int i = 0; i < frame.nb_samples; ++i)
    {
        for (int c = 0; c < channels; ++c)
        {
            const void* const plane = frame.extended_data[planar ? c : 0];
            samples.push_back(sampleOf(static_cast<const Sample*>(plane)[planar ? i : i * channels + c]));
        }
    }
}

}  // namespace

std::unique_ptr<LibavDecoder> LibavDecoder::make(Codec codec, const std::string& codecData,
                                                 const PcmFormat& recorded)
{
    std::unique_ptr<LibavDecoder> decoder(new LibavDecoder(codec, recorded));
    return decoder->open(codecData) ? std::move(decoder) : nullptr;
}

LibavDecoder::LibavDecoder(Codec codec, const PcmFormat& recorded) : info_(infoOf(codec)), format_(recorded)
{
}

LibavDecoder::~LibavDecoder()
{
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    avcodec_free_context(&context_);
}

bool LibavDecoder::open(const std::string& codecData)
{
    const AVCodecDescriptor* const known = avcodec_descriptor_get_by_name(info_.libavName);
    const AVCodec* const decoder = known == nullptr ? nullptr : avcodec_find_decoder(known->id);
    if (decoder == nullptr || (info_.needsCodecData && codecData.size() < 2))
    {
        return false;
    }
    context_ = avcodec_alloc_context3(decoder);
    packet_ = av_packet_alloc();
    frame_ = av_frame_alloc();
    if (context_ == nullptr || packet_ == nullptr || frame_ == nullptr)
    {
        return false;
    }
    if (!codecData.empty() && !setCodecData(codecData))
    {
        return false;
    }
    context_->sample_rate = format_.sampleRate;
    av_channel_layout_default(&context_->ch_layout, format_.channels);
    context_->thread_count = 1;
    return avcodec_open2(context_, decoder, nullptr) == 0;
}

bool LibavDecoder::setCodecData(const std::string& codecData)
{
    auto* const extra =
        static_cast<std::uint8_t*>(av_mallocz(codecData.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (extra == nullptr)
    {
        return false;
    }
    std::copy(codecData.begin(), codecData.end(), extra);
    context_->extradata = extra;
    context_->extradata_size = static_cast<int>(codecData.size());
    return true;
}

bool LibavDecoder::decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples)
{
    samples.clear();
    if (size == 0 || info_.samplesIn(frame, size, format_.channels) == 0 ||
        av_new_packet(packet_, static_cast<int>(size)) < 0)
    {
        return false;
    }
    std::memcpy(packet_->data, frame, size);
    const int taken = avcodec_send_packet(context_, packet_);
    av_packet_unref(packet_);
    if (taken < 0)
    {
        return false;
    }
    bool whole = true;
    while (avcodec_receive_frame(context_, frame_) == 0)
    {
        whole = append(samples) && whole;
        av_frame_unref(frame_);
    }
    return whole;
}

bool LibavDecoder::append(std::vector<std::int16_t>& samples)
{
    const int channels = frame_->ch_layout.nb_channels;
    if (frame_->sample_rate <= 0 || channels <= 0)
    {
        return false;
    }
    switch (frame_->format)
    {
        case AV_SAMPLE_FMT_FLT:
        case AV_SAMPLE_FMT_FLTP:
            appendSamples<float>(*frame_, samples);
            break;
        case AV_SAMPLE_FMT_S16:
        case AV_SAMPLE_FMT_S16P:
            appendSamples<std::int16_t>(*frame_, samples);
            break;
        default:
            return false;
    }
    format_ = {frame_->sample_rate, channels};
    return true;
}

void LibavDecoder::reset()
{
    avcodec_flush_buffers(context_);
}

}  // namespace refhost

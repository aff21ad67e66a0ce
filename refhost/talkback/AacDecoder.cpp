#include "refhost/talkback/AacDecoder.h"

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

}  // namespace

std::unique_ptr<AacDecoder> AacDecoder::make(const std::string& config, const PcmFormat& recorded)
{
    std::unique_ptr<AacDecoder> decoder(new AacDecoder(recorded));
    return decoder->open(config) ? std::move(decoder) : nullptr;
}

AacDecoder::AacDecoder(const PcmFormat& recorded) : format_(recorded) {}

AacDecoder::~AacDecoder()
{
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    avcodec_free_context(&context_);
}

bool AacDecoder::open(const std::string& config)
{
    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    if (codec == nullptr || config.size() < 2)
    {
        return false;
    }
    context_ = avcodec_alloc_context3(codec);
    packet_ = av_packet_alloc();
    frame_ = av_frame_alloc();
    if (context_ == nullptr || packet_ == nullptr || frame_ == nullptr)
    {
        return false;
    }
    auto* const extra = static_cast<std::uint8_t*>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (extra == nullptr)
    {
        return false;
    }
    std::memcpy(extra, config.data(), config.size());
    context_->extradata = extra;
    context_->extradata_size = static_cast<int>(config.size());
    context_->thread_count = 1;
    return avcodec_open2(context_, codec, nullptr) == 0;
}

bool AacDecoder::decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples)
{
    samples.clear();
    if (size == 0 || av_new_packet(packet_, static_cast<int>(size)) < 0)
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

bool AacDecoder::append(std::vector<std::int16_t>& samples)
{
    const int channels = frame_->ch_layout.nb_channels;
    if (frame_->format != AV_SAMPLE_FMT_FLTP || frame_->sample_rate <= 0 || channels <= 0)
    {
        return false;
    }
    format_ = {frame_->sample_rate, channels};
    samples.reserve(samples.size() + static_cast<std::size_t>(frame_->nb_samples * channels));
    for (int i = 0; i < frame_->nb_samples; ++i)
    {
        for (int c = 0; c < channels; ++c)
        {
            const void* const plane = frame_->extended_data[c];
            samples.push_back(sampleOf(static_cast<const float*>(plane)[i]));
        }
    }
    return true;
}

void AacDecoder::reset()
{
    avcodec_flush_buffers(context_);
}

}  // namespace refhost

#include "refhost/fragments/OpusTranscoder.h"

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <cstring>

namespace refhost
{
namespace
{

constexpr int opusRate = 48000;
constexpr int maxChannels = 2;
constexpr int bitRate =
    32000;  // of a channel, bits a second: more than what the sampling rate of a telephone is worth
constexpr int blocksPerSecond = 50;
/// A block that begins so far from the end of the one before does not continue it.
constexpr Duration maxJump = std::chrono::milliseconds(100);

}  // namespace

std::shared_ptr<const MediaFormat> OpusTranscoder::formatFor(const MediaFormat& from)
{
    constexpr std::array<int, 5> rates{8000, 12000, 16000, 24000, opusRate};
    const bool telephone = from.codec == Codec::pcmu || from.codec == Codec::pcma;
    if (!telephone || std::find(rates.begin(), rates.end(), from.sampleRate) == rates.end() ||
        from.channels < 1 || from.channels > maxChannels)
    {
        return nullptr;
    }
    MediaFormat to;
    to.codec = Codec::opus;
    to.codecData = infoOf(Codec::opus).makeCodecData(from.channels);
    to.sampleRate = opusRate;
    to.channels = from.channels;
    return std::make_shared<const MediaFormat>(std::move(to));
}

std::unique_ptr<OpusTranscoder> OpusTranscoder::make(const std::shared_ptr<const MediaFormat>& from)
{
    std::unique_ptr<OpusTranscoder> made(new OpusTranscoder(from));
    return made->to_ != nullptr && made->openDecoder() && made->openEncoder() ? std::move(made) : nullptr;
}

OpusTranscoder::OpusTranscoder(const std::shared_ptr<const MediaFormat>& from)
    : from_(from),
      to_(formatFor(*from)),
      packet_(av_packet_alloc()),
      decoded_(av_frame_alloc()),
      frame_(av_frame_alloc())
{
}

OpusTranscoder::~OpusTranscoder()
{
    av_frame_free(&frame_);
    av_frame_free(&decoded_);
    av_packet_free(&packet_);
    avcodec_free_context(&encoder_);
    avcodec_free_context(&decoder_);
}

bool OpusTranscoder::openDecoder()
{
    const AVCodec* const codec = avcodec_find_decoder_by_name(infoOf(from_->codec).libavName);
    decoder_ = codec == nullptr ? nullptr : avcodec_alloc_context3(codec);
    if (decoder_ == nullptr || packet_ == nullptr || decoded_ == nullptr || frame_ == nullptr)
    {
        return false;
    }
    decoder_->sample_rate = from_->sampleRate;
    decoder_->thread_count = 1;
    av_channel_layout_default(&decoder_->ch_layout, from_->channels);
    return avcodec_open2(decoder_, codec, nullptr) == 0;
}

bool OpusTranscoder::openEncoder()
{
    const AVCodec* const codec = avcodec_find_encoder_by_name("libopus");
    encoder_ = codec == nullptr ? nullptr : avcodec_alloc_context3(codec);
    if (encoder_ == nullptr)
    {
        return false;
    }
    encoder_->sample_rate = from_->sampleRate;
    encoder_->sample_fmt = AV_SAMPLE_FMT_S16;
    encoder_->bit_rate = std::int64_t{bitRate} * from_->channels;
    encoder_->time_base = {1, from_->sampleRate};
    encoder_->thread_count = 1;
    av_channel_layout_default(&encoder_->ch_layout, from_->channels);
    av_opt_set(encoder_->priv_data, "frame_duration", "20", 0);
    if (avcodec_open2(encoder_, codec, nullptr) != 0 ||
        encoder_->frame_size != from_->sampleRate / blocksPerSecond)
    {
        return false;
    }
    frame_->format = AV_SAMPLE_FMT_S16;
    frame_->sample_rate = from_->sampleRate;
    frame_->nb_samples = encoder_->frame_size;
    av_channel_layout_default(&frame_->ch_layout, from_->channels);
    return av_frame_get_buffer(frame_, 0) == 0;
}

Duration OpusTranscoder::spanOf(std::size_t samples) const
{
    return RtpClock(static_cast<std::uint32_t>(from_->sampleRate)).span(static_cast<std::int64_t>(samples));
}

void OpusTranscoder::transcode(const EncodedUnit& unit, std::vector<EncodedUnitPtr>& out)
{
    const auto channels = static_cast<std::size_t>(from_->channels);
    const Duration jump = unit.captureTime - end_;
    if (jump > maxJump || jump < -maxJump)
    {
        samples_.clear();
    }
    const std::size_t before = samples_.size() / channels;
    if (!decode(unit))
    {
        return;
    }
    // Blocks say when they were captured: their times count, not the number of samples since the first one.
    MonotonicTime time = unit.captureTime - spanOf(before);
    end_ = time + spanOf(samples_.size() / channels);
    const auto block = static_cast<std::size_t>(encoder_->frame_size);
    while (samples_.size() >= block * channels)
    {
        encode(time, out);
        samples_.erase(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(block * channels));
        time += spanOf(block);
    }
}

/// Appends the block's samples.
bool OpusTranscoder::decode(const EncodedUnit& unit)
{
    // A second of audio is more than any block has.
    const auto max = static_cast<std::size_t>(from_->sampleRate) * static_cast<std::size_t>(from_->channels);
    if (unit.bytes.empty() || unit.bytes.size() > max ||
        av_new_packet(packet_, static_cast<int>(unit.bytes.size())) < 0)
    {
        return false;
    }
    std::memcpy(packet_->data, unit.bytes.data(), unit.bytes.size());
    const bool taken = avcodec_send_packet(decoder_, packet_) == 0;
    av_packet_unref(packet_);
    while (taken && avcodec_receive_frame(decoder_, decoded_) == 0)
    {
        if (decoded_->format == AV_SAMPLE_FMT_S16)
        {
            const auto count =
                static_cast<std::size_t>(decoded_->nb_samples) * static_cast<std::size_t>(from_->channels);
            const void* const samples = decoded_->data[0];  // which libav aligns
            const auto* const first = static_cast<const std::int16_t*>(samples);
            samples_.insert(samples_.end(), first, first + count);
        }
        av_frame_unref(decoded_);
    }
    return taken;
}

/// Encodes the first block of the samples.
void OpusTranscoder::encode(MonotonicTime time, std::vector<EncodedUnitPtr>& out)
{
    const auto count =
        static_cast<std::size_t>(encoder_->frame_size) * static_cast<std::size_t>(from_->channels);
    if (av_frame_make_writable(frame_) < 0)
    {
        return;
    }
    std::memcpy(frame_->data[0], samples_.data(), count * sizeof(std::int16_t));
    frame_->pts = position_;
    position_ += encoder_->frame_size;
    if (avcodec_send_frame(encoder_, frame_) < 0)
    {
        return;
    }
    while (avcodec_receive_packet(encoder_, packet_) == 0)
    {
        auto unit = std::make_shared<EncodedUnit>();
        unit->format = to_;
        unit->bytes.assign(packet_->data, packet_->data + packet_->size);
        // The encoder's delay: what is played first of a packet went in that much earlier.
        unit->captureTime = time - spanOf(static_cast<std::size_t>(std::max(encoder_->initial_padding, 0)));
        unit->decodeTime = unit->captureTime;
        unit->duration = spanOf(static_cast<std::size_t>(encoder_->frame_size));
        unit->keyFrame = true;
        out.push_back(std::move(unit));
        av_packet_unref(packet_);
    }
}

}  // namespace refhost

#include "refhost/talkback/ConvertingDecoder.h"

#include <algorithm>
#include <utility>

namespace refhost
{

ConvertingDecoder::ConvertingDecoder(std::unique_ptr<FrameDecoder> codec, int clockRate,
                                     const PcmFormat& format)
    : codec_(std::move(codec)), clockRate_(static_cast<std::uint32_t>(clockRate)), converter_(format)
{
}

bool ConvertingDecoder::decode(const std::uint8_t* frame, std::size_t size,
                               std::vector<std::int16_t>& samples)
{
    if (!codec_->decode(frame, size, decoded_))
    {
        return false;
    }
    concealer_.noteDecoded(codec_->format(), decoded_);
    return converter_.convert(codec_->format(), decoded_, samples);
}

void ConvertingDecoder::conceal(std::uint32_t ticks, std::vector<std::int16_t>& samples)
{
    const PcmFormat format = codec_->format();
    const std::uint64_t bounded = std::min(ticks, clockRate_ / 5);
    decoded_.clear();
    const std::uint64_t frames = bounded * static_cast<std::uint64_t>(format.sampleRate) / clockRate_;
    concealer_.makeUp(format, static_cast<std::size_t>(frames), decoded_);
    converter_.convert(format, decoded_, samples);
}

void ConvertingDecoder::reset()
{
    codec_->reset();
    concealer_.reset();
    converter_.reset();
}

}  // namespace refhost

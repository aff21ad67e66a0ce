#include "refhost/talkback/SampleConverter.h"

extern "C"
{
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace refhost
{

SampleConverter::SampleConverter(const PcmFormat& to) : to_(to) {}

SampleConverter::~SampleConverter()
{
    reset();
}

void SampleConverter::reset()
{
    swr_free(&context_);
}

bool SampleConverter::prepare(const PcmFormat& from)
{
    if (context_ != nullptr && from.sampleRate == from_.sampleRate && from.channels == from_.channels)
    {
        return true;
    }
    reset();
    AVChannelLayout in{};
    AVChannelLayout out{};
    av_channel_layout_default(&in, from.channels);
    av_channel_layout_default(&out, to_.channels);
    const bool made = swr_alloc_set_opts2(&context_, &out, AV_SAMPLE_FMT_S16, to_.sampleRate, &in,
                                          AV_SAMPLE_FMT_S16, from.sampleRate, 0, nullptr) == 0 &&
                      swr_init(context_) == 0;
    av_channel_layout_uninit(&in);
    av_channel_layout_uninit(&out);
    if (!made)
    {
        reset();
        return false;
    }
    from_ = from;
    return true;
}

bool SampleConverter::convert(const PcmFormat& from, const std::vector<std::int16_t>& samples,
                              std::vector<std::int16_t>& out)
{
    if (from.sampleRate == to_.sampleRate && from.channels == to_.channels)
    {
        reset();
        out.insert(out.end(), samples.begin(), samples.end());
        return true;
    }
    if (!prepare(from))
    {
        return false;
    }
    const int frames = static_cast<int>(samples.size() / static_cast<std::size_t>(from.channels));
    const int room = swr_get_out_samples(context_, frames);
    if (room < 0)
    {
        return false;
    }
    const std::size_t before = out.size();
    const auto channels = static_cast<std::size_t>(to_.channels);
    out.resize(before + static_cast<std::size_t>(room) * channels);
    auto* target = reinterpret_cast<std::uint8_t*>(out.data() + before);
    const auto* source = reinterpret_cast<const std::uint8_t*>(samples.data());
    const int made = swr_convert(context_, &target, room, &source, frames);
    out.resize(before + (made > 0 ? static_cast<std::size_t>(made) * channels : 0));
    return made >= 0;
}

}  // namespace refhost

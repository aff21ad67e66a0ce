#include "refhost/recording/SegmentMeasure.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

extern "C"
{
#include <libavformat/avformat.h>
}

namespace refhost
{
namespace
{

struct CloseInput
{
    void operator()(AVFormatContext* input) const
    {
        avformat_close_input(&input);
    }
};

struct FreePacket
{
    void operator()(AVPacket* packet) const
    {
        av_packet_free(&packet);
    }
};

struct TrackEnd
{
    std::int64_t lastNs = -1;  ///< timestamp of the last unit, -1 without any
    std::int64_t stepNs = 0;   ///< from the last but one to it

    void add(std::int64_t timeNs)
    {
        if (timeNs > lastNs)
        {
            stepNs = lastNs < 0 ? 0 : timeNs - lastNs;
            lastNs = timeNs;
        }
    }
};

}  // namespace

bool SegmentMeasure::take(const std::string& path, SegmentMeasure& measure)
{
    AVFormatContext* opened = avformat_alloc_context();
    if (opened == nullptr)
    {
        return false;
    }
    opened->flags |= AVFMT_FLAG_NOFILLIN | AVFMT_FLAG_NOPARSE;
    if (avformat_open_input(&opened, ("file:" + path).c_str(), av_find_input_format("matroska"), nullptr) < 0)
    {
        return false;
    }
    const std::unique_ptr<AVFormatContext, CloseInput> input(opened);
    const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    TrackEnd video;
    TrackEnd audio;
    while (av_read_frame(input.get(), packet.get()) >= 0)
    {
        const AVStream& stream = *input->streams[packet->stream_index];
        const bool isVideo = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        if (packet->pts != AV_NOPTS_VALUE)
        {
            (isVideo ? video : audio)
                .add(av_rescale_q(packet->pts, stream.time_base, AVRational{1, 1000000000}));
        }
        av_packet_unref(packet.get());
    }
    const TrackEnd& reference = video.lastNs < 0 ? audio : video;
    if (reference.lastNs < 0)
    {
        return false;
    }
    std::error_code problem;
    const auto bytes = std::filesystem::file_size(path, problem);
    if (problem)
    {
        return false;
    }
    measure.durationNs = reference.lastNs + reference.stepNs;
    measure.bytes = static_cast<std::int64_t>(bytes);
    return true;
}

}  // namespace refhost

#include "refhost/recording/SegmentMeasure.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>
#include <optional>

#include "refhost/recording/SegmentCutter.h"

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

using Result = SegmentMeasure::Result;

/// The time base of Duration.
constexpr AVRational nanoseconds{1, static_cast<int>(Duration::period::den)};

/// Max. failures of the demuxer in one file that are ignored.
constexpr int maxMalformed = 1000;

struct TrackEnd
{
    std::optional<Duration> last;  ///< timestamp of the last unit
    Duration step{};               ///< from the last but one to it

    void add(Duration time)
    {
        // A segment ends where its stream pauses, so a larger step is corruption.
        constexpr Duration maxStep = SegmentCutter::maxPause + SegmentCutter::maxHold;
        const bool advances = last ? time > *last : time >= Duration::zero();
        if (advances && time <= last.value_or(Duration::zero()) + maxStep)
        {
            step = last ? time - *last : Duration::zero();
            last = time;
        }
    }
};

// The demuxer's error for a file that it cannot open does not distinguish corruption from a failing disk.
Result resultWithoutDemuxer(const std::string& path)
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0)
    {
        return errno == ENOENT ? Result::nothing : Result::unreadable;
    }
    std::ifstream file(path, std::ios::binary);
    return file.is_open() && (status.st_size == 0 || file.get() != std::ifstream::traits_type::eof())
               ? Result::nothing
               : Result::unreadable;
}

}  // namespace

Result SegmentMeasure::take(const std::string& path, SegmentMeasure& measure,
                            const std::atomic<bool>* stopping)
{
    AVFormatContext* opened = avformat_alloc_context();
    if (opened == nullptr)
    {
        return Result::unreadable;
    }
    opened->flags |= AVFMT_FLAG_NOFILLIN | AVFMT_FLAG_NOPARSE;
    if (avformat_open_input(&opened, ("file:" + path).c_str(), av_find_input_format("matroska"), nullptr) < 0)
    {
        return resultWithoutDemuxer(path);
    }
    const std::unique_ptr<AVFormatContext, CloseInput> input(opened);
    const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    TrackEnd video;
    TrackEnd audio;
    int malformed = 0;
    while (stopping == nullptr || !*stopping)
    {
        const int status = av_read_frame(input.get(), packet.get());
        // There may be more after a malformed packet.
        if (status == AVERROR_INVALIDDATA && ++malformed < maxMalformed)
        {
            continue;
        }
        if (status < 0)
        {
            break;
        }
        const AVStream& stream = *input->streams[packet->stream_index];
        const bool isVideo = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        if (packet->pts != AV_NOPTS_VALUE)
        {
            (isVideo ? video : audio).add(Duration(av_rescale_q(packet->pts, stream.time_base, nanoseconds)));
        }
        av_packet_unref(packet.get());
    }
    const bool failing =
        (input->pb->error < 0 && input->pb->error != AVERROR_EOF) || (stopping != nullptr && *stopping);
    const TrackEnd& reference = video.last ? video : audio;
    struct stat status
    {
    };
    if (failing || ::stat(path.c_str(), &status) != 0)
    {
        return Result::unreadable;
    }
    if (!reference.last)
    {
        return Result::nothing;
    }
    measure.duration = std::max(*reference.last + reference.step, minDuration);
    measure.bytes = static_cast<std::int64_t>(status.st_size);
    return Result::media;
}

}  // namespace refhost

#include "refhost/recording/SegmentWriter.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "refhost/media/AvSeek.h"
#include "refhost/media/Codec.h"

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace refhost
{
namespace
{

constexpr int bufferSize = 65536;
/// Other writers compete for the room that is made.
constexpr int maxAttempts = 16;
constexpr std::int64_t firstDecodeMs = -(std::int64_t{1} << 48);

AVCodecID libavCodec(Codec codec)
{
    const AVCodecDescriptor* const known = avcodec_descriptor_get_by_name(infoOf(codec).libavName);
    return known == nullptr ? AV_CODEC_ID_NONE : known->id;
}

/// Rounded to the nearest, half away from zero.
std::int64_t inMilliseconds(Duration span)
{
    constexpr Duration half = std::chrono::microseconds(500);
    const Duration rounded = span < Duration::zero() ? span - half : span + half;
    return std::chrono::duration_cast<std::chrono::milliseconds>(rounded).count();
}

}  // namespace

std::unique_ptr<SegmentWriter> SegmentWriter::create(const std::string& path, const Begin& begin,
                                                     const SegmentSink::Tracks& tracks, std::string& error,
                                                     MakeRoom makeRoom)
{
    std::unique_ptr<SegmentWriter> file(new SegmentWriter(path, begin, std::move(makeRoom)));
    if (!file->openFile())
    {
        error = file->error();
        return nullptr;
    }
    if (!file->start(tracks))
    {
        error = file->error();
        ::unlink(path.c_str());
        return nullptr;
    }
    return file;
}

bool SegmentWriter::accepts(const MediaFormat& format)
{
    // The muxer decides: it writes a header that is discarded.
    SegmentWriter trial(std::string(), {}, {});
    trial.discards_ = true;
    return trial.start({std::make_shared<const MediaFormat>(format)});
}

bool SegmentWriter::isFull(int failure)
{
    return failure == ENOSPC || failure == EDQUOT;
}

SegmentWriter::SegmentWriter(std::string path, const Begin& begin, MakeRoom makeRoom)
    : path_(std::move(path)), begin_(begin), makeRoom_(std::move(makeRoom))
{
}

bool SegmentWriter::openFile()
{
    for (int attempt = 0;; ++attempt)
    {
        Descriptor file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
        const int failure = errno;
        if (file)
        {
            file_ = std::make_shared<SyncedFile>(std::move(file), path_);
            return true;
        }
        if (!getsRoom(failure, attempt))
        {
            error_ = path_ + ": " + std::strerror(failure);
            return false;
        }
    }
}

bool SegmentWriter::getsRoom(int failure, int attempt) const
{
    return isFull(failure) && makeRoom_ && attempt < maxAttempts && makeRoom_(attempt > 0);
}

SegmentWriter::~SegmentWriter()
{
    av_packet_free(&packet_);
    avformat_free_context(format_);
    if (output_ != nullptr)
    {
        av_freep(&output_->buffer);
        avio_context_free(&output_);
    }
}

bool SegmentWriter::start(const SegmentSink::Tracks& tracks)
{
    auto* buffer = static_cast<unsigned char*>(av_malloc(bufferSize));
    output_ = avio_alloc_context(buffer, bufferSize, 1, this, nullptr, &SegmentWriter::onWrite,
                                 &SegmentWriter::onSeek);
    packet_ = av_packet_alloc();
    if (avformat_alloc_output_context2(&format_, nullptr, "matroska", nullptr) < 0 || output_ == nullptr ||
        packet_ == nullptr)
    {
        error_ = "out of memory";
        return false;
    }
    format_->pb = output_;
    // Timestamp 0 is the begin, even with earlier units: shifted timestamps would not match the wall clock.
    format_->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    const auto whole = std::chrono::floor<std::chrono::seconds>(begin_.wall);
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(begin_.wall - whole);
    const std::string begin =
        fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(unixSeconds(begin_.wall)), rest.count());
    av_dict_set(&format_->metadata, "creation_time", begin.c_str(), 0);
    for (const auto& track : tracks)
    {
        if (!addTrack(*track))
        {
            error_ = "out of memory";
            return false;
        }
    }
    return succeeded(avformat_write_header(format_, nullptr)) && flush();
}

bool SegmentWriter::addTrack(const MediaFormat& format)
{
    AVStream* stream = avformat_new_stream(format_, nullptr);
    if (stream == nullptr)
    {
        return false;
    }
    stream->time_base = AVRational{1, 1000};
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = isVideo(format.codec) ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = libavCodec(format.codec);
    parameters.width = format.width;
    parameters.height = format.height;
    if (!isVideo(format.codec))
    {
        parameters.sample_rate = format.sampleRate;
        av_channel_layout_default(&parameters.ch_layout, format.channels);
        parameters.bits_per_coded_sample = av_get_bits_per_sample(parameters.codec_id);
        parameters.block_align = format.channels * parameters.bits_per_coded_sample / 8;
    }
    if (format.codecData.empty())
    {
        return true;
    }
    auto* extra =
        static_cast<std::uint8_t*>(av_mallocz(format.codecData.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (extra == nullptr)
    {
        return false;
    }
    std::copy(format.codecData.begin(), format.codecData.end(), extra);
    parameters.extradata = extra;
    parameters.extradata_size = static_cast<int>(format.codecData.size());
    return true;
}

bool SegmentWriter::write(std::size_t track, const EncodedUnit& unit)
{
    if (!error_.empty())
    {
        return false;
    }
    packet_->data = const_cast<std::uint8_t*>(unit.bytes.data());
    packet_->size = static_cast<int>(unit.bytes.size());
    packet_->stream_index = static_cast<int>(track);
    packet_->pts = inMilliseconds(unit.captureTime - begin_.capture);
    // Matroska holds no decode times, but the muxer refuses those that decrease or exceed the presentation
    // time. A counter far below every presentation time never does.
    packet_->dts = firstDecodeMs + unitsWritten_++;
    packet_->duration = inMilliseconds(unit.duration);
    packet_->flags = unit.keyFrame ? AV_PKT_FLAG_KEY : 0;
    const int result = packet_->size > 0 ? av_write_frame(format_, packet_) : AVERROR_INVALIDDATA;
    av_packet_unref(packet_);
    if (result < 0 && systemError_ == 0 && output_->error >= 0)
    {
        ++leftOut_;
        return true;
    }
    return succeeded(result);
}

bool SegmentWriter::flush()
{
    if (!error_.empty())
    {
        return false;
    }
    const int result = av_write_frame(format_, nullptr);
    avio_flush(output_);
    return succeeded(result);
}

bool SegmentWriter::close()
{
    if (!error_.empty())
    {
        return false;
    }
    const int result = av_write_trailer(format_);
    avio_flush(output_);
    return succeeded(result);
}

bool SegmentWriter::succeeded(int result)
{
    if (result >= 0 && systemError_ == 0 && output_->error >= 0)
    {
        return true;
    }
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(result < 0 ? result : output_->error, text, sizeof(text));
    error_ = path_ + ": " + (systemError_ != 0 ? std::strerror(systemError_) : text);
    return false;
}

int SegmentWriter::onWrite(void* self, std::uint8_t* data, int size)
{
    auto* file = static_cast<SegmentWriter*>(self);
    int done = file->discards_ ? size : 0;
    int attempt = 0;
    while (done < size)
    {
        const ssize_t written = ::pwrite(file->file_->descriptor(), data + done,
                                         static_cast<std::size_t>(size - done), file->position_);
        const int failure = errno;
        if (written < 0 && (failure == EINTR || file->getsRoom(failure, attempt++)))
        {
            continue;
        }
        if (written <= 0)
        {
            file->systemError_ = written < 0 ? failure : EIO;
            return AVERROR(file->systemError_);
        }
        done += static_cast<int>(written);
        file->position_ += written;
        file->size_ = std::max(file->size_, file->position_);
    }
    return size;
}

std::int64_t SegmentWriter::onSeek(void* self, std::int64_t offset, int whence)
{
    auto* const file = static_cast<SegmentWriter*>(self);
    return avSeek(file->position_, file->size_, offset, whence);
}

}  // namespace refhost

#include "refhost/playback/SegmentFile.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

/// The time base of Duration.
constexpr AVRational nanoseconds{1, static_cast<int>(Duration::period::den)};

std::string textOf(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof(text));
    return text;
}

/// Whether a decoder does. Does not read media.
bool acceptsParameters(const AVStream& stream)
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

}  // namespace

void SegmentFile::FreePacket::operator()(AVPacket* packet) const
{
    av_packet_free(&packet);
}

void SegmentFile::CloseInput::operator()(AVFormatContext* context) const
{
    avformat_close_input(&context);
}

SegmentFile::~SegmentFile() = default;

std::unique_ptr<SegmentFile> SegmentFile::open(const std::string& path, std::string& error)
{
    std::unique_ptr<SegmentFile> file(new SegmentFile(path));
    if (!file->openInput(error))
    {
        return nullptr;
    }
    if (!file->chooseTracks())
    {
        error = "it holds nothing that can be sent";
        return nullptr;
    }
    return file;
}

std::unique_ptr<SegmentFile> SegmentFile::again(std::string& error) const
{
    auto file = open(path_, error);
    const int stream = video_ ? videoIndex_ : audioIndex_;
    if (!file || stream >= static_cast<int>(file->input_->nb_streams))
    {
        return file;
    }
    AVStream* const known = input_->streams[stream];
    const int count = avformat_index_get_entries_count(known);
    if (count > 0)
    {
        const AVIndexEntry* const last = avformat_index_get_entry(known, count - 1);
        av_add_index_entry(file->input_->streams[stream], last->pos, last->timestamp, last->size,
                           last->min_distance, AVINDEX_KEYFRAME);
    }
    return file;
}

void SegmentFile::reportLeftOut(const std::string& path, const std::string& error)
{
    const bool gone = ::access(path.c_str(), F_OK) != 0 && errno == ENOENT;
    Log::write(gone ? Log::Level::info : Log::Level::warning,
               fmt::format("recording {} cannot be played: {}", path, error));
}

bool SegmentFile::openInput(std::string& error)
{
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr)
    {
        error = "out of memory";
        return false;
    }
    // Packets as they are in the file: parsers and guessed times would cost more than all the rest.
    context->flags |= AVFMT_FLAG_NOFILLIN | AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOBUFFER;
    const std::string url = "file:" + path_;
    const int status = avformat_open_input(&context, url.c_str(), av_find_input_format("matroska"), nullptr);
    if (status < 0)
    {
        error = textOf(status);
        return false;
    }
    input_.reset(context);
    return true;
}

bool SegmentFile::chooseTracks()
{
    for (unsigned i = 0; i < input_->nb_streams; ++i)
    {
        AVStream* const stream = input_->streams[i];
        std::optional<FileTrack> found = FileTrack::of(*stream);
        const bool video = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        std::optional<FileTrack>& place = video ? video_ : audio_;
        if (!found || place)
        {
            stream->discard = AVDISCARD_ALL;
            continue;
        }
        place = std::move(found);
        (video ? videoIndex_ : audioIndex_) = static_cast<int>(i);
    }
    return video_ || audio_;
}

bool SegmentFile::isDecodable(bool video) const
{
    const int stream = video ? videoIndex_ : audioIndex_;
    const bool has = (video ? video_ : audio_).has_value();
    return has && acceptsParameters(*input_->streams[stream]);
}

Duration SegmentFile::spanOf(std::int64_t timestamp, int stream) const
{
    return Duration(av_rescale_q(timestamp, input_->streams[stream]->time_base, nanoseconds));
}

bool SegmentFile::seek(Duration offset)
{
    kept_.clear();
    return (offset > Duration::zero() && seekByIndex(offset)) || seekByReading(offset);
}

bool SegmentFile::seekByIndex(Duration offset)
{
    const int stream = video_ ? videoIndex_ : audioIndex_;
    const std::int64_t timestamp =
        av_rescale_q(offset.count(), nanoseconds, input_->streams[stream]->time_base);
    if (av_seek_frame(input_.get(), stream, timestamp, AVSEEK_FLAG_BACKWARD) < 0)
    {
        return false;
    }
    return readKey(Duration::min()) && kept_.front().offset <= offset;
}

/// For files without a valid index, such as after a crash.
bool SegmentFile::seekByReading(Duration offset)
{
    if (!rewind())
    {
        return false;
    }
    if (offset <= Duration::zero())
    {
        return true;
    }
    Duration key{};
    CodedUnit unit;
    while (read(unit) == Result::unit && unit.offset <= offset)
    {
        if (unit.key && unit.video == video_.has_value())
        {
            key = unit.offset;
        }
    }
    return rewind() && readKey(key);
}

/// Reads up to the first key frame at or after a time; read() returns it again.
bool SegmentFile::readKey(Duration from)
{
    CodedUnit unit;
    while (read(unit) == Result::unit)
    {
        if (unit.key && unit.video == video_.has_value() && unit.offset >= from)
        {
            kept_.push_back(std::move(unit));
            return true;
        }
    }
    return false;
}

bool SegmentFile::rewind()
{
    std::string error;
    kept_.clear();
    input_.reset();
    return openInput(error);
}

SegmentFile::Result SegmentFile::read(CodedUnit& out)
{
    if (!kept_.empty())
    {
        out = std::move(kept_.front());
        kept_.pop_front();
        return Result::unit;
    }
    for (;;)
    {
        PacketPtr packet(av_packet_alloc());
        const int status = av_read_frame(input_.get(), packet.get());
        if (status < 0)
        {
            return status == AVERROR_EOF ? Result::end : Result::corrupt;
        }
        const int stream = packet->stream_index;
        if ((stream != videoIndex_ && stream != audioIndex_) || packet->pts == AV_NOPTS_VALUE ||
            packet->size <= 0)
        {
            continue;
        }
        out.video = stream == videoIndex_;
        out.key = !out.video || (packet->flags & AV_PKT_FLAG_KEY) != 0;
        out.offset = spanOf(packet->pts, stream);
        out.duration = packet->duration > 0 ? spanOf(packet->duration, stream) : Duration::zero();
        out.bytes.assign(packet->data, packet->data + packet->size);
        return Result::unit;
    }
}

}  // namespace refhost

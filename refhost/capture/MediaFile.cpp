#include "refhost/capture/MediaFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "refhost/media/AvSeek.h"

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

namespace refhost
{
namespace
{

constexpr int bufferSize = 64 * 1024;
constexpr std::int64_t probeSize = 1 << 20;
/// Their headers say all of their tracks. Playlists, which name other files, are not among them.
constexpr const char* formats = "matroska,webm,mov,mp4,m4a,3gp,3g2,mj2";
/// Far more than any file lasts; times behind it would overflow sums of them.
constexpr Duration maxTime = std::chrono::hours(24 * 365);
constexpr AVRational nanoseconds{1, static_cast<int>(Duration::period::den)};

std::string textOf(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof(text));
    return text;
}

}  // namespace

std::unique_ptr<MediaFile> MediaFile::open(const std::string& path, Kinds requested, Interrupted interrupted,
                                           Problem& problem)
{
    std::unique_ptr<MediaFile> file(new MediaFile(std::move(interrupted)));
    problem = {};
    if (!file->openFile(path, problem.text))
    {
        return nullptr;
    }
    if (file->openInput(problem.text) && file->choose(requested, problem.text))
    {
        return file;
    }
    problem.otherMeans = !file->interrupted_();
    return nullptr;
}

MediaFile::~MediaFile()
{
    av_packet_free(&packet_);
    avformat_close_input(&input_);
    if (io_ != nullptr)
    {
        av_freep(&io_->buffer);
        avio_context_free(&io_);
    }
}

bool MediaFile::openFile(const std::string& path, std::string& error)
{
    // Not blocking: the path may lead to a pipe that nobody writes to.
    file_ = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file_)
    {
        error = std::strerror(errno);
        return false;
    }
    struct stat status = {};
    if (::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode))
    {
        error = "not a file";
        return false;
    }
    size_ = status.st_size;
    return true;
}

bool MediaFile::openInput(std::string& error)
{
    auto* const buffer = static_cast<unsigned char*>(av_malloc(bufferSize));
    io_ = avio_alloc_context(buffer, bufferSize, 0, this, &MediaFile::onRead, nullptr, &MediaFile::onSeek);
    input_ = avformat_alloc_context();
    packet_ = av_packet_alloc();
    if (buffer == nullptr || io_ == nullptr || input_ == nullptr || packet_ == nullptr)
    {
        error = "out of memory";
        return false;
    }
    input_->pb = io_;
    // Units and times as they stand in the file.
    input_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_NOFILLIN | AVFMT_FLAG_NOPARSE;
    input_->probesize = probeSize;
    input_->format_whitelist = av_strdup(formats);
    input_->interrupt_callback = {&MediaFile::onInterrupt, this};
    const int status = avformat_open_input(&input_, nullptr, nullptr, nullptr);
    if (status < 0)
    {
        // The answer to formats that are not on the list.
        error = status == AVERROR(EINVAL) ? "it is neither MP4 nor Matroska" : textOf(status);
    }
    return status >= 0;
}

bool MediaFile::choose(Kinds requested, std::string& error)
{
    for (unsigned i = 0; i < input_->nb_streams; ++i)
    {
        AVStream& stream = *input_->streams[i];
        const bool video = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        const bool audio = stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
        const bool isPoster = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        Chosen& chosen = tracks_[video ? 0 : 1];
        if (!((video && requested.video) || (audio && requested.audio)) || isPoster || chosen.track)
        {
            stream.discard = AVDISCARD_ALL;
            continue;
        }
        chosen.stream = static_cast<int>(i);
        chosen.track = FileTrack::of(stream);
        if (!chosen.track)
        {
            error = std::string("its ") + avcodec_get_name(stream.codecpar->codec_id) +
                    " cannot be sent as it is";
            return false;
        }
    }
    if (!tracks_[0].track && !tracks_[1].track)
    {
        error = "it has neither video nor audio that is sent";
        return false;
    }
    return true;
}

MediaFile::Result MediaFile::read(Unit& out)
{
    for (;;)
    {
        av_packet_unref(packet_);
        const int status = av_read_frame(input_, packet_);
        if (status < 0)
        {
            return status == AVERROR_EOF ? Result::end : Result::corrupt;
        }
        if (take(*packet_, out))
        {
            return Result::unit;
        }
    }
}

/// \returns false for a packet that is left out
bool MediaFile::take(const AVPacket& packet, Unit& out)
{
    auto* const chosen = std::find_if(tracks_.begin(), tracks_.end(),
                                      [&](const Chosen& each) { return each.stream == packet.stream_index; });
    if (chosen == tracks_.end() || packet.size <= 0 || static_cast<std::size_t>(packet.size) > maxUnitBytes ||
        !takeFormat(packet, *chosen->track))
    {
        return false;
    }
    out.format = chosen->track->format;
    out.bytes.assign(packet.data, packet.data + packet.size);
    out.video = chosen == tracks_.begin();
    out.key = !out.video || (packet.flags & AV_PKT_FLAG_KEY) != 0;
    out.presentation = spanOf(packet.pts, packet.stream_index);
    out.decoding = spanOf(packet.dts, packet.stream_index);
    out.duration = packet.duration > 0 ? spanOf(packet.duration, packet.stream_index) : std::nullopt;
    return true;
}

/// A file may have several sample descriptions. \returns false for one that cannot be sent
bool MediaFile::takeFormat(const AVPacket& packet, FileTrack& track) const
{
    std::size_t size = 0;
    const std::uint8_t* const data = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (data == nullptr || size == 0 || !infoOf(track.codec()).needsCodecData)
    {
        return true;
    }
    if (isVideo(track.codec()) && data[0] != 1)
    {
        return false;
    }
    auto format = std::make_shared<MediaFormat>(*track.format);
    format->codecData.assign(data, data + size);
    track.format = std::move(format);
    return true;
}

std::optional<Duration> MediaFile::spanOf(std::int64_t time, int stream) const
{
    if (time == AV_NOPTS_VALUE)
    {
        return std::nullopt;
    }
    const Duration span(av_rescale_q(time, input_->streams[stream]->time_base, nanoseconds));
    return span > -maxTime && span < maxTime ? std::optional(span) : std::nullopt;
}

int MediaFile::onRead(void* self, std::uint8_t* data, int size)
{
    auto* const file = static_cast<MediaFile*>(self);
    if (file->interrupted_())
    {
        return AVERROR_EXIT;
    }
    ssize_t got = 0;
    do
    {
        got = ::pread(file->file_.get(), data, static_cast<std::size_t>(size), file->position_);
    } while (got < 0 && errno == EINTR);
    if (got <= 0)
    {
        return got < 0 ? AVERROR(errno) : AVERROR_EOF;
    }
    file->position_ += got;
    return static_cast<int>(got);
}

std::int64_t MediaFile::onSeek(void* self, std::int64_t offset, int whence)
{
    auto* const file = static_cast<MediaFile*>(self);
    return avSeek(file->position_, file->size_, offset, whence);
}

int MediaFile::onInterrupt(void* self)
{
    return static_cast<const MediaFile*>(self)->interrupted_() ? 1 : 0;
}

}  // namespace refhost

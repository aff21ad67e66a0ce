#include "refhost/export/Mp4Export.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace refhost
{
namespace
{

using Milliseconds = ExportTrack::Milliseconds;

/// Audio and video alternate in chunks of this length.
constexpr Milliseconds chunkLength = 1000;

/// FNV-1a.
std::uint64_t digest(const std::vector<std::uint8_t>& bytes, std::uint64_t value)
{
    constexpr std::uint64_t prime = 0x100000001b3;
    for (const std::uint8_t byte : bytes)
    {
        value = (value ^ byte) * prime;
    }
    return value;
}

}  // namespace

std::unique_ptr<Mp4Export> Mp4Export::open(const RecordingDirectory& directory,
                                           const ExportPlan::Request& request, ExportPlan::Problem& problem,
                                           std::string& error)
{
    auto made = std::make_unique<Mp4Export>();
    problem = made->plan_.make(directory, request, error);
    if (problem != ExportPlan::Problem::none)
    {
        return nullptr;
    }
    made->arrange();
    return made;
}

void Mp4Export::arrange()
{
    const ExportTrack& video = plan_.track(true);
    const ExportTrack& audio = plan_.track(false);
    std::size_t nextFrame = 0;
    std::size_t nextBlock = 0;
    std::size_t videoRun = 0;
    std::size_t audioRun = 0;
    std::uint64_t mediaSize = 0;
    while (nextFrame < video.count() || nextBlock < audio.count())
    {
        constexpr Milliseconds never = std::numeric_limits<Milliseconds>::max();
        const Milliseconds frame = nextFrame < video.count() ? video.decodeTime(nextFrame) : never;
        const Milliseconds block = nextBlock < audio.count() ? audio.decodeTime(nextBlock) : never;
        const Milliseconds first = std::min(frame, block);
        const Milliseconds until = first > never - chunkLength ? never : first + chunkLength;
        while (nextFrame < video.count() && video.decodeTime(nextFrame) < until)
        {
            mediaSize = addChunk(video, nextFrame, videoRun, until, mediaSize);
        }
        while (nextBlock < audio.count() && audio.decodeTime(nextBlock) < until)
        {
            mediaSize = addChunk(audio, nextBlock, audioRun, until, mediaSize);
        }
    }
    header_ = ExportHeader::write(plan_, chunks_, mediaSize);
    size_ = header_.size() + mediaSize;
    constexpr std::uint64_t basis = 0xcbf29ce484222325;
    std::uint64_t name = digest(header_, basis);
    for (const ExportPlan::Segment& segment : plan_.segments())
    {
        name = digest({segment.path.begin(), segment.path.end()}, name ^ segment.inode);
    }
    tag_ = fmt::format("{:016x}", name);
    plan_.track(true).forgetTimes();
    plan_.track(false).forgetTimes();
}

/// Adds a chunk of the samples of one run that are decoded before a time.
/// \returns the offset behind it
std::uint64_t Mp4Export::addChunk(const ExportTrack& track, std::size_t& next, std::size_t& run,
                                  Milliseconds until, std::uint64_t offset)
{
    while (run + 1 < track.runs().size() && track.runs()[run + 1].first <= next)
    {
        ++run;
    }
    const std::size_t end = run + 1 < track.runs().size() ? track.runs()[run + 1].first : track.count();
    Chunk chunk;
    chunk.offset = offset;
    chunk.first = static_cast<std::uint32_t>(next);
    chunk.segment = track.runs()[run].segment;
    chunk.description = track.runs()[run].description;
    chunk.video = track.isVideo();
    while (next < end && track.decodeTime(next) < until)
    {
        offset += track.place(next).size;
        ++next;
    }
    chunk.count = static_cast<std::uint32_t>(next) - chunk.first;
    chunks_.push_back(chunk);
    return offset;
}

std::optional<std::size_t> Mp4Export::read(std::uint64_t offset, std::uint8_t* out, std::size_t count,
                                           std::string& error)
{
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - std::min(offset, size_)));
    std::size_t done = 0;
    if (offset < header_.size())
    {
        done = std::min(count, header_.size() - static_cast<std::size_t>(offset));
        std::copy_n(header_.begin() + static_cast<std::ptrdiff_t>(offset), done, out);
    }
    while (done < count)
    {
        const std::size_t got = readMedia(offset + done, out + done, count - done, error);
        if (got == 0)
        {
            return std::nullopt;
        }
        done += got;
    }
    return done;
}

/// Reads from the chunk that an offset lies in. \returns 0 on failure
std::size_t Mp4Export::readMedia(std::uint64_t offset, std::uint8_t* out, std::size_t count,
                                 std::string& error)
{
    const auto behind =
        std::upper_bound(chunks_.begin(), chunks_.end(), offset,
                         [](std::uint64_t value, const Chunk& chunk) { return value < chunk.offset; });
    const Chunk& chunk = *(behind - 1);
    return openSegment(chunk.segment, error) ? readChunk(chunk, offset, out, count, error) : 0;
}

std::size_t Mp4Export::readChunk(const Chunk& chunk, std::uint64_t offset, std::uint8_t* out,
                                 std::size_t count, std::string& error)
{
    const ExportTrack& track = plan_.track(chunk.video);
    std::uint64_t start = chunk.offset;
    std::size_t done = 0;
    for (std::size_t i = chunk.first; i < std::size_t{chunk.first} + chunk.count && done < count; ++i)
    {
        const ExportTrack::Place place = track.place(i);
        const std::uint64_t at = offset + done;
        if (at < start + place.size)
        {
            const std::uint64_t skipped = at - start;
            const auto part =
                static_cast<std::size_t>(std::min<std::uint64_t>(place.size - skipped, count - done));
            if (!readSegment(place.position + skipped, out + done, part, error))
            {
                return 0;
            }
            done += part;
        }
        start += place.size;
    }
    return done;
}

bool Mp4Export::openSegment(std::uint32_t number, std::string& error)
{
    if (fileNumber_ == number)
    {
        return true;
    }
    const ExportPlan::Segment& segment = plan_.segments()[number];
    fileNumber_.reset();
    file_ = Descriptor(::open(segment.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status
    {
    };
    if (!file_ || ::fstat(file_.get(), &status) != 0)
    {
        error = errno == ENOENT ? "recording " + segment.path + " was removed meanwhile"
                                : segment.path + ": " + std::strerror(errno);
        return false;
    }
    if (status.st_dev != segment.device || status.st_ino != segment.inode)
    {
        error = "recording " + segment.path + " was replaced meanwhile";
        return false;
    }
    fileNumber_ = number;
    ::posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return true;
}

bool Mp4Export::readSegment(std::uint64_t position, std::uint8_t* out, std::size_t count,
                            std::string& error) const
{
    while (count > 0)
    {
        const ssize_t got = ::pread(file_.get(), out, count, static_cast<off_t>(position));
        if (got < 0 && errno == EINTR)
        {
            continue;
        }
        if (got <= 0)
        {
            const std::string& path = plan_.segments()[*fileNumber_].path;
            error = got < 0 ? path + ": " + std::strerror(errno)
                            : "recording " + path + " became shorter meanwhile";
            return false;
        }
        out += got;
        position += static_cast<std::uint64_t>(got);
        count -= static_cast<std::size_t>(got);
    }
    return true;
}

}  // namespace refhost

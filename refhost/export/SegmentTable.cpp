#include "refhost/export/SegmentTable.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "refhost/base/ByteOrder.h"
#include "refhost/playback/SegmentFile.h"

namespace refhost
{
namespace
{

// Elements of Matroska (RFC 9559, section 5.1). Those that are not named are skipped with all that they hold.
constexpr std::uint32_t idSegment = 0x18538067;
constexpr std::uint32_t idInfo = 0x1549A966;
constexpr std::uint32_t idTimestampScale = 0x2AD7B1;
constexpr std::uint32_t idTracks = 0x1654AE6B;
constexpr std::uint32_t idTrackEntry = 0xAE;
constexpr std::uint32_t idTrackNumber = 0xD7;
constexpr std::uint32_t idTrackType = 0x83;
constexpr std::uint32_t idContentEncodings = 0x6D80;
constexpr std::uint32_t idCluster = 0x1F43B675;
constexpr std::uint32_t idTimestamp = 0xE7;
constexpr std::uint32_t idSimpleBlock = 0xA3;
constexpr std::uint32_t idBlockGroup = 0xA0;
constexpr std::uint32_t idBlock = 0xA1;
constexpr std::uint32_t idReferenceBlock = 0xFB;

constexpr std::uint64_t typeVideo = 1;
constexpr std::uint64_t typeAudio = 2;
/// Elements of a file that come before its first cluster.
constexpr int maxHeaderElements = 1000;
constexpr int maxGroupElements = 32;
/// Beyond all times that a recording has, and far from overflow.
constexpr std::uint64_t maxTime = std::uint64_t{1} << 40U;
constexpr std::uint64_t maxScale = 1'000'000'000;

bool isMaster(std::uint32_t id)
{
    return id == idSegment || id == idInfo || id == idTracks || id == idTrackEntry || id == idCluster;
}

}  // namespace

std::unique_ptr<SegmentTable> SegmentTable::open(const std::string& path, std::string& error)
{
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status
    {
    };
    if (!file || ::fstat(file.get(), &status) != 0)
    {
        error = std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<SegmentTable> table(new SegmentTable(std::move(file)));
    table->fileSize_ = std::min(static_cast<std::uint64_t>(status.st_size), maxFileBytes);
    // What a track holds is the demuxer's knowledge; where it lies is read here.
    const auto media = SegmentFile::open(path, error);
    if (!media)
    {
        return nullptr;
    }
    if (media->video() != nullptr)
    {
        table->video_ = media->video()->format;
    }
    if (media->audio() != nullptr)
    {
        table->audio_ = media->audio()->format;
    }
    return table->readTracks(error) ? std::move(table) : nullptr;
}

/// Reads up to the first cluster.
bool SegmentTable::readTracks(std::string& error)
{
    Element element;
    for (int i = 0; i < maxHeaderElements && readElement(position_, element); ++i)
    {
        if (element.id == idTrackEntry || element.id == idCluster)
        {
            endTrack();
        }
        if (element.id == idCluster)
        {
            break;
        }
        if (element.id == idTrackEntry)
        {
            track_ = Track{0, 0, false};
        }
        else if (element.id == idTimestampScale)
        {
            scale_ = std::clamp(unsignedOf(element), std::uint64_t{1}, maxScale);
        }
        else if (track_ && element.id == idTrackNumber)
        {
            track_->number = unsignedOf(element);
        }
        else if (track_ && element.id == idTrackType)
        {
            track_->type = unsignedOf(element);
        }
        else if (track_ && element.id == idContentEncodings)
        {
            track_->encoded = true;
        }
        position_ = isMaster(element.id) ? element.body : element.body + element.size.value_or(0);
    }
    endTrack();
    video_ = videoNumber_ != 0 ? video_ : nullptr;
    audio_ = audioNumber_ != 0 ? audio_ : nullptr;
    if (encoded_ || (!video_ && !audio_))
    {
        error = encoded_ ? "its tracks are compressed" : "it holds nothing that can be exported";
        return false;
    }
    return true;
}

void SegmentTable::endTrack()
{
    if (!track_)
    {
        return;
    }
    const Track track = *std::exchange(track_, std::nullopt);
    std::uint64_t& place = track.type == typeVideo ? videoNumber_ : audioNumber_;
    if ((track.type == typeVideo || track.type == typeAudio) && place == 0)
    {
        place = track.number;
        encoded_ = encoded_ || track.encoded;
    }
}

/// A number of variable length (RFC 8794, section 4).
std::optional<std::uint64_t> SegmentTable::readNumber(std::uint64_t at, bool keepMarker, std::size_t& length)
{
    constexpr std::size_t maxLength = 8;
    const std::uint8_t* bytes = window_.look(at, 1);
    if (bytes == nullptr || *bytes == 0)
    {
        return std::nullopt;
    }
    length = 1;
    while (length < maxLength && (*bytes & (0x80U >> (length - 1))) == 0)
    {
        ++length;
    }
    const unsigned marker = 0x80U >> (length - 1);
    bytes = window_.look(at, length);
    if (bytes == nullptr)
    {
        return std::nullopt;
    }
    std::uint64_t value = keepMarker ? bytes[0] : bytes[0] & ~marker;
    for (std::size_t i = 1; i < length; ++i)
    {
        value = value << 8U | bytes[i];
    }
    return value;
}

/// \returns false at the end of the file, and where no element can be
bool SegmentTable::readElement(std::uint64_t at, Element& out)
{
    constexpr std::size_t maxIdLength = 4;
    std::size_t idLength = 0;
    std::size_t sizeLength = 0;
    const auto id = readNumber(at, true, idLength);
    if (!id || idLength > maxIdLength)
    {
        return false;
    }
    const auto size = readNumber(at + idLength, false, sizeLength);
    if (!size)
    {
        return false;
    }
    out.id = static_cast<std::uint32_t>(*id);
    out.body = at + idLength + sizeLength;
    const std::uint64_t unknown = (std::uint64_t{1} << (7 * sizeLength)) - 1;
    out.size = *size == unknown ? std::nullopt : std::optional<std::uint64_t>(*size);
    // A cut file's segment and last cluster end behind the file.
    return isMaster(out.id) || (out.size && *out.size <= fileSize_ && out.body <= fileSize_ - *out.size);
}

/// \returns 0 for one that cannot be read
std::uint64_t SegmentTable::unsignedOf(const Element& element)
{
    constexpr std::uint64_t maxSize = 8;
    const auto size = static_cast<std::size_t>(element.size.value_or(0));
    const std::uint8_t* const bytes =
        size == 0 || size > maxSize ? nullptr : window_.look(element.body, size);
    std::uint64_t value = 0;
    for (std::size_t i = 0; bytes != nullptr && i < size; ++i)
    {
        value = value << 8U | bytes[i];
    }
    return value;
}

SegmentTable::Result SegmentTable::next(Sample& out)
{
    Element element;
    while (position_ < fileSize_)
    {
        if (!readElement(position_, element))
        {
            return resync() ? Result::corrupt : Result::end;
        }
        if (isMaster(element.id))
        {
            position_ = element.body;
            continue;
        }
        position_ = element.body + *element.size;
        if (element.id == idTimestamp)
        {
            clusterTime_ = std::min(unsignedOf(element), maxTime);
        }
        else if ((element.id == idSimpleBlock && readBlock(element, out)) ||
                 (element.id == idBlockGroup && readGroup(element, out)))
        {
            return Result::sample;
        }
    }
    return Result::end;
}

/// A block with what is said about it, which comes behind it.
bool SegmentTable::readGroup(const Element& group, Sample& out)
{
    const std::uint64_t end = group.body + *group.size;
    std::uint64_t at = group.body;
    bool found = false;
    bool refers = false;
    Element element;
    for (int i = 0; i < maxGroupElements && at < end && readElement(at, element); ++i)
    {
        if (!element.size || element.body + *element.size > end)
        {
            return false;
        }
        found = found || (element.id == idBlock && readBlock(element, out));
        refers = refers || element.id == idReferenceBlock;
        at = element.body + *element.size;
    }
    out.key = !out.video || !refers;
    return found;
}

/// \returns false for one of another track, and for one without media or with several units
bool SegmentTable::readBlock(const Element& block, Sample& out)
{
    constexpr std::size_t timeAndFlags = 3;
    constexpr unsigned keyFlag = 0x80;
    constexpr unsigned lacing = 0x06;
    std::size_t length = 0;
    const auto number = readNumber(block.body, false, length);
    const std::uint64_t header = length + timeAndFlags;
    if (!number || *number == 0 || (*number != videoNumber_ && *number != audioNumber_) ||
        *block.size <= header || *block.size - header > maxSampleBytes)
    {
        return false;
    }
    const auto head =
        static_cast<std::size_t>(std::min<std::uint64_t>(out.head.size(), *block.size - header));
    const std::uint8_t* const bytes = window_.look(block.body + length, timeAndFlags + head);
    if (bytes == nullptr || (bytes[2] & lacing) != 0)
    {
        return false;
    }
    out.video = *number == videoNumber_;
    if (!format(out.video))
    {
        return false;
    }
    const auto relative = static_cast<std::int16_t>(readBig16(bytes));
    const std::int64_t time = static_cast<std::int64_t>(clusterTime_) + relative;
    out.offset = time >= 0 && static_cast<std::uint64_t>(time) > maxTime * 1'000'000 / scale_
                     ? Duration::max()
                     : Duration(time * static_cast<std::int64_t>(scale_));
    out.key = !out.video || (bytes[2] & keyFlag) != 0;
    out.position = block.body + header;
    out.size = static_cast<std::uint32_t>(*block.size - header);
    out.head = {};
    std::copy_n(bytes + timeAndFlags, head, out.head.begin());
    return true;
}

/// Goes to the next cluster behind corruption. \returns false when there is none
bool SegmentTable::resync()
{
    constexpr std::size_t idBytes = 4;
    for (std::uint64_t at = position_ + 1; at < fileSize_ && fileSize_ - at >= idBytes;)
    {
        const std::uint8_t* const bytes = window_.look(at, idBytes);
        if (bytes == nullptr)
        {
            return false;
        }
        const std::size_t held = window_.held(at);
        const std::size_t last = held - idBytes;
        for (std::size_t i = 0; i <= last; ++i)
        {
            if (readBig32(bytes + i) == idCluster)
            {
                position_ = at + i;
                return true;
            }
        }
        at += last + 1;
    }
    return false;
}

}  // namespace refhost

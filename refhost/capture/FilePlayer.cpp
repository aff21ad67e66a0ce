#include "refhost/capture/FilePlayer.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

namespace refhost
{
namespace
{

constexpr std::size_t videoTrack = 0;
constexpr std::size_t audioTrack = 1;

/// Containers store PCM in blocks of up to a second, which would leave in bursts.
constexpr Duration pcmBlock = std::chrono::milliseconds(20);

/// \returns samples for each channel in a unit of audio; 0 when the codec does not say
std::uint32_t samplesOf(const MediaFormat& format, const std::uint8_t* data, std::size_t size)
{
    return infoOf(format.codec).samplesIn(data, size, std::max(format.channels, 1));
}

int rateOf(const MediaFormat& format)
{
    const int rate = infoOf(format.codec).clockRate;
    return rate > 0 ? rate : format.sampleRate;
}

Duration lengthOf(std::uint32_t samples, const MediaFormat& format)
{
    const int rate = rateOf(format);
    return rate > 0 ? RtpClock(static_cast<std::uint32_t>(rate)).span(samples) : Duration::zero();
}

bool isPcm(Codec codec)
{
    return codec == Codec::pcmu || codec == Codec::pcma;
}

std::size_t numberOf(bool video)
{
    return video ? videoTrack : audioTrack;
}

}  // namespace

FilePlayer::FilePlayer(std::string path, MediaFile::Kinds requested, MediaFile::Interrupted interrupted)
    : path_(std::move(path)), requested_(requested), interrupted_(std::move(interrupted))
{
    timeline_.addTrack();
    timeline_.addTrack();
}

bool FilePlayer::open(MediaFile::Problem& problem)
{
    file_ = MediaFile::open(path_, requested_, interrupted_, problem);
    for (const bool video : {true, false})
    {
        const FileTrack* const track = file_ ? file_->track(video) : nullptr;
        initial_.at(numberOf(video)) = track != nullptr ? track->format : nullptr;
    }
    return file_ != nullptr;
}

bool FilePlayer::isFull() const
{
    return bytes_ >= maxBytes || queue_.size() >= maxUnits ||
           (!queue_.empty() && queue_.rbegin()->first - queue_.begin()->first >= readAhead);
}

std::optional<Duration> FilePlayer::due(Duration now, std::string& problem)
{
    while (!isFull())
    {
        if (!readOne(now, problem))
        {
            return std::nullopt;
        }
    }
    return queue_.begin()->first;
}

FilePlayer::Item FilePlayer::take()
{
    const auto first = queue_.begin();
    Item item = std::move(first->second);
    bytes_ -= item.bytes.size();
    queue_.erase(first);
    return item;
}

bool FilePlayer::readOne(Duration now, std::string& problem)
{
    MediaFile::Unit unit;
    if (file_->read(unit) == MediaFile::Result::unit)
    {
        ++readInIteration_;
        return place(std::move(unit), now, problem);
    }
    // What a file has behind its corruption is left out of each iteration.
    return startAgain(problem);
}

bool FilePlayer::startAgain(std::string& problem)
{
    if (interrupted_())
    {
        problem = "reading the file takes too long";
        return false;
    }
    if (std::exchange(readInIteration_, 0) == 0)
    {
        problem = "the file holds no media that can be read";
        return false;
    }
    timeline_.endTrack(videoTrack);
    timeline_.endTrack(audioTrack);
    const auto before = initial_;
    MediaFile::Problem reason;
    if (!open(reason))
    {
        problem = "the file cannot be read again: " + reason.text;
        return false;
    }
    const auto same = [](const auto& one, const auto& other)
    { return one && other ? *one == *other : !one && !other; };
    if (!std::equal(before.begin(), before.end(), initial_.begin(), same))
    {
        problem = "the file was changed";
        return false;
    }
    return true;
}

/// Each iteration reads the same formats as other objects.
std::shared_ptr<const MediaFormat> FilePlayer::formatOf(const MediaFile::Unit& unit)
{
    std::shared_ptr<const MediaFormat>& present = present_.at(numberOf(unit.video));
    if (!present || !(*present == *unit.format))
    {
        present = unit.format;
    }
    return present;
}

bool FilePlayer::place(MediaFile::Unit unit, Duration now, std::string& problem)
{
    Item item;
    item.format = formatOf(unit);
    item.video = unit.video;
    item.key = unit.key;
    LoopTimeline::Unit times{unit.presentation, unit.decoding, unit.duration};
    const MediaFormat& format = *item.format;
    const std::uint32_t samples = item.video ? 0 : samplesOf(format, unit.bytes.data(), unit.bytes.size());
    if (samples > 0)
    {
        times.duration = lengthOf(samples, format);
    }
    if (item.video || !isPcm(format.codec))
    {
        item.bytes = std::move(unit.bytes);
        return place(std::move(item), times, now, problem);
    }
    const auto step =
        static_cast<std::size_t>(RtpClock(static_cast<std::uint32_t>(rateOf(format))).nearestTicks(pcmBlock));
    for (std::size_t at = 0; at < unit.bytes.size(); at += step)
    {
        const std::size_t size = std::min(step, unit.bytes.size() - at);
        const auto from = unit.bytes.begin() + static_cast<std::ptrdiff_t>(at);
        Item block = item;
        block.bytes.assign(from, from + static_cast<std::ptrdiff_t>(size));
        const Duration offset = lengthOf(static_cast<std::uint32_t>(at), format);
        const auto behind = [offset](LoopTimeline::Time time)
        { return time ? LoopTimeline::Time(*time + offset) : time; };
        const LoopTimeline::Unit own{behind(unit.presentation), behind(unit.decoding),
                                     lengthOf(static_cast<std::uint32_t>(size), format)};
        if (!place(std::move(block), own, now, problem))
        {
            return false;
        }
    }
    return true;
}

bool FilePlayer::place(Item item, const LoopTimeline::Unit& times, Duration now, std::string& problem)
{
    const std::size_t number = numberOf(item.video);
    const auto placed = timeline_.place(number, times, now);
    if (!placed)
    {
        problem = "the file has no times";
        return false;
    }
    lastDue_.at(number) = std::max(lastDue_.at(number), placed->due);
    item.presentation = placed->presentation.value_or(placed->due);
    item.duration = times.duration.value_or(Duration::zero());
    bytes_ += item.bytes.size();
    queue_.emplace(lastDue_.at(number), std::move(item));
    return true;
}

}  // namespace refhost

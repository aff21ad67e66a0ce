#include "refhost/capture/FileTrackOutput.h"

#include <chrono>
#include <cstdlib>
#include <utility>
#include <vector>

#include "refhost/base/Log.h"
#include "refhost/media/ReorderDepth.h"

namespace refhost
{
namespace
{

RtpClock clockOf(const MediaFormat& format)
{
    const int rate = infoOf(format.codec).clockRate;
    return RtpClock(static_cast<std::uint32_t>(rate > 0 ? rate : format.sampleRate));
}

}  // namespace

FileTrackOutput::FileTrackOutput(const MediaFormat& format, MonotonicTime epoch,
                                 std::shared_ptr<MediaTap> mediaTap)
    : codec_(format.codec), rtpClock_(clockOf(format)), epoch_(epoch), mediaTap_(std::move(mediaTap))
{
}

void FileTrackOutput::setTaps(const Taps& taps)
{
    taps_ = taps;
    for (auto packetizer = packetizers_.begin(); packetizer != packetizers_.end();)
    {
        packetizer =
            taps_.count(packetizer->first) == 0 ? packetizers_.erase(packetizer) : std::next(packetizer);
    }
}

/// Blocks of audio that nearly follow each other do so exactly: files count milliseconds.
std::uint32_t FileTrackOutput::timestampOf(const FilePlayer::Item& item)
{
    constexpr Duration rounding = std::chrono::milliseconds(5);
    const std::int64_t exact = rtpClock_.nearestTicks(item.presentation);
    if (item.video)
    {
        return static_cast<std::uint32_t>(exact);
    }
    const bool follows = next_ && std::abs(exact - *next_) <= rtpClock_.nearestTicks(rounding);
    const std::int64_t timestamp = follows ? *next_ : exact;
    next_ = timestamp + rtpClock_.nearestTicks(item.duration);
    return static_cast<std::uint32_t>(timestamp);
}

void FileTrackOutput::send(FilePlayer::Item item)
{
    const std::uint32_t timestamp = timestampOf(item);
    const bool records = !mediaTap_->isEmpty();
    mediaTap_->counts().add(item.bytes.size());
    if (item.video && item.key)
    {
        mediaTap_->counts().noteKeyFrame(epoch_ + item.presentation);
    }
    if (!records)
    {
        decodeTimes_.reset();
    }
    if (!records && taps_.empty())
    {
        return;
    }
    const auto unit = std::make_shared<EncodedUnit>();
    unit->format = std::move(item.format);
    unit->bytes = std::move(item.bytes);
    unit->captureTime = epoch_ + item.presentation;
    unit->decodeTime = unit->captureTime;
    unit->duration = item.duration;
    unit->keyFrame = item.key;
    for (const auto& [payloadSize, tap] : taps_)
    {
        std::unique_ptr<Packetizer>& packetizer = packetizers_[payloadSize];
        if (!packetizer)
        {
            packetizer = Packetizer::make(codec_, payloadSize);
        }
        std::vector<std::shared_ptr<AccessUnit>> packed;
        if (const char* const why = packetizer->pack(*unit, timestamp, packed))
        {
            Log::debug("a unit of a file is skipped: {}", why);
        }
        for (std::shared_ptr<AccessUnit>& accessUnit : packed)
        {
            tap->deliver(std::move(accessUnit));
        }
    }
    if (!records)
    {
        return;
    }
    if (item.video)
    {
        if (unit->format != timedFormat_)
        {
            timedFormat_ = unit->format;
            decodeTimes_.setDepth(ReorderDepth::of(*unit->format));
        }
        unit->decodeTime = decodeTimes_.next(unit->captureTime, unit->duration, unit->keyFrame);
    }
    mediaTap_->deliver(unit);
}

}  // namespace refhost

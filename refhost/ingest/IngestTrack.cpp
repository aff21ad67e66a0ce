#include "refhost/ingest/IngestTrack.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/capture/SenderReports.h"
#include "refhost/media/ReorderDepth.h"
#include "refhost/rtp/RtpReader.h"

namespace refhost
{
namespace
{

/// Packets that may be lost at once; a larger step of the sequence number is a new start (RFC 3550, appendix A.1).
constexpr std::uint16_t maxStep = 3000;

/// Packets by which one may come late; a larger step back is a new start (as above).
constexpr std::uint16_t maxLateness = 100;

/// Of media times from what the timestamps say, where the camera's clock goes on.
constexpr Duration maxDeviation = std::chrono::milliseconds(1);

}  // namespace

std::unique_ptr<IngestTrack> IngestTrack::make(const Source& source, std::shared_ptr<MediaTap> mediaTap,
                                               std::string& error)
{
    std::unique_ptr<IngestTrack> track(new IngestTrack(source, std::move(mediaTap)));
    track->depacketizer_ = Depacketizer::make(
        source.description, [self = track.get()](DepacketizedUnit&& unit) { self->onUnit(std::move(unit)); },
        error);
    return track->depacketizer_ ? std::move(track) : nullptr;
}

IngestTrack::IngestTrack(const Source& source, std::shared_ptr<MediaTap> mediaTap)
    : codec_(source.codec),
      rtpClock_(static_cast<std::uint32_t>(source.description.clockRate)),
      payloadType_(source.payloadType),
      clock_(source.clock),
      epoch_(source.epoch),
      mediaTap_(std::move(mediaTap)),
      sourceClock_(rtpClock_, isVideo(source.codec)),
      statistics_(rtpClock_),
      refusals_(source.title + ": the camera's " + infoOf(source.codec).encodingName)
{
}

IngestTrack::~IngestTrack() = default;

void IngestTrack::setTaps(Taps taps)
{
    taps_ = std::move(taps);
    for (auto packetizer = packetizers_.begin(); packetizer != packetizers_.end();)
    {
        packetizer =
            taps_.count(packetizer->first) == 0 ? packetizers_.erase(packetizer) : std::next(packetizer);
    }
}

void IngestTrack::onPacket(const std::uint8_t* data, std::size_t size, MonotonicTime arrival)
{
    RtpPacketView packet;
    if (!RtpReader::read(data, size, packet))
    {
        return refusals_.onRefused("malformed RTP", arrival);
    }
    if (packet.payloadType != payloadType_)
    {
        return refusals_.onRefused("another payload type than described", arrival);
    }
    mediaTap_->counts().add(packet.payloadSize);
    if (isLate(packet))
    {
        statistics_.count(packet.sequence, packet.timestamp, arrival);
        return;
    }
    bool restarted = false;
    const std::uint32_t lost = countLost(packet, arrival, restarted);
    if (restarted)
    {
        depacketizer_->reset();
        decodeTimes_.reset();
    }
    place(packet, arrival);
    setOutputs();
    const char* const refused = depacketizer_->push(packet, lost);
    if (refused != nullptr)
    {
        return refusals_.onRefused(refused, arrival);
    }
    refusals_.onTaken(arrival);
}

/// Whether its turn has passed, also because it came before.
bool IngestTrack::isLate(const RtpPacketView& packet) const
{
    const auto behind = static_cast<std::uint16_t>(sequence_ - packet.sequence);
    return started_ && packet.ssrc == ssrc_ && behind <= maxLateness;
}

/// \param[out] restarted  the packet does not continue what came before
std::uint32_t IngestTrack::countLost(const RtpPacketView& packet, MonotonicTime arrival, bool& restarted)
{
    const auto step = static_cast<std::uint16_t>(packet.sequence - sequence_);
    restarted = !started_ || packet.ssrc != ssrc_ || step > maxStep;
    statistics_.count(packet.sequence, packet.timestamp, arrival);
    started_ = true;
    ssrc_ = packet.ssrc;
    sequence_ = packet.sequence;
    return restarted ? 0 : step - 1U;
}

void IngestTrack::place(const RtpPacketView& packet, MonotonicTime arrival)
{
    const Duration media = sourceClock_.place(packet.timestamp, packet.ssrc, arrival - epoch_);
    const Duration expected =
        last_.media + rtpClock_.span(RtpClock::difference(packet.timestamp, last_.timestamp));
    const Anchor anchor{packet.timestamp, media};
    if (!placed_ || std::chrono::abs(media - expected) > maxDeviation)
    {
        // The camera's timestamps start over, those that viewers get go on.
        offset_ += placed_ ? last_.timestamp +
                                 static_cast<std::uint32_t>(rtpClock_.nearestTicks(media - last_.media)) -
                                 packet.timestamp
                           : 0;
        before_ = anchor;
    }
    else if (packet.timestamp != last_.timestamp)
    {
        before_ = last_;
    }
    placed_ = true;
    last_ = anchor;
}

/// What nobody takes is not made. How large the camera's packets are is known after a key frame.
void IngestTrack::setOutputs()
{
    const bool packets = !taps_.empty();
    const bool repacked =
        packets && (!sawKeyFrame_ || static_cast<std::uint32_t>(taps_.begin()->first) < maxPayload_);
    depacketizer_->setOutputs({repacked || !mediaTap_->isEmpty(), packets});
}

void IngestTrack::onUnit(DepacketizedUnit&& unit)
{
    const MonotonicTime captureTime = captureTimeOf(unit.timestamp);
    maxPayload_ = std::max(maxPayload_, unit.maxPayload);
    sawKeyFrame_ = sawKeyFrame_ || (unit.keyFrame && unit.packets);
    if (unit.keyFrame && isVideo(codec_))
    {
        mediaTap_->counts().noteKeyFrame(captureTime);
    }
    std::shared_ptr<EncodedUnit> media;
    if (unit.bytes.empty())
    {
        frameIsMissing_ = frameIsMissing_ || unit.damaged;
    }
    else
    {
        const bool frameWasMissing = std::exchange(frameIsMissing_, false);
        media = std::make_shared<EncodedUnit>();
        media->format = unit.format;
        media->bytes = std::move(unit.bytes);
        media->captureTime = captureTime;
        media->duration = rtpClock_.span(unit.duration);
        media->keyFrame = unit.keyFrame;
        media->damaged = unit.damaged || (frameWasMissing && !unit.keyFrame);
    }
    send(unit, media.get(), captureTime);
    record(media);
}

/// The unit is of the last packet, of one before, or follows the first unit of the last packet.
MonotonicTime IngestTrack::captureTimeOf(std::uint32_t timestamp) const
{
    const Anchor& anchor = timestamp == before_.timestamp ? before_ : last_;
    const Duration media = anchor.media + rtpClock_.span(RtpClock::difference(timestamp, anchor.timestamp));
    return epoch_ + sourceClock_.captured(media);
}

void IngestTrack::record(const std::shared_ptr<EncodedUnit>& unit)
{
    if (mediaTap_->isEmpty())
    {
        decodeTimes_.reset();
        return;
    }
    if (!unit)
    {
        return;
    }
    if (unit->format != timedFormat_)
    {
        timedFormat_ = unit->format;
        decodeTimes_.setDepth(ReorderDepth::of(*unit->format));
    }
    unit->decodeTime = isVideo(codec_) ? decodeTimes_.next(unit->captureTime, unit->duration, unit->keyFrame)
                                       : unit->captureTime;
    mediaTap_->deliver(unit);
}

void IngestTrack::send(DepacketizedUnit& unit, const EncodedUnit* media, MonotonicTime captureTime)
{
    const std::uint32_t timestamp = unit.timestamp + offset_;
    if (unit.packets)
    {
        unit.packets->captureTime = captureTime;
        unit.packets->rtpTimestamp = timestamp;
    }
    for (const auto& [payloadSize, tap] : taps_)
    {
        if (maxPayload_ <= static_cast<std::uint32_t>(payloadSize))
        {
            if (unit.packets)
            {
                tap->deliver(unit.packets);
            }
            continue;
        }
        if (media == nullptr)
        {
            continue;
        }
        std::unique_ptr<Packetizer>& packetizer = packetizers_[payloadSize];
        if (!packetizer)
        {
            packetizer = Packetizer::make(codec_, payloadSize);
        }
        std::vector<std::shared_ptr<AccessUnit>> packed;
        packetizer->pack(*media, timestamp, packed);
        for (std::shared_ptr<AccessUnit>& accessUnit : packed)
        {
            tap->deliver(std::move(accessUnit));
        }
    }
}

IngestTrack::Report IngestTrack::onReport(const std::uint8_t* data, std::size_t size, MonotonicTime arrival)
{
    Report result;
    const auto take = [&](const SenderReports::Report& report)
    {
        statistics_.noteSenderReport(report.sent.compact(), arrival);
        if (clock_ == Clock::server)
        {
            return;
        }
        std::optional<Duration> placed;
        if (report.wall)
        {
            placed = *report.wall - HostClock::system().wall().mapping().at(epoch_);
            hasCameraTime_ = true;
        }
        result.clockWrong = sourceClock_.report(report.timestamp, report.ssrc, placed, arrival - epoch_) ==
                            SourceClock::Report::wrongClock;
    };
    const auto end = [&](std::uint32_t ssrc) { result.ended = result.ended || (started_ && ssrc == ssrc_); };
    SenderReports::read(data, size, take, end);
    return result;
}

std::optional<ReceptionReport> IngestTrack::receptionReport(MonotonicTime now)
{
    return statistics_.any() ? std::optional(statistics_.report(now)) : std::nullopt;
}

}  // namespace refhost

#include "refhost/talkback/TalkReception.h"

#include <algorithm>
#include <utility>

#include "refhost/base/ServerFigures.h"
#include "refhost/rtp/RtpReader.h"

namespace refhost
{
namespace
{

/// The rest of a longer gap stays silent: concealment helps for a few packets only.
constexpr std::chrono::milliseconds maxConcealed(200);
/// Twice what an output takes at once.
constexpr std::chrono::milliseconds maxAtOnce(400);

}  // namespace

TalkReception::TalkReception(const SubMediaInfo& track, const TalkSettings& settings,
                             std::unique_ptr<TalkDepayloader> depayloader, MakeDecoder makeDecoder)
    : payloadType_(track.payloadType),
      clock_(static_cast<std::uint32_t>(track.clockRate)),
      silence_(settings.silence),
      maxOutputWait_(settings.maxOutputWait),
      depayloader_(std::move(depayloader)),
      makeDecoder_(std::move(makeDecoder)),
      window_(settings.maxReorderWait),
      counted_(clock_)
{
}

void TalkReception::reset()
{
    latched_ = false;
    senderReport_.reset();
    statistics_ = TalkStatistics();
    window_.reset();
    continues_ = false;
}

void TalkReception::release()
{
    decoder_.reset();
    continues_ = false;
}

void TalkReception::latch(std::uint32_t ssrc)
{
    latched_ = true;
    ssrc_ = ssrc;
    counted_ = ReceptionStatistics(clock_);
    if (senderReport_ && senderReport_->ssrc == ssrc)
    {
        counted_.noteSenderReport(senderReport_->compactNtp, senderReport_->arrival);
    }
}

bool TalkReception::add(const TalkReceiveQueue::Packet& packet)
{
    RtpPacketView view;
    if (!RtpReader::read(packet.bytes.data(), packet.bytes.size(), view))
    {
        ++statistics_.malformed;
        return false;
    }
    if (view.payloadType != payloadType_)
    {
        ++statistics_.wrongType;
        return false;
    }
    if (!latched_ || (view.ssrc != ssrc_ && packet.arrival - lastArrival_ >= silence_))
    {
        latch(view.ssrc);
    }
    if (view.ssrc != ssrc_)
    {
        ++statistics_.foreign;
        return false;
    }
    const auto arrival = counted_.count(view.sequence, view.timestamp, packet.arrival);
    if (arrival.verdict == ReceptionStatistics::Verdict::outOfSequence)
    {
        ++statistics_.outOfSequence;
        return false;
    }
    if (arrival.verdict == ReceptionStatistics::Verdict::started)
    {
        window_.reset();
        continues_ = false;
    }
    lastArrival_ = packet.arrival;
    ++statistics_.packets;
    ServerFigures::add(ServerFigures::instance().talkPackets);
    ReorderWindow::Packet kept;
    kept.sequence = arrival.sequence;
    kept.timestamp = view.timestamp;
    kept.marker = view.marker;
    kept.arrival = packet.arrival;
    kept.payload.assign(view.payload, view.payload + view.payloadSize);
    const auto added = window_.add(std::move(kept));
    statistics_.late += added == ReorderWindow::Added::late ? 1 : 0;
    statistics_.duplicates += added == ReorderWindow::Added::duplicate ? 1 : 0;
    return true;
}

bool TalkReception::take(MonotonicTime now, bool audible, std::vector<std::int16_t>& samples)
{
    ReorderWindow::Packet packet;
    std::uint32_t lost = 0;
    made_ = 0;
    ReorderWindow::Next next = window_.take(now, packet, lost);
    while (next == ReorderWindow::Next::packet)
    {
        statistics_.lost += lost;
        if (lost > 0)
        {
            ServerFigures::add(ServerFigures::instance().talkLost, lost);
        }
        const bool stale = now - packet.arrival > maxOutputWait_;
        statistics_.stale += stale ? 1 : 0;
        const bool playable = audible && !stale;
        if (playable && !isEnough())
        {
            play(packet, lost, samples);
        }
        else
        {
            statistics_.overrun += playable ? 1 : 0;
            continues_ = false;
        }
        next = window_.take(now, packet, lost);
    }
    return next == ReorderWindow::Next::waiting;
}

void TalkReception::play(const ReorderWindow::Packet& packet, std::uint32_t lost,
                         std::vector<std::int16_t>& samples)
{
    if (decoder_ == nullptr)
    {
        decoder_ = makeDecoder_();
    }
    if (decoder_ == nullptr)
    {
        ++statistics_.malformed;
        return;
    }
    if (!continues_ || lost != 0)
    {
        depayloader_->reset();
    }
    if (!continues_)
    {
        decoder_->reset();
    }
    else if (lost != 0 || hole_)
    {
        conceal(packet.timestamp, samples);
    }
    continues_ = true;
    hole_ = false;
    nextTimestamp_ = packet.timestamp;
    if (!depayloader_->read(packet.payload.data(), packet.payload.size(), packet.timestamp, packet.marker,
                            frames_))
    {
        ++statistics_.malformed;
        hole_ = true;
        return;
    }
    for (const TalkDepayloader::Frame& frame : frames_)
    {
        if (isEnough())
        {
            ++statistics_.overrun;
            continues_ = false;
            return;
        }
        made_ += frame.ticks;
        if (!decoder_->decode(frame.data, frame.size, samples))
        {
            ++statistics_.malformed;
            makeUp(frame.ticks, samples);
        }
        nextTimestamp_ += frame.ticks;
    }
}

/// By the frames' duration, not the decoder's output: a frame without output takes decoding time as well.
bool TalkReception::isEnough() const
{
    return made_ >= clock_.ticks(maxAtOnce);
}

/// Not every timestamp jump is a loss: a silent sender may pause without a gap in the sequence.
void TalkReception::conceal(std::uint32_t timestamp, std::vector<std::int16_t>& samples)
{
    const auto missing = static_cast<std::int32_t>(timestamp - nextTimestamp_);
    if (missing > 0)
    {
        made_ += makeUp(static_cast<std::uint32_t>(missing), samples);
    }
}

/// \returns the length of the concealment in ticks
std::uint32_t TalkReception::makeUp(std::uint32_t ticks, std::vector<std::int16_t>& samples)
{
    const auto max = static_cast<std::uint32_t>(clock_.ticks(maxConcealed));
    decoder_->conceal(std::min(ticks, max), samples);
    return std::min(ticks, max);
}

void TalkReception::noteSenderReport(std::uint32_t ssrc, std::uint32_t compactNtp, MonotonicTime arrival)
{
    senderReport_ = SenderReport{ssrc, compactNtp, arrival};
    if (latched_ && ssrc == ssrc_)
    {
        counted_.noteSenderReport(compactNtp, arrival);
    }
}

bool TalkReception::hasSource() const
{
    return latched_;
}

std::uint32_t TalkReception::source() const
{
    return ssrc_;
}

ReceptionReport TalkReception::report(MonotonicTime now)
{
    return counted_.report(now);
}

TalkStatistics& TalkReception::statistics()
{
    return statistics_;
}

}  // namespace refhost

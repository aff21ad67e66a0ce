#include "refhost/live/TrackSender.h"

#include <algorithm>
#include <utility>

#include "refhost/base/HostStatus.h"
#include "refhost/base/RandomBytes.h"
#include "refhost/live/LiveSession.h"

namespace refhost
{
namespace
{

/// Tracks whose play() lie this close to each other start together.
constexpr std::int64_t togetherMs = 1000;
/// How long sound waits for the picture that it shall start with.
constexpr std::int64_t pictureWaitMs = 5000;

constexpr std::uint32_t clockRateOf(const int rate)
{
    return rate > 0 ? static_cast<std::uint32_t>(rate) : 90'000U;
}

}  // namespace

TrackSender::TrackSender(std::weak_ptr<LiveSession> session, std::string streamKey, const SubMediaInfo& info,
                         std::shared_ptr<LiveStream> stream, int payloadSize, const RtcpWriter::Name& name)
    : TrackSender(std::move(session), std::move(streamKey), info, std::move(stream), payloadSize, name,
                  randomBeginning())
{
}

TrackSender::TrackSender(std::weak_ptr<LiveSession> session, std::string streamKey, const SubMediaInfo& info,
                         std::shared_ptr<LiveStream> stream, int payloadSize, const RtcpWriter::Name& name,
                         const Beginning& beginning)
    : session_(std::move(session)),
      streamKey_(std::move(streamKey)),
      trackId_(info.trackId),
      name_(name),
      stream_(std::move(stream)),
      settings_(stream_->settings()),
      video_(info.mediaType == "video"),
      track_(stream_->use(info.trackId, video_, payloadSize)),
      payloadType_(static_cast<std::uint8_t>(info.payloadType & 0x7f)),
      sequence_(beginning.sequence),
      ssrc_(beginning.ssrc),
      timeline_(clockRateOf(info.clockRate), beginning.timestamp),
      reportJitter_(beginning.reportJitter | 1U)
{
}

TrackSender::~TrackSender() noexcept = default;

TrackSender::Beginning TrackSender::randomBeginning()
{
    Beginning beginning{};
    fillRandom(&beginning, sizeof(beginning));
    return beginning;
}

int TrackSender::connect(const SafePointer<IConnection>& connection,
                         const std::shared_ptr<TransportListener>& self)
{
    auto* transport = connection.isEmpty() ? nullptr : dynamic_cast<RtpTransport*>(connection.operator->());
    if (transport == nullptr)
    {
        return hostConnectionUnusable;
    }
    if (transport_ != nullptr)
    {
        transport_->setListener({});
    }
    connection_.emplace(connection);
    transport_ = transport;
    transport_->setListener(self);
    return 0;
}

int TrackSender::play(const std::shared_ptr<LiveSession>& session)
{
    if (transport_ == nullptr || transport_->state() == SendStatus::closed)
    {
        return hostConnectionUnusable;
    }
    if (playing_)
    {
        if (started_ && !unitStays_)
        {
            first_.sequenceNumber = sequence_;
            first_.rtpTimestamp = unit_ ? unitTimestamp_ : timeline_.at(settings_.clock->wallNs());
        }
        return 0;
    }
    viewed_ = stream_->source();
    if (!viewed_)
    {
        return hostStreamFailed;
    }
    earliest_ = played_ ? cursor_ : 0;
    if (video_ && !settings_.gopCache)
    {
        earliest_ = std::max(earliest_, track_->head());
    }
    playing_ = true;
    played_ = true;
    started_ = false;
    waitsForKey_ = false;
    congestedMs_ = never;
    playedMs_ = settings_.clock->monotonicMs();
    track_->join(session, seat_);
    viewed_->acquire();
    if (video_ && !startingPoint(nullptr, playedMs_).unit)
    {
        // Now, though the way is held: the encoder works while the answer goes out.
        viewed_->requestKeyFrame();
    }
    return 0;
}

void TrackSender::pause()
{
    if (!playing_)
    {
        return;
    }
    playing_ = false;
    track_->leave(seat_);
    abandonUnit();
    viewed_->release();
    viewed_.reset();
}

void TrackSender::end()
{
    pause();
    if (transport_ != nullptr)
    {
        if (statistics_.packets > 0)
        {
            const RtcpWriter packet = report(true);
            transport_->sendRtcp(packet.data(), packet.size());
        }
        transport_->setListener({});
        transport_ = nullptr;
        connection_.reset();
    }
    stream_->leave(*track_);
}

void TrackSender::pump(const FreshUnit* fresh, TrackSender* picture, bool more)
{
    if (!playing_ || transport_->state() != SendStatus::sent)
    {
        return;
    }
    const std::int64_t nowMs = fresh != nullptr ? fresh->nowMs : settings_.clock->monotonicMs();
    if (!started_ && !start(picture, nowMs))
    {
        return;
    }
    if (waitsForPicture(fresh, picture))
    {
        return;
    }
    const unsigned pace = transport_->catchUpUnits();
    const std::uint64_t head = track_->head();
    if (head != seenHead_)
    {
        seenHead_ = head;
        credit_ = pace;
    }
    while ((pace == 0 || credit_ > 0) && (unit_ || next(fresh, nowMs)))
    {
        const bool another = (pace == 0 || (credit_ > 1 && transport_->joinsUnits())) && cursor_ + 1 < head;
        if (!deliver(nowMs, more || another))
        {
            return;
        }
        --credit_;
    }
}

bool TrackSender::steady() const
{
    return playing_ && started_ && !unit_ && !waitsForKey_ && congestedMs_ == never &&
           transport_->state() == SendStatus::sent;
}

bool TrackSender::takesNow(const FreshUnit& fresh) const
{
    return fresh.track == track_.get() && steady() && transport_->joinsUnits();
}

bool TrackSender::waitsForPicture(const FreshUnit* fresh, const TrackSender* picture)
{
    if (fresh == nullptr || fresh->track != track_.get() || !transport_->joinsUnits() || !steady() ||
        picture == nullptr || !picture->steady())
    {
        return false;
    }
    if (fresh->index == cursor_)
    {
        waitingSinceNs_ = fresh->unit->captureTimeNs;
    }
    return fresh->unit->captureTimeNs - waitingSinceNs_ < settings_.soundWaitMs * 1'000'000;
}

bool TrackSender::firstPacket(RTPPacketInfo& out, TrackSender* picture)
{
    if (!played_)
    {
        return false;
    }
    if (playing_ && !started_ && !start(picture, settings_.clock->monotonicMs()))
    {
        first_.sequenceNumber = sequence_;
        first_.rtpTimestamp = timeline_.announce(settings_.clock->wallNs());
    }
    out = first_;
    return true;
}

void TrackSender::onTransportReady()
{
    if (const auto session = session_.lock())
    {
        session->pump(nullptr);
    }
}

void TrackSender::onRtcp(const std::uint8_t* data, std::size_t size)
{
    if (const auto session = session_.lock())
    {
        const LiveSession::Lock lock(*session);
        readReport(data, size);
    }
}

bool TrackSender::start(TrackSender* picture, std::int64_t nowMs)
{
    const LiveTrack::Found found = startingPoint(picture, nowMs);
    if (!found.unit)
    {
        return false;
    }
    started_ = true;
    unit_ = found.unit;
    unitEpoch_ = found.epoch;
    unitTimestamp_ = timeline_.peek(*unit_, unitEpoch_);
    unitPackets_ = 0;
    unitStays_ = true;
    cursor_ = found.index;
    startCaptureNs_ = unit_->captureTimeNs;
    first_.sequenceNumber = sequence_;
    first_.rtpTimestamp = unitTimestamp_;
    seenHead_ = track_->head();
    credit_ = 1;
    reportDueMs_ = nowMs;
    return true;
}

LiveTrack::Found TrackSender::startingPoint(TrackSender* picture, std::int64_t nowMs)
{
    if (picture != nullptr && picture->playing_)
    {
        if (playedMs_ - picture->playedMs_ > togetherMs && picture->statistics_.packets > 0)
        {
            return track_->firstSince(picture->timeline_.lastCaptureNs(), earliest_);
        }
        if (picture->started_ || picture->start(nullptr, nowMs))
        {
            return track_->firstSince(picture->startCaptureNs_, earliest_);
        }
        if (nowMs - playedMs_ < pictureWaitMs)
        {
            return {};
        }
    }
    LiveTrack::Found newest = track_->newestStart();
    return newest.unit && newest.index >= earliest_ ? newest : LiveTrack::Found();
}

bool TrackSender::next(const FreshUnit* fresh, std::int64_t nowMs)
{
    const bool keepsUp = !waitsForKey_ && congestedMs_ == never;
    if (keepsUp && fresh != nullptr && fresh->index == cursor_ && fresh->track == track_.get())
    {
        unit_ = fresh->unit;
        unitEpoch_ = fresh->epoch;
        return true;
    }
    if (track_->head() == cursor_)
    {
        congestedMs_ = never;
        return false;
    }
    LiveTrack::View view = track_->look(cursor_);
    const std::int64_t patience = video_ ? settings_.videoLagMs : settings_.audioLagMs;
    const bool late = congestedMs_ != never && nowMs - congestedMs_ > patience;
    if (waitsForKey_ || cursor_ < view.base || (late && view.startable && view.newest > cursor_))
    {
        if (!skipToStart(view))
        {
            return false;
        }
        view = track_->look(cursor_);
    }
    unit_ = std::move(view.at.unit);
    unitEpoch_ = view.at.epoch;
    return unit_ != nullptr;
}

bool TrackSender::skipToStart(const LiveTrack::View& view)
{
    waitsForKey_ = !view.startable || view.newest < cursor_;
    const std::uint64_t target = waitsForKey_ ? view.head : view.newest;
    if (congestedMs_ != never)
    {
        statistics_.unitsSkipped += target - cursor_;
        congestedMs_ = never;
    }
    cursor_ = target;
    return !waitsForKey_;
}

bool TrackSender::deliver(std::int64_t nowMs, bool more)
{
    if (unitPackets_ == 0)
    {
        bool moved = false;
        unitTimestamp_ = timeline_.take(*unit_, unitEpoch_, moved);
        if (moved)
        {
            reportDueMs_ = nowMs;
        }
    }
    if (nowMs >= reportDueMs_)
    {
        sendReport(nowMs);
    }
    const SendResult result =
        transport_->send(unit_, unitPackets_, {ssrc_, sequence_, unitTimestamp_, payloadType_}, more);
    account(result.packets);
    if (result.status == SendStatus::sent)
    {
        unit_.reset();
        unitPackets_ = 0;
        unitStays_ = false;
        ++cursor_;
        return true;
    }
    if (result.status == SendStatus::congested && congestedMs_ == never)
    {
        congestedMs_ = nowMs;
    }
    if (unitPackets_ == 0 && !unitStays_)
    {
        unit_.reset();
    }
    return false;
}

void TrackSender::account(std::size_t packets)
{
    if (packets == unit_->packets.size())
    {
        statistics_.octets += unit_->payloadBytes;
    }
    else
    {
        for (std::size_t i = unitPackets_; i < unitPackets_ + packets; ++i)
        {
            statistics_.octets +=
                unit_->packets[i].size - static_cast<std::uint32_t>(AccessUnit::rtpHeaderSize);
        }
    }
    unitPackets_ += packets;
    sequence_ = static_cast<std::uint16_t>(sequence_ + packets);
    statistics_.packets += static_cast<std::uint32_t>(packets);
}

void TrackSender::sendReport(std::int64_t nowMs)
{
    const RtcpWriter packet = report(false);
    transport_->sendRtcp(packet.data(), packet.size());
    ++statistics_.reportsSent;
    // Between half and one and a half intervals (RFC 3550, section 6.2), so that the reports of many viewers
    // who came together do not stay together.
    reportJitter_ ^= reportJitter_ << 13U;
    reportJitter_ ^= reportJitter_ >> 17U;
    reportJitter_ ^= reportJitter_ << 5U;
    const std::int64_t interval = settings_.reportIntervalMs;
    reportDueMs_ = nowMs + interval / 2 + (interval * (reportJitter_ >> 16U) >> 16U);
}

RtcpWriter TrackSender::report(bool goodbye) const
{
    const std::int64_t wallNs = settings_.clock->wallNs();
    return RtcpWriter({ssrc_, wallNs, timeline_.at(wallNs), statistics_.packets, statistics_.octets}, name_,
                      goodbye);
}

void TrackSender::readReport(const std::uint8_t* data, std::size_t size)
{
    RtcpFindings findings;
    if (!RtcpReader::read(data, size, ssrc_, findings))
    {
        ++statistics_.reportsRefused;
        return;
    }
    if (!findings.reported)
    {
        return;
    }
    ++statistics_.reportsRead;
    statistics_.reception = findings.report;
    if (findings.report.lastReport != 0)
    {
        // Round trip as in RFC 3550, section 6.4.1; a client that counts wrong must not make it negative.
        const std::uint32_t now = RtcpWriter::compactNtp(settings_.clock->wallNs());
        const auto trip =
            static_cast<std::int32_t>(now - findings.report.lastReport - findings.report.delaySinceReport);
        statistics_.roundTripMs = std::max<std::int64_t>(trip, 0) * 1000 >> 16U;
    }
}

void TrackSender::abandonUnit()
{
    if (unitPackets_ > 0)
    {
        ++cursor_;
    }
    unit_.reset();
    unitPackets_ = 0;
    unitStays_ = false;
}

}  // namespace refhost

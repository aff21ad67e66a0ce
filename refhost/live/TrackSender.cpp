#include "refhost/live/TrackSender.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "refhost/base/HostStatus.h"
#include "refhost/base/ServerFigures.h"
#include "refhost/live/LiveSession.h"

namespace refhost
{
namespace
{

/// Tracks played within this span start together.
constexpr std::chrono::seconds startTogether(1);
/// How long audio waits for the frame to start with.
constexpr std::chrono::seconds maxVideoWait(5);

constexpr const char* videoType = "video";
constexpr const char* audioType = "audio";

}  // namespace

TrackSender::TrackSender(std::weak_ptr<LiveSession> session, const std::string& streamKey,
                         const SubMediaInfo& info, std::shared_ptr<LiveStream> stream, int payloadSize,
                         const RtcpWriter::Name& name)
    : session_(std::move(session)),
      stream_(std::move(stream)),
      name_(stream_->nameOf(streamKey, info.trackId, payloadSize)),
      settings_(stream_->settings()),
      video_(info.mediaType == videoType),
      track_(stream_->use(info.trackId, video_, payloadSize)),
      sender_(info.payloadType, name, *settings_.clock, settings_.reportInterval),
      timeline_(rtpClockOf(info.clockRate), sender_.firstTimestamp())
{
}

TrackSender::~TrackSender() noexcept = default;

std::shared_ptr<TrackSender> TrackSender::successor(const RtcpWriter::Name& name) const
{
    SubMediaInfo info;
    info.trackId = trackId();
    info.mediaType = video_ ? videoType : audioType;
    info.payloadType = sender_.payloadType();
    info.clockRate = static_cast<int>(timeline_.clock().rate());
    return std::make_shared<TrackSender>(session_, streamKey(), info, stream_, name_->payloadSize, name);
}

int TrackSender::connect(const SafePointer<IConnection>& connection,
                         const std::shared_ptr<TransportListener>& self)
{
    return sender_.connect(connection, self);
}

int TrackSender::play(const std::shared_ptr<LiveSession>& session)
{
    if (!sender_.connected())
    {
        return hostConnectionUnusable;
    }
    if (playing())
    {
        if (state_.is(SenderState::running))
        {
            first_.sequenceNumber = sender_.sequence();
            first_.rtpTimestamp = unit_ ? unitTimestamp_ : timeline_.at(settings_.clock->now());
        }
        if (sender_.transport()->traits().shared)
        {
            onJoin();
        }
        return 0;
    }
    viewed_ = stream_->source();
    if (!viewed_)
    {
        return hostStreamFailed;
    }
    earliest_ = state_.is(SenderState::paused) ? cursor_ : 0;
    const LiveStart::Mode mode = sender_.transport()->start.value_or(settings_.start.mode);
    if (video_ && mode == LiveStart::Mode::keyFrame)
    {
        earliest_ = std::max(earliest_, track_->head());
    }
    paced_ = mode == LiveStart::Mode::paced;
    state_.enter(SenderState::starting);
    flow_.enter(SenderFlow::keepingUp);
    playedAt_ = settings_.clock->now();
    track_->join(session, slot_);
    viewed_->acquire();
    if (video_ && !startingPoint(nullptr, playedAt_).unit)
    {
        // Now, though the transport is held: the encoder works while the response is sent.
        viewed_->requestKeyFrame();
    }
    return 0;
}

/// A viewer joined a shared transport: it needs a key frame to start from and a report to synchronize.
void TrackSender::onJoin()
{
    sender_.requestReport();
    if (video_)
    {
        viewed_->requestKeyFrame();
    }
}

void TrackSender::pause()
{
    if (!playing())
    {
        return;
    }
    state_.enter(SenderState::paused);
    track_->leave(slot_);
    abandonUnit();
    viewed_->release();
    viewed_.reset();
}

void TrackSender::end()
{
    if (ended())
    {
        return;
    }
    pause();
    state_.enter(SenderState::ended);
    // No BYE without any packet (RFC 3550, section 6.3.7).
    if (sender_.statistics().packets != 0)
    {
        const MonotonicTime sendTime = settings_.clock->now();
        sender_.sendBye(settings_.clock->wall().mapping().at(sendTime), timeline_.at(sendTime));
    }
    sender_.disconnect();
    stream_->leave(*track_);
}

void TrackSender::pump(const FreshUnit* fresh, TrackSender* videoSender, bool more)
{
    if (!playing() || sender_.transport()->state() != SendStatus::sent)
    {
        return;
    }
    const MonotonicTime now = fresh != nullptr ? fresh->now : settings_.clock->now();
    if (state_.is(SenderState::starting) && !start(videoSender, now))
    {
        return;
    }
    if (waitsForFrame(fresh, videoSender))
    {
        return;
    }
    const unsigned pace = paced_ ? 0 : sender_.transport()->traits().maxCatchUpUnits;
    const std::uint64_t head = track_->head();
    if (head != seenHead_)
    {
        seenHead_ = head;
        credit_ = pace;
    }
    while ((pace == 0 || credit_ > 0) && (unit_ || next(fresh, now)))
    {
        const bool another =
            (pace == 0 || (credit_ > 1 && sender_.transport()->traits().joinsUnits)) && cursor_ + 1 < head;
        if (paced_ && isEarly())
        {
            return;
        }
        if (!deliver(now, more || another))
        {
            return;
        }
        --credit_;
    }
    // It has caught up.
    paced_ = paced_ && cursor_ != track_->head();
}

/// Whether the next unit is ahead of a paced start. The first one is sent at once.
bool TrackSender::isEarly()
{
    const MonotonicTime sendTime = settings_.clock->now();
    if (state_.is(SenderState::announced) && unitPackets_ == 0)
    {
        pacedSince_ = sendTime;
    }
    return unit_->captureTime - startCapture_ > (sendTime - pacedSince_) * settings_.start.rate;
}

void TrackSender::reportStart(TrackSender* videoSender)
{
    if (!playing() || state_.is(SenderState::running) || sender_.transport()->state() != SendStatus::sent)
    {
        return;
    }
    const MonotonicTime now = settings_.clock->now();
    if ((state_.is(SenderState::announced) || start(videoSender, now)) && unitPackets_ == 0)
    {
        report(now);
    }
}

void TrackSender::addFootprint(Footprint& footprint) const
{
    footprint.add(*this);
    if (sender_.transport() != nullptr)
    {
        sender_.transport()->addFootprint(footprint);
    }
}

bool TrackSender::steady() const
{
    return state_.is(SenderState::running) && !unit_ && flow_.is(SenderFlow::keepingUp) &&
           sender_.transport()->state() == SendStatus::sent;
}

bool TrackSender::takesNow(const FreshUnit& fresh) const
{
    return fresh.track == track_.get() && steady() && sender_.transport()->traits().joinsUnits;
}

bool TrackSender::waitsForFrame(const FreshUnit* fresh, const TrackSender* videoSender)
{
    if (fresh == nullptr || fresh->track != track_.get() || !sender_.transport()->traits().joinsUnits ||
        !steady() || videoSender == nullptr || !videoSender->steady())
    {
        return false;
    }
    if (fresh->index == cursor_)
    {
        waitingSince_ = fresh->unit->captureTime;
    }
    return fresh->unit->captureTime - waitingSince_ < settings_.maxAudioWait;
}

bool TrackSender::firstPacket(RTPPacketInfo& out, TrackSender* videoSender)
{
    if (state_.is(SenderState::idle))
    {
        return false;
    }
    if (state_.is(SenderState::starting) && !start(videoSender, settings_.clock->now()))
    {
        first_.sequenceNumber = sender_.sequence();
        first_.rtpTimestamp = timeline_.announce(settings_.clock->now());
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
        sender_.readReport(data, size, static_cast<std::uint32_t>(timeline_.clock().rate()));
    }
}

bool TrackSender::start(TrackSender* videoSender, MonotonicTime now)
{
    const LiveTrack::Found found = startingPoint(videoSender, now);
    if (!found.unit)
    {
        return false;
    }
    state_.enter(SenderState::announced);
    alone_ = videoSender == nullptr;
    unit_ = found.unit;
    unitEpoch_ = found.epoch;
    unitTimestamp_ = timeline_.peek(*unit_, unitEpoch_);
    unitPackets_ = 0;
    cursor_ = found.index;
    startCapture_ = unit_->captureTime;
    first_.sequenceNumber = sender_.sequence();
    first_.rtpTimestamp = unitTimestamp_;
    seenHead_ = track_->head();
    credit_ = 1;
    sender_.requestReport();
    return true;
}

LiveTrack::Found TrackSender::startingPoint(TrackSender* videoSender, MonotonicTime now)
{
    if (videoSender != nullptr && videoSender->playing())
    {
        if (playedAt_ - videoSender->playedAt_ > startTogether &&
            videoSender->sender_.statistics().packets > 0)
        {
            return track_->firstSince(videoSender->timeline_.lastCapture(), earliest_);
        }
        if (!videoSender->state_.is(SenderState::starting) || videoSender->start(nullptr, now))
        {
            return track_->firstSince(videoSender->startCapture_, earliest_);
        }
        if (now - playedAt_ < maxVideoWait)
        {
            return {};
        }
    }
    LiveTrack::Found newest = track_->newestStart();
    return newest.unit && newest.index >= earliest_ ? newest : LiveTrack::Found();
}

bool TrackSender::next(const FreshUnit* fresh, MonotonicTime now)
{
    if (flow_.is(SenderFlow::keepingUp) && fresh != nullptr && fresh->index == cursor_ &&
        fresh->track == track_.get())
    {
        unit_ = fresh->unit;
        unitEpoch_ = fresh->epoch;
        return true;
    }
    if (track_->head() == cursor_)
    {
        if (flow_.is(SenderFlow::congested))
        {
            flow_.enter(SenderFlow::keepingUp);
        }
        return false;
    }
    LiveTrack::View view = track_->look(cursor_);
    const Duration maxLag = video_ ? settings_.maxVideoLag : settings_.maxAudioLag;
    const bool late = flow_.is(SenderFlow::congested) && now - congestedSince_ > maxLag;
    if (flow_.is(SenderFlow::waitingForKeyFrame) || cursor_ < view.base ||
        (late && view.startable && view.newest > cursor_))
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
    const bool found = view.startable && view.newest >= cursor_;
    const std::uint64_t target = found ? view.newest : view.head;
    if (flow_.is(SenderFlow::congested))
    {
        sender_.statistics().unitsSkipped += target - cursor_;
        ServerFigures::add(ServerFigures::instance().liveSkipped, target - cursor_);
    }
    flow_.enter(found ? SenderFlow::keepingUp : SenderFlow::waitingForKeyFrame);
    cursor_ = target;
    return found;
}

/// Determines the timestamp of the unit to be sent, and sends a sender report if one is due.
void TrackSender::report(MonotonicTime now)
{
    if (unitPackets_ == 0)
    {
        bool moved = false;
        unitTimestamp_ = timeline_.take(*unit_, unitEpoch_, moved);
        if (moved)
        {
            sender_.requestReport();
        }
    }
    sender_.followWallClock();
    if (sender_.reportDue(now))
    {
        const MonotonicTime sendTime = settings_.clock->now();
        sender_.sendReport(now, settings_.clock->wall().mapping().at(sendTime), timeline_.at(sendTime));
    }
}

bool TrackSender::deliver(MonotonicTime now, bool more)
{
    report(now);
    const SendResult result = sender_.send(unit_, unitPackets_, unitTimestamp_, more);
    unitPackets_ += result.packets;
    if (result.status == SendStatus::sent)
    {
        sender_.transport()->sent.capture.store(unit_->captureTime, std::memory_order_relaxed);
        unit_.reset();
        unitPackets_ = 0;
        if (state_.is(SenderState::announced))
        {
            state_.enter(SenderState::running);
            noteJoin();
        }
        ++cursor_;
        return true;
    }
    if (result.status == SendStatus::congested && !flow_.is(SenderFlow::congested))
    {
        flow_.enter(SenderFlow::congested);
        congestedSince_ = now;
    }
    if (unitPackets_ == 0 && state_.is(SenderState::running))
    {
        unit_.reset();
    }
    return false;
}

/// Audio starts with the video: where there is some, that is what counts.
void TrackSender::noteJoin()
{
    if (video_ || alone_)
    {
        ServerFigures::instance().liveJoins.add(settings_.clock->now() - playedAt_);
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
}

}  // namespace refhost

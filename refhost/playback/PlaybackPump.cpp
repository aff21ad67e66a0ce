#include "refhost/playback/PlaybackPump.h"

#include <algorithm>
#include <utility>

#include "refhost/playback/PlaybackScheduler.h"
#include "refhost/playback/ReplayExtension.h"

namespace refhost
{
namespace
{

constexpr std::int64_t never = PlaybackWork::never;
/// What one run may send, so that other sessions get their turn.
constexpr int maxSends = 64;
/// For a transport that reports when it is ready and forgot to.
constexpr std::int64_t readyAnywayMs = 500;

}  // namespace

PlaybackPump::PlaybackPump(const PlaybackSettings& settings, const PlaybackTracks& tracks,
                           std::int64_t beginNs, std::int64_t endNs)
    : settings_(settings),
      tracks_(tracks),
      readAhead_(settings),
      queue_(readAhead_.queue()),
      rangeBeginNs_(beginNs)
{
    reading_.endNs = endNs;
}

void PlaybackPump::setSpeed(const PlaySpeed& speed)
{
    mode_.speed = speed;
    enterSection();
    pacer_.setSpeed(speed.speed, settings_.clock->monotonicMs(), settings_.clock->monotonicNs());
    pacer_.timeline().rescale(placeNs(), speed.rate());
    requestReports();
}

bool PlaybackPump::readsForMode() const
{
    return reading_.keyFramesOnly == mode_.keyFramesOnly() &&
           reading_.keyDistanceNs == mode_.keyDistanceNs() && reading_.backwards == mode_.speed.backwards();
}

bool PlaybackPump::readsFor(const PlaybackTrack& track) const
{
    if (!readsForMode())
    {
        return false;
    }
    const PlaybackSource::Track& read = track.video ? reading_.video : reading_.audio;
    return read.payloadSize == track.payloadSize || (!track.video && mode_.keyFramesOnly());
}

/// Where the recording goes on, in the order of playing.
std::int64_t PlaybackPump::placeNs() const
{
    return queue_.empty() ? sentUntilNs_ : queue_.front().mediaNs;
}

std::int64_t PlaybackPump::positionNs() const
{
    return reading_.mirrored(placeNs());
}

/// The player's time that a timestamp tells. Where the client sets the pace, timestamps are those of the
/// recording in either direction (ONVIF Streaming, "RTP timestamps" of reverse replay).
std::int64_t PlaybackPump::stampNs(std::int64_t playNs) const
{
    const bool mirrors = reading_.backwards && !mode_.paced();
    return mirrors ? 2 * placedAtNs_ - playNs : playNs;
}

void PlaybackPump::moveTo(const PlaybackSource::Request& request, PlaybackUnit first, bool goesOn)
{
    const bool moved = state() != PlaybackState::unplaced;
    pacer_.stop();
    reading_ = request;
    section_ = first.section;
    pacer_.timeline().jump(first.mediaNs, mode_.speed.rate());
    placedAtNs_ = pacer_.timeline().endNs();
    sentUntilNs_ = first.mediaNs;
    readAhead_.restart(std::move(first));
    if (!goesOn)
    {
        pauseAtNs_.reset();
    }
    if (!goesOn || !playing())
    {
        state_.enter(PlaybackState::paused);
    }
    breakTracks(moved);
}

void PlaybackPump::start(PlaybackTrack& track, std::int64_t startNs)
{
    enterSection();
    if (!playing() || track.playing())
    {
        rangeBeginNs_ = std::max(positionNs(), startNs);
    }
    state_.enter(PlaybackState::playing);
    track.start();
    track.first.sequenceNumber = track.sender.sequence();
    track.first.rtpTimestamp =
        track.timestamp(stampNs(pacer_.timeline().at(reading_.mirrored(rangeBeginNs_))));
    togetherUntilMs_ = settings_.clock->monotonicMs() + settings_.togetherMs;
}

void PlaybackPump::stop(PlaybackTrack& track)
{
    track.pause();
    togetherUntilMs_ = settings_.clock->monotonicMs() + settings_.togetherMs;
    if (!tracks_.anyPlaying())
    {
        halt(PlaybackState::paused);
    }
}

void PlaybackPump::end(PlaybackTrack& track)
{
    stop(track);
    const std::int64_t nowNs = settings_.clock->monotonicNs();
    track.sendBye(settings_.clock->wall().mapping().at(nowNs), pacer_.playNs(nowNs));
    track.sender.disconnect();
}

/// \param next  the state of a session that played
void PlaybackPump::halt(PlaybackState next)
{
    if (playing())
    {
        state_.enter(next);
    }
    pauseAtNs_.reset();
    pacer_.stop();
}

void PlaybackPump::requestReports()
{
    tracks_.each([](PlaybackTrack& track) { track.sender.wantReport(); });
}

/// What comes next does not follow what was sent.
void PlaybackPump::breakTracks(bool discontinuity)
{
    tracks_.each([discontinuity](PlaybackTrack& track) { track.breakOff(discontinuity); });
}

/// Enters the contiguous range of the recording that the next unit belongs to.
void PlaybackPump::enterSection()
{
    if (queue_.empty() || queue_.front().section == section_)
    {
        return;
    }
    section_ = queue_.front().section;
    pacer_.timeline().jump(queue_.front().dueNs, mode_.speed.rate());
    breakTracks(true);
}

std::int64_t PlaybackPump::run(std::int64_t nowMs)
{
    for (int i = 0; i < maxSends; ++i)
    {
        if (!playing())
        {
            return never;
        }
        if (queue_.empty())
        {
            return readAhead_.atEnd() ? finish(nowMs) : never;
        }
        if (const Wait wait = runHead(nowMs))
        {
            return *wait;
        }
    }
    return nowMs;
}

PlaybackPump::Wait PlaybackPump::runHead(std::int64_t nowMs)
{
    enterSection();
    const PlaybackUnit& unit = queue_.front();
    if (pauseAtNs_ && unit.dueNs >= reading_.mirrored(*pauseAtNs_))
    {
        tracks_.each([](PlaybackTrack& track) { track.pause(); });
        halt(PlaybackState::paused);
        return never;
    }
    const PlaybackTracks::TrackPtr track = tracks_.of(unit.video);
    if (!track || leavesOut(unit, *track))
    {
        dropHead();
        return {};
    }
    if (!track->playing())
    {
        if (nowMs < togetherUntilMs_)
        {
            return togetherUntilMs_;
        }
        dropHead();
        return {};
    }
    const RtpTransport* const transport = track->sender.transport();
    const SendStatus status = transport == nullptr ? SendStatus::closed : transport->state();
    if (status == SendStatus::held)
    {
        return never;
    }
    if (status == SendStatus::closed)
    {
        stop(*track);
        return {};
    }
    return send(*track, nowMs);
}

void PlaybackPump::dropHead()
{
    sentUntilNs_ = queue_.front().mediaNs + queue_.front().durationNs;
    queue_.pop();
}

bool PlaybackPump::leavesOut(const PlaybackUnit& unit, const PlaybackTrack& track) const
{
    if (unit.video)
    {
        return false;
    }
    if (!mode_.speed.withAudio())
    {
        return true;
    }
    return mode_.speed.scale > 1 && track.audioIsFull(pacer_.timeline().at(unit.mediaNs + unit.durationNs));
}

void PlaybackPump::prepareHead(PlaybackTrack& track)
{
    constexpr std::int64_t roundingNs = 5'000'000;  // Matroska counts milliseconds
    const PlaybackUnit& unit = queue_.front();
    PlaybackQueue::Head& head = queue_.head();
    const std::int64_t playNs = pacer_.timeline().at(unit.mediaNs);
    const std::int64_t toleranceNs =
        mode_.speed.scale > 1 ? std::max(unit.durationNs, roundingNs) : roundingNs;
    head.timestamp =
        unit.video ? track.timestamp(stampNs(playNs)) : track.audioTimestamp(playNs, toleranceNs);
    head.unit = unit.unit;
    if (mode_.replay())
    {
        ReplayExtension extension;
        extension.mediaNs = unit.wallNs;
        extension.cleanPoint = unit.key;
        extension.endOfRange = unit.last;
        extension.discontinuity = track.brokenOff() || reading_.backwards;
        extension.playSequence = mode_.sequence();
        head.unit = extension.addTo(*unit.unit);
    }
}

PlaybackPump::Wait PlaybackPump::send(PlaybackTrack& track, std::int64_t nowMs)
{
    const PlaybackUnit& unit = queue_.front();
    const std::int64_t nowNs = settings_.clock->monotonicNs();
    const std::int64_t playNs = pacer_.timeline().at(unit.dueNs);
    const bool paced = mode_.paced();
    const std::int64_t dueMs = pacer_.running() ? pacer_.dueMs(playNs) : nowMs;
    if (paced && nowMs < dueMs)
    {
        return dueMs;
    }
    const bool reportsReady = track.sender.transport()->traits().reportsReady;
    const std::int64_t lateMs = reportsReady ? settings_.lateMs : settings_.lateDatagramsMs;
    if (!pacer_.running() || (paced && nowMs - dueMs > lateMs))
    {
        pacer_.start(nowMs, nowNs, playNs);
        requestReports();
    }
    PlaybackQueue::Head& head = queue_.head();
    if (!head.unit)
    {
        prepareHead(track);
    }
    track.sender.followWallClock();
    if (track.sender.reportDue(nowMs))
    {
        track.sender.sendReport(nowMs, settings_.clock->wall().mapping().at(nowNs),
                                track.timestamp(paced ? pacer_.playNs(nowNs) : stampNs(playNs)));
    }
    const SendResult result = track.sender.send(head.unit, head.packetsSent, head.timestamp, false);
    head.packetsSent += result.packets;
    if (result.status == SendStatus::congested)
    {
        return nowMs + (reportsReady ? readyAnywayMs : settings_.retryMs);
    }
    if (result.status != SendStatus::sent)
    {
        return never;
    }
    if (!reportsReady)
    {
        byeNotBeforeMs_ = nowMs + settings_.byeDelayMs;
    }
    track.sent(head.timestamp, unit.video ? 0 : unit.durationNs);
    pacer_.timeline().sentUntil(unit.mediaNs + unit.durationNs);
    dropHead();
    return {};
}

/// Everything was sent; the end is when the last frame has been displayed.
std::int64_t PlaybackPump::finish(std::int64_t nowMs)
{
    const std::int64_t endNs = pacer_.timeline().endNs();
    const std::int64_t displayedMs = mode_.paced() && pacer_.running() ? pacer_.dueMs(endNs) : nowMs;
    const std::int64_t dueMs = std::max(displayedMs, byeNotBeforeMs_);
    if (nowMs < dueMs)
    {
        return dueMs;
    }
    const std::int64_t wallNs = settings_.clock->wall().mapping().at(settings_.clock->monotonicNs());
    tracks_.each(
        [&](PlaybackTrack& track)
        {
            if (track.playing())
            {
                track.pause();
                track.sendBye(wallNs, endNs);
            }
        });
    halt(PlaybackState::ended);
    return never;
}

}  // namespace refhost

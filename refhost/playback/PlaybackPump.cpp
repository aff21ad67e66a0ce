#include "refhost/playback/PlaybackPump.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "refhost/playback/ReplayExtension.h"
#include "refhost/threads/WorkPool.h"

namespace refhost
{
namespace
{

constexpr MonotonicTime never = PooledWork::never;
/// Max. units sent by one run, so that other sessions get their turn.
constexpr int maxSends = 64;
/// Fallback for a transport that misses reporting when it is ready.
constexpr Duration readyAnyway = std::chrono::milliseconds(500);

}  // namespace

PlaybackPump::PlaybackPump(const PlaybackSettings& settings, const PlaybackTracks& tracks, WallTime begin,
                           WallTime end)
    : settings_(settings),
      tracks_(tracks),
      readAhead_(settings),
      queue_(readAhead_.queue()),
      rangeBegin_(begin)
{
    reading_.end = end;
}

void PlaybackPump::setSpeed(const PlaySpeed& speed)
{
    mode_.speed = speed;
    enterRange();
    pacer_.setSpeed(speed.speed, settings_.clock->now());
    pacer_.timeline().rescale(place(), speed.rate());
    requestReports();
}

bool PlaybackPump::readsForMode() const
{
    return reading_.keyFramesOnly == mode_.keyFramesOnly() && reading_.keyDistance == mode_.keyDistance() &&
           reading_.backwards == mode_.speed.backwards();
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

/// Position of the next unit, in the order of play.
WallTime PlaybackPump::place() const
{
    return queue_.empty() ? sentUntil_ : queue_.front().media;
}

WallTime PlaybackPump::position() const
{
    return reading_.mirrored(place());
}

/// The player's time that timestamps stand for. Where the client sets the pace, timestamps are those of the
/// recording in either direction (ONVIF Streaming, "RTP timestamps" of reverse replay).
PlayTime PlaybackPump::stamped(PlayTime play) const
{
    const bool mirrors = reading_.backwards && !mode_.paced();
    return mirrors ? placedAt_ + (placedAt_ - play) : play;
}

void PlaybackPump::moveTo(const PlaybackSource::Request& request, PlaybackUnit first, bool goesOn)
{
    const bool moved = state() != PlaybackState::unplaced;
    pacer_.stop();
    reading_ = request;
    range_ = first.range;
    pacer_.timeline().jump(first.media, mode_.speed.rate());
    placedAt_ = pacer_.timeline().end();
    sentUntil_ = first.media;
    readAhead_.restart(std::move(first));
    if (!goesOn)
    {
        pauseAt_.reset();
    }
    if (!goesOn || !playing())
    {
        state_.enter(PlaybackState::paused);
    }
    breakTracks(moved);
}

void PlaybackPump::start(PlaybackTrack& track, WallTime timeZero)
{
    enterRange();
    if (!playing() || track.playing())
    {
        rangeBegin_ = std::max(position(), timeZero);
    }
    state_.enter(PlaybackState::playing);
    track.start();
    track.first.sequenceNumber = track.sender.sequence();
    track.first.rtpTimestamp = track.timestamp(stamped(pacer_.timeline().at(reading_.mirrored(rangeBegin_))));
    togetherUntil_ = settings_.clock->now() + settings_.startTogether;
}

void PlaybackPump::stop(PlaybackTrack& track)
{
    track.pause();
    togetherUntil_ = settings_.clock->now() + settings_.startTogether;
    if (!tracks_.anyPlaying())
    {
        halt(PlaybackState::paused);
    }
}

void PlaybackPump::end(PlaybackTrack& track)
{
    stop(track);
    const MonotonicTime now = settings_.clock->now();
    track.sendBye(settings_.clock->wall().mapping().at(now), pacer_.at(now));
    track.sender.disconnect();
}

/// \param next  the state of a session that played
void PlaybackPump::halt(PlaybackState next)
{
    if (playing())
    {
        state_.enter(next);
    }
    pauseAt_.reset();
    pacer_.stop();
}

void PlaybackPump::requestReports()
{
    tracks_.each([](PlaybackTrack& track) { track.sender.requestReport(); });
}

/// Declares that the next units do not follow the sent ones.
void PlaybackPump::breakTracks(bool discontinuity)
{
    tracks_.each([discontinuity](PlaybackTrack& track) { track.breakOff(discontinuity); });
}

/// Enters the contiguous range of the recording that the next unit belongs to.
void PlaybackPump::enterRange()
{
    if (queue_.empty() || queue_.front().range == range_)
    {
        return;
    }
    range_ = queue_.front().range;
    pacer_.timeline().jump(queue_.front().due, mode_.speed.rate());
    breakTracks(true);
}

MonotonicTime PlaybackPump::run(MonotonicTime now)
{
    for (int i = 0; i < maxSends; ++i)
    {
        if (!playing())
        {
            return never;
        }
        if (queue_.empty())
        {
            return readAhead_.atEnd() ? finish(now) : never;
        }
        if (const Wait wait = runHead(now))
        {
            return *wait;
        }
    }
    return now;
}

PlaybackPump::Wait PlaybackPump::runHead(MonotonicTime now)
{
    enterRange();
    const PlaybackUnit& unit = queue_.front();
    if (pauseAt_ && unit.due >= reading_.mirrored(*pauseAt_))
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
        if (now < togetherUntil_)
        {
            return togetherUntil_;
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
    return send(*track, now);
}

void PlaybackPump::dropHead()
{
    sentUntil_ = queue_.front().media + queue_.front().duration;
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
    return mode_.speed.scale > 1 && track.audioIsFull(pacer_.timeline().at(unit.media + unit.duration));
}

void PlaybackPump::prepareHead(PlaybackTrack& track)
{
    constexpr Duration rounding = std::chrono::milliseconds(5);  // Matroska counts milliseconds
    const PlaybackUnit& unit = queue_.front();
    PlaybackQueue::Head& head = queue_.head();
    const PlayTime play = pacer_.timeline().at(unit.media);
    const Duration tolerance = mode_.speed.scale > 1 ? std::max(unit.duration, rounding) : rounding;
    head.timestamp = unit.video ? track.timestamp(stamped(play)) : track.audioTimestamp(play, tolerance);
    head.unit = unit.unit;
    if (mode_.replay())
    {
        ReplayExtension extension;
        extension.recorded = unit.wall;
        extension.cleanPoint = unit.key;
        extension.endOfRange = unit.last;
        extension.discontinuity = track.brokenOff() || reading_.backwards;
        extension.playSequence = mode_.sequence();
        head.unit = extension.addTo(*unit.unit);
    }
}

PlaybackPump::Wait PlaybackPump::send(PlaybackTrack& track, MonotonicTime now)
{
    const PlaybackUnit& unit = queue_.front();
    const MonotonicTime sendTime = settings_.clock->now();
    const PlayTime play = pacer_.timeline().at(unit.due);
    const bool paced = mode_.paced();
    const MonotonicTime due = pacer_.running() ? pacer_.due(play) : now;
    if (paced && now < due)
    {
        return due;
    }
    const bool reportsReady = track.sender.transport()->traits().reportsReady;
    const Duration maxDelay = reportsReady ? settings_.maxDelay : settings_.maxDelayOfDatagrams;
    if (!pacer_.running() || (paced && now - due > maxDelay))
    {
        pacer_.start(now, play);
        requestReports();
    }
    PlaybackQueue::Head& head = queue_.head();
    if (!head.unit)
    {
        prepareHead(track);
    }
    track.sender.followWallClock();
    if (track.sender.reportDue(now))
    {
        track.sender.sendReport(now, settings_.clock->wall().mapping().at(sendTime),
                                track.timestamp(paced ? pacer_.at(sendTime) : stamped(play)));
    }
    const SendResult result = track.sender.send(head.unit, head.packetsSent, head.timestamp, false);
    head.packetsSent += result.packets;
    if (result.status == SendStatus::congested)
    {
        return now + (reportsReady ? readyAnyway : settings_.retryInterval);
    }
    if (result.status != SendStatus::sent)
    {
        return never;
    }
    if (!reportsReady)
    {
        earliestBye_ = now + settings_.byeDelay;
    }
    track.sent(head.timestamp, unit.video ? Duration::zero() : unit.duration);
    pacer_.timeline().sentUntil(unit.media + unit.duration);
    dropHead();
    return {};
}

/// Everything was sent; play ends when the last frame has been displayed.
MonotonicTime PlaybackPump::finish(MonotonicTime now)
{
    const PlayTime end = pacer_.timeline().end();
    const MonotonicTime displayed = mode_.paced() && pacer_.running() ? pacer_.due(end) : now;
    const MonotonicTime due = std::max(displayed, earliestBye_);
    if (now < due)
    {
        return due;
    }
    const WallTime wall = settings_.clock->wall().mapping().at(settings_.clock->now());
    tracks_.each(
        [&](PlaybackTrack& track)
        {
            if (track.playing())
            {
                track.pause();
                track.sendBye(wall, end);
            }
        });
    halt(PlaybackState::ended);
    return never;
}

}  // namespace refhost

#include "refhost/playback/PlaybackSession.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "refhost/base/ChangeSignal.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/ServerFigures.h"

namespace refhost
{
namespace
{

/// Positions have microseconds: a begin that was rounded down must still find its frame.
constexpr std::chrono::microseconds positionUnit(1);

}  // namespace

PlaybackSession::PlaybackSession(const Interval& interval, std::unique_ptr<PlaybackSource> source,
                                 WorkPool& pool, const PlaybackSettings& settings)
    : interval_(interval),
      settings_(settings),
      pool_(pool),
      source_(std::move(source)),
      name_(RtcpWriter::randomName()),
      pump_(settings_, tracks_, interval.start, interval.end)
{
}

PlaybackSession::~PlaybackSession() = default;

void PlaybackSession::addTrack(const SubMediaInfo& info, int payloadSize)
{
    const MutexLock lock(mutex_);
    auto track = std::make_shared<PlaybackTrack>(weak_from_this(), info, payloadSize, name_, settings_);
    if (const TrackPtr former = tracks_.of(track->video))
    {
        pump_.end(*former);
    }
    tracks_.add(std::move(track));
}

int PlaybackSession::connect(const std::string& trackId, const SafePointer<IConnection>& connection)
{
    const MutexLock lock(mutex_);
    const TrackPtr track = tracks_.find(trackId);
    return track ? track->sender.connect(connection, track) : hostTrackUnknown;
}

int PlaybackSession::play(const std::string& trackId)
{
    const MutexLock lock(mutex_);
    const TrackPtr track = tracks_.find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    if (!track->sender.connected())
    {
        return hostConnectionUnusable;
    }
    track->noteActivity();
    if (seek_.takeFailure())
    {
        return hostRangeInvalid;
    }
    if (!seek_.pending())
    {
        const PlaybackState state = pump_.state();
        if (state == PlaybackState::unplaced || state == PlaybackState::ended)
        {
            seek_.request(wholeInterval());
        }
        else if (!pump_.readsFor(*track))
        {
            seek_.request(goingOn());
        }
    }
    wake();
    if (seek_.pending())
    {
        return hostStreamNotReady;
    }
    pump_.start(*track, interval_.start);
    return 0;
}

int PlaybackSession::pause(const std::string& trackId)
{
    const MutexLock lock(mutex_);
    const TrackPtr track = tracks_.find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    pump_.stop(*track);
    return 0;
}

int PlaybackSession::remove(const std::string& trackId, bool& empty)
{
    const MutexLock lock(mutex_);
    const TrackPtr track = tracks_.find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    pump_.end(*track);
    tracks_.remove(*track);
    empty = tracks_.empty();
    return 0;
}

int PlaybackSession::setRange(const std::string& trackId, double begin, double end, int kind, bool move)
{
    const MutexLock lock(mutex_);
    if (!tracks_.find(trackId))
    {
        return hostTrackUnknown;
    }
    pump_.setKind(kind);
    if (!move)
    {
        return 0;
    }
    const bool backwards = pump_.mode().speed.backwards();
    PendingSeek::Target target{instant(begin), instant(end), false};
    if (backwards ? target.from < target.end : target.from >= target.end)
    {
        return hostRangeInvalid;
    }
    // Every position up to the interval's begin means that begin.
    const bool first =
        target.from == interval_.start || (target.from <= interval_.begin && target.end > interval_.begin);
    if (!backwards)
    {
        target.from = first ? interval_.begin : target.from + positionUnit;
    }
    seek_.request(target);
    return 0;
}

int PlaybackSession::range(const std::string& trackId, double& begin, double& end)
{
    const MutexLock lock(mutex_);
    if (!tracks_.find(trackId))
    {
        return hostTrackUnknown;
    }
    begin = secondsOf(pump_.rangeBegin() - interval_.start);
    end = secondsOf(pump_.reading().end - interval_.start);
    return 0;
}

int PlaybackSession::setPausePosition(const std::string& trackId, double position)
{
    const MutexLock lock(mutex_);
    if (!tracks_.find(trackId))
    {
        return hostTrackUnknown;
    }
    pump_.pauseAt(instant(position));
    wake();
    return 0;
}

int PlaybackSession::setSpeed(const std::string& trackId, double scale, double speed)
{
    const MutexLock lock(mutex_);
    if (!tracks_.find(trackId))
    {
        return hostTrackUnknown;
    }
    const PlaySpeed used = PlaySpeed::used(scale, speed);
    if (used == pump_.mode().speed)
    {
        return 0;
    }
    pump_.setSpeed(used);
    if (pump_.state() == PlaybackState::playing && !seek_.pending() && !pump_.readsForMode())
    {
        seek_.request(goingOn());
    }
    wake();
    return 0;
}

int PlaybackSession::firstPacket(const std::string& trackId, RTPPacketInfo& out)
{
    const MutexLock lock(mutex_);
    const TrackPtr track = tracks_.find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    out = track->first;
    return 0;
}

int PlaybackSession::ssrc(const std::string& trackId, int& ssrc)
{
    const MutexLock lock(mutex_);
    const TrackPtr track = tracks_.find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    ssrc = static_cast<int>(track->sender.ssrc());
    return 0;
}

int PlaybackSession::connectionState(const std::string& trackId, bool& connected)
{
    const MutexLock lock(mutex_);
    const TrackPtr track = tracks_.find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    connected = track->sender.connected() && !track->silent();
    return 0;
}

int PlaybackSession::statistics(const std::string& trackId, TrackStatistics& out)
{
    const MutexLock lock(mutex_);
    const TrackPtr track = tracks_.find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    out = track->sender.statistics();
    return 0;
}

void PlaybackSession::setReportInterval(Duration interval)
{
    const MutexLock lock(mutex_);
    settings_.reportInterval = interval;
    tracks_.each([interval](PlaybackTrack& track) { track.sender.setReportInterval(interval); });
}

void PlaybackSession::end()
{
    const MutexLock lock(mutex_);
    for (const bool video : {true, false})
    {
        if (const TrackPtr track = tracks_.of(video))
        {
            pump_.end(*track);
            tracks_.remove(*track);
        }
    }
}

bool PlaybackSession::empty() const
{
    const MutexLock lock(mutex_);
    return tracks_.empty();
}

bool PlaybackSession::ended() const
{
    const MutexLock lock(mutex_);
    return pump_.state() == PlaybackState::ended && !seek_.pending();
}

void PlaybackSession::wake()
{
    pool_.wake(shared_from_this());
}

void PlaybackSession::readReport(PlaybackTrack& track, const std::uint8_t* data, std::size_t size)
{
    const MutexLock lock(mutex_);
    track.noteActivity();
    track.sender.readReport(data, size, static_cast<std::uint32_t>(track.rtpClock.rate()));
}

/// Date of a position, clamped to the presentation; not-a-number counts as 0.
WallTime PlaybackSession::instant(double seconds) const
{
    const double length = secondsOf(interval_.end - interval_.start);
    const double inside = seconds > 0 ? std::min(seconds, length) : 0;
    return interval_.start + durationOf(std::chrono::duration<double>(inside));
}

PendingSeek::Target PlaybackSession::wholeInterval() const
{
    return pump_.mode().speed.backwards() ? PendingSeek::Target{interval_.end, interval_.start, false}
                                          : PendingSeek::Target{interval_.begin, interval_.end, false};
}

/// The rest of what plays now, in the requested direction.
PendingSeek::Target PlaybackSession::goingOn() const
{
    const bool turns = pump_.mode().speed.backwards() != pump_.reading().backwards;
    return {pump_.position(), turns ? wholeInterval().end : pump_.reading().end, true};
}

PlaybackSource::Request PlaybackSession::requestFor(const PendingSeek::Target& target) const
{
    const PlayMode& mode = pump_.mode();
    PlaybackSource::Request request;
    request.from = target.from;
    request.end = target.end;
    request.backwards = mode.speed.backwards();
    request.keyFramesOnly = mode.keyFramesOnly();
    request.keyDistance = mode.keyDistance();
    if (const TrackPtr& video = tracks_.of(true))
    {
        request.video = {video->payloadSize, video->encodingName};
    }
    const TrackPtr& audio = tracks_.of(false);
    if (audio && !request.keyFramesOnly)
    {
        request.audio = {audio->payloadSize, audio->encodingName};
    }
    return request;
}

MonotonicTime PlaybackSession::run(MonotonicTime now)
{
    // Keeps the mapping up to date, so that the tracks notice a step of the clock.
    settings_.clock->wall().mapping();
    const MutexLock lock(mutex_);
    if (seek_.pending())
    {
        seek();
    }
    MonotonicTime due = pump_.run(now);
    if (readAhead(now))
    {
        due = pump_.run(now);
    }
    if (seek_.pending() || shouldRead(now))
    {
        return now;
    }
    return std::min(due, pump_.readAhead().retryTime(now));
}

/// Searches the requested position, without the lock: the disk may be slow.
void PlaybackSession::seek()
{
    const PendingSeek::Search search = seek_.search();
    ServerFigures::add(ServerFigures::instance().playbackSeeks);
    const PlaybackSource::Request request = requestFor(search.target);
    PlaybackUnit first;
    bool found = false;
    {
        const MutexUnlock unlocked(mutex_);
        found = source_->open(request) && source_->read(first) == PlaybackSource::Result::unit;
    }
    if (found)
    {
        pump_.moveTo(request, std::move(first), search.target.goesOn);
    }
    seek_.finish(search, found);
    const MutexUnlock unlocked(mutex_);
    ChangeSignal::instance().announce();
}

bool PlaybackSession::shouldRead(MonotonicTime now)
{
    return pump_.readAhead().shouldRead(now, pump_.mode().speed.rate());
}

/// \returns true when units were read or the end was found
bool PlaybackSession::readAhead(MonotonicTime now)
{
    if (seek_.pending() || !shouldRead(now))
    {
        return false;
    }
    const ReadAhead::Plan plan = pump_.readAhead().plan(pump_.mode().speed.rate());
    ReadAhead::Batch batch;
    {
        const MutexUnlock unlocked(mutex_);
        batch = ReadAhead::read(*source_, plan);
    }
    return pump_.readAhead().add(std::move(batch), now);
}

}  // namespace refhost

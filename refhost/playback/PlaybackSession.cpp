#include "refhost/playback/PlaybackSession.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "refhost/base/ChangeSignal.h"
#include "refhost/base/HostStatus.h"

namespace refhost
{
namespace
{

constexpr double nsPerSecond = 1e9;
/// Positions are told and asked for in microseconds: one that was rounded down is meant all the same.
constexpr std::int64_t toldInNs = 1000;

}  // namespace

PlaybackSession::PlaybackSession(const Interval& interval, std::unique_ptr<PlaybackSource> source,
                                 PlaybackScheduler& scheduler, const PlaybackSettings& settings)
    : interval_(interval),
      settings_(settings),
      readAhead_(*settings.readAheadBudget),
      scheduler_(scheduler),
      source_(std::move(source)),
      name_(RtcpWriter::randomName()),
      rangeBeginNs_(interval.startNs)
{
    reading_.endNs = interval.endNs;
}

PlaybackSession::~PlaybackSession() = default;

void PlaybackSession::addTrack(const SubMediaInfo& info, int payloadSize)
{
    const Lock lock(mutex_);
    auto track = std::make_shared<PlaybackTrack>(weak_from_this(), info, payloadSize, name_, settings_);
    TrackPtr& place = tracks_[track->video ? 0 : 1];
    if (place)
    {
        endTrack(*place);
    }
    place = std::move(track);
}

int PlaybackSession::connect(const std::string& trackId, const SafePointer<IConnection>& connection)
{
    const Lock lock(mutex_);
    const TrackPtr track = find(trackId);
    return track ? track->sender.connect(connection, track) : hostTrackUnknown;
}

int PlaybackSession::play(const std::string& trackId)
{
    const Lock lock(mutex_);
    const TrackPtr track = find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    if (!track->sender.connected())
    {
        return hostConnectionUnusable;
    }
    track->heard();
    if (placeFailed_)
    {
        placeFailed_ = false;
        return hostRangeInvalid;
    }
    if (!wanted_ && (!placed_ || ended_))
    {
        want(wholeInterval());
    }
    else if (!wanted_ && !readsWhatIsWanted(*track))
    {
        want(goingOn());
    }
    wake();
    if (wanted_)
    {
        return hostStreamNotReady;
    }
    startSending(*track);
    return 0;
}

int PlaybackSession::pause(const std::string& trackId)
{
    const Lock lock(mutex_);
    const TrackPtr track = find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    stopTrack(*track);
    return 0;
}

int PlaybackSession::remove(const std::string& trackId, bool& empty)
{
    const Lock lock(mutex_);
    const TrackPtr track = find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    endTrack(*track);
    tracks_[track->video ? 0 : 1].reset();
    empty = !tracks_[0] && !tracks_[1];
    return 0;
}

int PlaybackSession::setRange(const std::string& trackId, double begin, double end, int kind, bool move)
{
    const Lock lock(mutex_);
    if (!find(trackId))
    {
        return hostTrackUnknown;
    }
    kind_ = kind;
    if (!move)
    {
        return 0;
    }
    Place place{instant(begin), instant(end), false};
    if (speed_.backwards() ? place.fromNs < place.endNs : place.fromNs >= place.endNs)
    {
        return hostRangeInvalid;
    }
    // Whatever is asked for up to the interval's begin is what the interval itself asks for.
    const bool first = place.fromNs == interval_.startNs ||
                       (place.fromNs <= interval_.beginNs && place.endNs > interval_.beginNs);
    if (!speed_.backwards())
    {
        place.fromNs = first ? interval_.beginNs : place.fromNs + toldInNs;
    }
    want(place);
    return 0;
}

int PlaybackSession::range(const std::string& trackId, double& begin, double& end)
{
    const Lock lock(mutex_);
    if (!find(trackId))
    {
        return hostTrackUnknown;
    }
    begin = static_cast<double>(rangeBeginNs_ - interval_.startNs) / nsPerSecond;
    end = static_cast<double>(reading_.endNs - interval_.startNs) / nsPerSecond;
    return 0;
}

int PlaybackSession::setPausePosition(const std::string& trackId, double position)
{
    const Lock lock(mutex_);
    if (!find(trackId))
    {
        return hostTrackUnknown;
    }
    pauseAtNs_ = instant(position);
    wake();
    return 0;
}

int PlaybackSession::setSpeed(const std::string& trackId, double scale, double speed)
{
    const Lock lock(mutex_);
    if (!find(trackId))
    {
        return hostTrackUnknown;
    }
    const PlaySpeed used = PlaySpeed::used(scale, speed);
    if (used == speed_)
    {
        return 0;
    }
    speed_ = used;
    settleHead();
    pacer_.setSpeed(used.speed, settings_.clock->monotonicMs(), settings_.clock->monotonicNs());
    pacer_.timeline().rescale(placeNs(), used.rate());
    wantReports();
    if (sending_ && !wanted_ && !readsPicturesAsWanted())
    {
        want(goingOn());
    }
    wake();
    return 0;
}

int PlaybackSession::firstPacket(const std::string& trackId, RTPPacketInfo& out)
{
    const Lock lock(mutex_);
    const TrackPtr track = find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    out = track->first;
    return 0;
}

int PlaybackSession::ssrc(const std::string& trackId, int& ssrc)
{
    const Lock lock(mutex_);
    const TrackPtr track = find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    ssrc = static_cast<int>(track->sender.ssrc());
    return 0;
}

int PlaybackSession::connectionState(const std::string& trackId, bool& connected)
{
    const Lock lock(mutex_);
    const TrackPtr track = find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    connected = track->sender.connected() && !track->silent();
    return 0;
}

int PlaybackSession::statistics(const std::string& trackId, TrackStatistics& out)
{
    const Lock lock(mutex_);
    const TrackPtr track = find(trackId);
    if (!track)
    {
        return hostTrackUnknown;
    }
    out = track->sender.statistics();
    return 0;
}

void PlaybackSession::setReportInterval(std::int64_t intervalMs)
{
    const Lock lock(mutex_);
    settings_.reportIntervalMs = intervalMs;
    for (const TrackPtr& track : tracks_)
    {
        if (track)
        {
            track->sender.setReportInterval(intervalMs);
        }
    }
}

void PlaybackSession::end()
{
    const Lock lock(mutex_);
    for (TrackPtr& track : tracks_)
    {
        if (track)
        {
            endTrack(*track);
            track.reset();
        }
    }
}

bool PlaybackSession::empty() const
{
    const Lock lock(mutex_);
    return !tracks_[0] && !tracks_[1];
}

bool PlaybackSession::ended() const
{
    const Lock lock(mutex_);
    return ended_ && !wanted_;
}

void PlaybackSession::wake()
{
    scheduler_.wake(shared_from_this());
}

void PlaybackSession::readReport(PlaybackTrack& track, const std::uint8_t* data, std::size_t size)
{
    const Lock lock(mutex_);
    track.heard();
    track.sender.readReport(data, size);
}

PlaybackSession::TrackPtr PlaybackSession::find(const std::string& trackId) const
{
    for (const TrackPtr& track : tracks_)
    {
        if (track && track->id == trackId)
        {
            return track;
        }
    }
    return nullptr;
}

/// The instant of a position, kept inside the presentation; not-a-number counts as its begin.
std::int64_t PlaybackSession::instant(double seconds) const
{
    const double length = static_cast<double>(interval_.endNs - interval_.startNs) / nsPerSecond;
    const double inside = seconds > 0 ? std::min(seconds, length) : 0;
    return interval_.startNs + std::llround(inside * nsPerSecond);
}

void PlaybackSession::want(const Place& place)
{
    wanted_ = place;
    ++wantedSerial_;
    placeFailed_ = false;
}

bool PlaybackSession::anyPlaying() const
{
    return std::any_of(tracks_.begin(), tracks_.end(),
                       [](const TrackPtr& track) { return track && track->playing; });
}

/// Where the footage goes on, in the order of playing.
std::int64_t PlaybackSession::placeNs() const
{
    return queue_.empty() ? sentUntilNs_ : queue_.front().mediaNs;
}

/// Where the footage goes on.
std::int64_t PlaybackSession::positionNs() const
{
    return reading_.mirrored(placeNs());
}

PlaybackSession::Place PlaybackSession::wholeInterval() const
{
    return speed_.backwards() ? Place{interval_.endNs, interval_.startNs, false}
                              : Place{interval_.beginNs, interval_.endNs, false};
}

/// The rest of what plays now, in the direction that is asked for.
PlaybackSession::Place PlaybackSession::goingOn() const
{
    const bool turns = speed_.backwards() != reading_.backwards;
    return {positionNs(), turns ? wholeInterval().endNs : reading_.endNs, true};
}

/// The player's time that a timestamp tells. Where the client sets the pace, timestamps are those of the
/// recording in either direction (ONVIF Streaming, "RTP timestamps" of reverse replay).
std::int64_t PlaybackSession::stampNs(std::int64_t playNs) const
{
    const bool mirrors = reading_.backwards && (kind_ & playRangeUnpaced) != 0;
    return mirrors ? 2 * placedAtNs_ - playNs : playNs;
}

bool PlaybackSession::keyPicturesOnly() const
{
    return speed_.keyPicturesOnly() || (kind_ & playRangeKeyPictures) != 0;
}

std::int64_t PlaybackSession::keyDistanceNs() const
{
    constexpr std::int64_t unitNs = 10'000'000;
    const bool asked = (kind_ & playRangeKeyPictures) != 0;
    return asked ? (kind_ >> playRangeDistanceShift & playRangeLongestDistance) * unitNs : 0;
}

bool PlaybackSession::readsPicturesAsWanted() const
{
    return reading_.keyPicturesOnly == keyPicturesOnly() && reading_.keyDistanceNs == keyDistanceNs() &&
           reading_.backwards == speed_.backwards();
}

bool PlaybackSession::readsWhatIsWanted(const PlaybackTrack& track) const
{
    if (!readsPicturesAsWanted())
    {
        return false;
    }
    const PlaybackSource::Track& read = track.video ? reading_.video : reading_.sound;
    return read.payloadSize == track.payloadSize || (!track.video && keyPicturesOnly());
}

void PlaybackSession::wantReports()
{
    for (const TrackPtr& track : tracks_)
    {
        if (track)
        {
            track->sender.wantReport();
        }
    }
}

void PlaybackSession::startSending(PlaybackTrack& track)
{
    settleHead();
    if (!sending_ || track.playing)
    {
        rangeBeginNs_ = std::max(positionNs(), interval_.startNs);
    }
    sending_ = true;
    track.playing = true;
    // A track that has nothing to send says goodbye all the same, against RFC 3550, section 6.3.7: players
    // take a recording for ended when every track has.
    track.saidGoodbye = false;
    track.first.sequenceNumber = track.sender.sequence();
    track.first.rtpTimestamp =
        track.timestamp(stampNs(pacer_.timeline().at(reading_.mirrored(rangeBeginNs_))));
    togetherUntilMs_ = settings_.clock->monotonicMs() + settings_.togetherMs;
}

void PlaybackSession::stopTrack(PlaybackTrack& track)
{
    track.playing = false;
    togetherUntilMs_ = settings_.clock->monotonicMs() + settings_.togetherMs;
    if (!anyPlaying())
    {
        stopSending();
    }
}

void PlaybackSession::stopSending()
{
    sending_ = false;
    pauseAtNs_.reset();
    pacer_.stop();
}

void PlaybackSession::endTrack(PlaybackTrack& track)
{
    stopTrack(track);
    const std::int64_t nowNs = settings_.clock->monotonicNs();
    track.sayGoodbye(settings_.clock->wall().mapping().at(nowNs), pacer_.playNs(nowNs));
    track.sender.disconnect();
}

}  // namespace refhost

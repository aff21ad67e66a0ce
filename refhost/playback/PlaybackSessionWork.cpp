#include <algorithm>
#include <utility>
#include <vector>

#include "refhost/base/ChangeSignal.h"
#include "refhost/playback/PlaybackSession.h"
#include "refhost/playback/ReplayExtension.h"

namespace refhost
{
namespace
{

/// What one run may read and send, so that other sessions get their turn.
constexpr int mostReadInOneRun = 64;
constexpr int mostSentInOneRun = 64;
/// Units that a queue holds at least, however long they last; key pictures of fast playing are far apart.
constexpr std::size_t fewUnits = 8;
/// For a transport that reports when it is ready and forgot to.
constexpr std::int64_t readyAnywayMs = 500;

}  // namespace

std::int64_t PlaybackSession::run(std::int64_t nowMs)
{
    // Now and then, so that the tracks notice when the clock is set.
    settings_.clock->wall().mapping();
    Lock lock(mutex_);
    if (wanted_)
    {
        place(lock);
    }
    std::int64_t dueMs = pump(nowMs);
    if (readAhead(lock, nowMs))
    {
        dueMs = pump(nowMs);
    }
    if (wanted_ || wantsToRead(nowMs))
    {
        return nowMs;
    }
    const bool waitsForFootage = placed_ && !atEnd_ && readLaterMs_ > nowMs && queue_.size() < fewUnits;
    return waitsForFootage ? std::min(dueMs, readLaterMs_) : dueMs;
}

/// Finds the place that is wanted; without the lock meanwhile, as the disk may take its time.
void PlaybackSession::place(Lock& lock)
{
    const Place place = *wanted_;
    const std::uint64_t serial = wantedSerial_;
    const PlaybackSource::Request request = requestFor(place);
    lock.unlock();
    PlaybackUnit first;
    const bool found = source_->open(request) && source_->read(first) == PlaybackSource::Result::unit;
    lock.lock();
    if (found)
    {
        takePlace(place, request, std::move(first));
    }
    if (serial == wantedSerial_)
    {
        wanted_.reset();
        placeFailed_ = !found && !place.goesOn;
    }
    lock.unlock();
    ChangeSignal::instance().announce();
    lock.lock();
}

PlaybackSource::Request PlaybackSession::requestFor(const Place& place) const
{
    PlaybackSource::Request request;
    request.fromNs = place.fromNs;
    request.endNs = place.endNs;
    request.backwards = speed_.backwards();
    request.keyPicturesOnly = keyPicturesOnly();
    request.keyDistanceNs = keyDistanceNs();
    if (const TrackPtr video = trackOf(true))
    {
        request.video = {video->payloadSize, video->encodingName};
    }
    const TrackPtr sound = trackOf(false);
    if (sound && !request.keyPicturesOnly)
    {
        request.sound = {sound->payloadSize, sound->encodingName};
    }
    return request;
}

void PlaybackSession::takePlace(const Place& place, const PlaybackSource::Request& request,
                                PlaybackUnit first)
{
    const bool moved = placed_;
    queue_.clear();
    pacer_.stop();
    reading_ = request;
    section_ = first.section;
    pacer_.timeline().jump(first.mediaNs, speed_.rate());
    placedAtNs_ = pacer_.timeline().endNs();
    sentUntilNs_ = first.mediaNs;
    queue_.add(std::move(first));
    placed_ = true;
    atEnd_ = false;
    ended_ = false;
    filling_ = true;
    readLaterMs_ = 0;
    sending_ = sending_ && place.goesOn;
    if (!place.goesOn)
    {
        pauseAtNs_.reset();
    }
    breakTracks(moved);
}

/// What comes next does not follow what was sent.
void PlaybackSession::breakTracks(bool moved)
{
    for (const TrackPtr& track : tracks_)
    {
        if (track)
        {
            track->breakOff(moved);
        }
    }
}

std::size_t PlaybackSession::readAheadBytes() const
{
    return std::min(settings_.readAheadBytes, readAhead_.bytes());
}

bool PlaybackSession::wantsToRead(std::int64_t nowMs)
{
    if (!placed_ || atEnd_ || nowMs < readLaterMs_)
    {
        return false;
    }
    const auto aheadMs =
        static_cast<std::int64_t>(static_cast<double>(queue_.spanNs()) / 1e6 / speed_.rate());
    const bool full = queue_.bytes() >= readAheadBytes();
    if (full || (queue_.size() >= fewUnits && aheadMs >= settings_.readAheadMs))
    {
        filling_ = false;
    }
    else if (queue_.size() < fewUnits || aheadMs < settings_.readAheadMs / 2)
    {
        filling_ = true;
    }
    return filling_ && !full;
}

/// \returns true when something came or the end was found
bool PlaybackSession::readAhead(Lock& lock, std::int64_t nowMs)
{
    if (wanted_ || !wantsToRead(nowMs))
    {
        return false;
    }
    std::vector<PlaybackUnit> units;
    auto result = PlaybackSource::Result::unit;
    const std::size_t held = queue_.size();
    const std::size_t allowed = readAheadBytes();
    const std::size_t mostBytes = allowed - std::min(allowed, queue_.bytes());
    const auto aheadNs =
        static_cast<std::int64_t>(static_cast<double>(settings_.readAheadMs) * 1e6 * speed_.rate());
    std::int64_t enoughNs = queue_.empty() ? 0 : queue_.front().dueNs + aheadNs;
    lock.unlock();
    std::size_t bytes = 0;
    bool enough = false;
    for (int i = 0; i < mostReadInOneRun && bytes < mostBytes && !enough; ++i)
    {
        PlaybackUnit unit;
        result = source_->read(unit);
        if (result != PlaybackSource::Result::unit)
        {
            break;
        }
        enoughNs = enoughNs == 0 ? unit.dueNs + aheadNs : enoughNs;
        bytes += unit.unit->bytes.size();
        units.push_back(std::move(unit));
        enough = held + units.size() >= fewUnits && units.back().dueNs >= enoughNs;
    }
    lock.lock();
    for (PlaybackUnit& unit : units)
    {
        queue_.add(std::move(unit));
    }
    atEnd_ = result == PlaybackSource::Result::end;
    if (result == PlaybackSource::Result::later)
    {
        readLaterMs_ = nowMs + settings_.growthMs;
    }
    return atEnd_ || !units.empty();
}

std::int64_t PlaybackSession::pump(std::int64_t nowMs)
{
    for (int i = 0; i < mostSentInOneRun; ++i)
    {
        if (!sending_)
        {
            return never;
        }
        if (queue_.empty())
        {
            return atEnd_ ? finish(nowMs) : never;
        }
        bool moved = false;
        const std::int64_t dueMs = pumpHead(nowMs, moved);
        if (!moved)
        {
            return dueMs;
        }
    }
    return nowMs;
}

/// \param[out] moved  true when the head was sent or left out: the result means nothing then
std::int64_t PlaybackSession::pumpHead(std::int64_t nowMs, bool& moved)
{
    settleHead();
    const PlaybackUnit& unit = queue_.front();
    if (pauseAtNs_ && unit.dueNs >= reading_.mirrored(*pauseAtNs_))
    {
        pauseAll();
        return never;
    }
    const TrackPtr track = trackOf(unit.video);
    if (!track || leavesOut(unit, *track))
    {
        leaveOut(moved);
        return never;
    }
    if (!track->playing)
    {
        if (nowMs >= togetherUntilMs_)
        {
            leaveOut(moved);
        }
        return togetherUntilMs_;
    }
    const SendStatus state =
        track->sender.transport() == nullptr ? SendStatus::closed : track->sender.transport()->state();
    if (state == SendStatus::held)
    {
        return never;
    }
    if (state == SendStatus::closed)
    {
        stopTrack(*track);
        moved = true;
        return never;
    }
    return send(*track, nowMs, moved);
}

void PlaybackSession::leaveOut(bool& moved)
{
    sentUntilNs_ = queue_.front().mediaNs + queue_.front().durationNs;
    queue_.pop();
    moved = true;
}

void PlaybackSession::pauseAll()
{
    for (const TrackPtr& track : tracks_)
    {
        if (track)
        {
            track->playing = false;
        }
    }
    stopSending();
}

bool PlaybackSession::leavesOut(const PlaybackUnit& unit, const PlaybackTrack& track) const
{
    if (unit.video)
    {
        return false;
    }
    if (!speed_.withSound())
    {
        return true;
    }
    return speed_.scale > 1 && track.soundIsFull(pacer_.timeline().at(unit.mediaNs + unit.durationNs));
}

/// Enters the section of footage that the next unit belongs to.
void PlaybackSession::settleHead()
{
    if (queue_.empty() || queue_.front().section == section_)
    {
        return;
    }
    section_ = queue_.front().section;
    pacer_.timeline().jump(queue_.front().dueNs, speed_.rate());
    breakTracks(true);
}

void PlaybackSession::prepareHead(PlaybackTrack& track)
{
    constexpr std::int64_t roundingNs = 5'000'000;  // Matroska counts milliseconds
    const PlaybackUnit& unit = queue_.front();
    PlaybackQueue::Head& head = queue_.head();
    const std::int64_t playNs = pacer_.timeline().at(unit.mediaNs);
    const std::int64_t toleranceNs = speed_.scale > 1 ? std::max(unit.durationNs, roundingNs) : roundingNs;
    head.timestamp =
        unit.video ? track.timestamp(stampNs(playNs)) : track.soundTimestamp(playNs, toleranceNs);
    head.unit = unit.unit;
    if ((kind_ & playRangeReplay) != 0)
    {
        ReplayExtension extension;
        extension.mediaNs = unit.wallNs;
        extension.cleanPoint = unit.key;
        extension.endOfSection = unit.last;
        extension.discontinuity = track.brokenOff() || reading_.backwards;
        extension.playSequence = static_cast<std::uint8_t>(kind_ >> playRangeSequenceShift);
        head.unit = extension.addTo(*unit.unit);
    }
}

std::int64_t PlaybackSession::send(PlaybackTrack& track, std::int64_t nowMs, bool& moved)
{
    const PlaybackUnit& unit = queue_.front();
    const std::int64_t nowNs = settings_.clock->monotonicNs();
    const std::int64_t playNs = pacer_.timeline().at(unit.dueNs);
    const bool paced = (kind_ & playRangeUnpaced) == 0;
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
        wantReports();
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
    if (result.status != SendStatus::sent)
    {
        return result.status == SendStatus::congested
                   ? nowMs + (reportsReady ? readyAnywayMs : settings_.retryMs)
                   : never;
    }
    track.sent(head.timestamp, unit.video ? 0 : unit.durationNs);
    pacer_.timeline().sentUntil(unit.mediaNs + unit.durationNs);
    leaveOut(moved);
    return never;
}

/// Everything was sent; the end is when the last picture has been seen.
std::int64_t PlaybackSession::finish(std::int64_t nowMs)
{
    const std::int64_t endNs = pacer_.timeline().endNs();
    const bool paced = (kind_ & playRangeUnpaced) == 0;
    if (paced && pacer_.running() && nowMs < pacer_.dueMs(endNs))
    {
        return pacer_.dueMs(endNs);
    }
    const std::int64_t wallNs = settings_.clock->wall().mapping().at(settings_.clock->monotonicNs());
    for (const TrackPtr& track : tracks_)
    {
        if (track && track->playing)
        {
            track->playing = false;
            track->sayGoodbye(wallNs, endNs);
        }
    }
    stopSending();
    ended_ = true;
    return never;
}

}  // namespace refhost

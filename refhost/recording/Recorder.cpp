#include "refhost/recording/Recorder.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"
#include "refhost/base/ServerEvents.h"
#include "refhost/base/ServerFigures.h"
#include "refhost/media/Codec.h"
#include "refhost/recording/IntervalText.h"
#include "refhost/recording/RecordingFolder.h"
#include "refhost/recording/SegmentMeasure.h"
#include "refhost/recording/SegmentPath.h"

namespace refhost
{

namespace
{

/// Max media between two flushes: the muxer keeps in memory what is not flushed.
constexpr Duration maxUnflushed = std::chrono::seconds(1);

/// Approximate memory of a unit.
std::size_t sizeOf(const EncodedUnit& unit)
{
    return unit.bytes.size() + sizeof(EncodedUnit);
}

void publishSegment(const RecordedSegment& segment, const std::string& title)
{
    if (!ServerEvents::instance().hasSubscribers())
    {
        return;
    }
    std::error_code problem;
    const std::filesystem::path path = std::filesystem::absolute(segment.path, problem);
    ServerEvents::instance().publish({"recording-segment",
                                      HostClock::system().wallNow(),
                                      {{"camera", std::int64_t{segment.cameraId}},
                                       {"stream", std::int64_t{segment.streamId}},
                                       {"title", title},
                                       {"path", problem ? segment.path : path.string()},
                                       {"start", ServerEvent::dateOf(segment.begin)},
                                       {"end", ServerEvent::dateOf(segment.end())},
                                       {"seconds", secondsOf(segment.duration)},
                                       {"bytes", segment.bytes}}});
}

}  // namespace

std::shared_ptr<Recorder> Recorder::start(const Stream& stream, std::shared_ptr<SegmentLedger> ledger,
                                          RecordingDisk& disk, const Options& options, Hooks hooks)
{
    std::shared_ptr<Recorder> recorder(
        new Recorder(stream, std::move(ledger), disk, options, std::move(hooks)));
    stream.source->attachMedia(recorder);
    stream.source->acquire();
    return recorder;
}

Recorder::Recorder(const Stream& stream, std::shared_ptr<SegmentLedger> ledger, RecordingDisk& disk,
                   const Options& options, Hooks hooks)
    : stream_(stream),
      title_(stream.name),
      segmentLength_(options.segmentLength),
      ledger_(std::move(ledger)),
      disk_(disk),
      options_(options),
      hooks_(std::move(hooks)),
      gate_(options.rolls, disk.preRoll()),
      maxQueued_(maxQueued(options.rolls)),
      cutter_(
          options.segmentLength, [this] { return expected(); }, *this),
      dates_(options.clock->wall().mapping()),
      damage_(stream.name)
{
}

Recorder::~Recorder() = default;

void Recorder::change(const std::string& name, Duration segmentLength,
                      const std::optional<EventGate::Rolls>& rolls)
{
    title_.replace(name);
    segmentLength_ = segmentLength;
    const MutexLock guard(inletMutex_);
    if (!stopping_)
    {
        maxQueued_ = std::max(maxQueued_, maxQueued(rolls));
        gate_.setRolls(rolls, options_.clock->now(), passed_);
        accept(passed_);
    }
}

/// A pre-roll comes all at once.
std::size_t Recorder::maxQueued(const std::optional<EventGate::Rolls>& rolls) const
{
    return options_.maxQueued + (rolls ? EventGate::maxBytes : 0);
}

Recorder::State Recorder::state() const
{
    const MutexLock guard(inletMutex_);
    return stateNow();
}

Recorder::State Recorder::noteEvent(const std::optional<Duration>& after)
{
    State state;
    bool fromKeyFrame = true;
    {
        const MutexLock guard(inletMutex_);
        if (!stopping_)
        {
            fromKeyFrame = gate_.isOpen() || gate_.bytes() > 0;
            gate_.open(options_.clock->now(), after, passed_);
            accept(passed_);
        }
        state = stateNow();
    }
    if (!fromKeyFrame)
    {
        stream_.source->requestKeyFrame();
    }
    return state;
}

Recorder::State Recorder::stateNow() const
{
    State state;
    state.onEvents = gate_.isOnEvents();
    state.recording = gate_.isOpen() && !stopping_;
    if (const auto& until = gate_.until())
    {
        state.until = options_.clock->wall().mapping().at(*until);
    }
    return state;
}

void Recorder::stop()
{
    stream_.source->detachMedia(this);
    stream_.source->release();
    const MutexLock guard(inletMutex_);
    stopping_ = true;
    gate_.clear();
    wakeIn(Duration::zero());
}

bool Recorder::awaitEnd(std::chrono::steady_clock::time_point deadline)
{
    const MutexLock guard(inletMutex_);
    while (!ended_ && endedChanged_.waitUntil(inletMutex_, deadline))
    {
    }
    return ended_;
}

void Recorder::onEncodedUnit(const EncodedUnitPtr& unit)
{
    const MutexLock guard(inletMutex_);
    // The source may deliver until detachMedia() has returned.
    if (stopping_)
    {
        return;
    }
    gate_.take(unit, passed_);
    accept(passed_);
    if (gate_.takeShortage() && shortagePause_.isOver())
    {
        Log::warning("{}: the memory for the time before events is used up: less is kept than pre-roll says",
                     *title_.get());
    }
}

void Recorder::onDiscontinuity()
{
    const MutexLock guard(inletMutex_);
    if (!stopping_)
    {
        gate_.interrupt(passed_);
        accept(passed_);
    }
}

/// Queues for the disk what the gate passed, and empties `units`.
void Recorder::accept(Units& units)
{
    for (const EncodedUnitPtr& unit : units)
    {
        const std::size_t bytes = unit ? sizeOf(*unit) : 0;
        if (!unit)
        {
            gather(nullptr);
        }
        else if (admits(*unit, bytes))
        {
            queued_ += bytes;
            gatheredBytes_ += bytes;
            gather(unit);
        }
    }
    units.clear();
}

bool Recorder::admits(const EncodedUnit& unit, std::size_t bytes)
{
    if (skipping_ && queued_ > options_.maxQueued / 4)
    {
        return false;
    }
    const bool skipped =
        std::exchange(skipping_, queued_ + bytes > maxQueued_ || !disk_.queued().reserve(bytes));
    if (skipping_ != skipped)
    {
        const WallTime date = options_.clock->wall().mapping().at(unit.captureTime);
        skipping_ ? slowness_.onSkip(*title_.get(), date) : slowness_.onCaughtUp(*title_.get(), date);
    }
    if (skipping_)
    {
        gather(nullptr);
    }
    return !skipping_;
}

void Recorder::gather(const EncodedUnitPtr& unit)
{
    // Merges interruptions without media between them.
    if (!unit && !gathered_.empty() && !gathered_.back())
    {
        return;
    }
    gathered_.push_back(unit);
    wakeIn(gatheredBytes_ >= options_.maxGathered ? Duration::zero() : options_.gather);
}

/// Never after stop(): the pool may have been destroyed.
void Recorder::wakeIn(Duration delay)
{
    if (!wokenIn_ || *wokenIn_ > delay)
    {
        wokenIn_ = delay;
        disk_.writers().wake(std::shared_ptr<PooledWork>(shared_from_this(), this), delay);
    }
}

MonotonicTime Recorder::run(MonotonicTime /*now*/)
{
    Units units;
    {
        const MutexLock guard(inletMutex_);
        units.swap(gathered_);
        gatheredBytes_ = 0;
        wokenIn_.reset();
    }
    writeAll(units);
    endIfStopped();
    return never;
}

void Recorder::writeAll(Units& units)
{
    for (EncodedUnitPtr& unit : units)
    {
        if (!unit)
        {
            cutter_.interrupt();
            continue;
        }
        take(unit);
        if (&unit == &units.back())
        {
            // Before the last unit is released, so that awaitEnd() covers the file.
            flush();
        }
        const std::size_t bytes = sizeOf(*unit);
        unit.reset();
        disk_.queued().release(bytes);
        const MutexLock guard(inletMutex_);
        queued_ -= bytes;
    }
    flush();
    startAgainAfterFailure();
    damage_.report();
}

void Recorder::endIfStopped()
{
    {
        const MutexLock guard(inletMutex_);
        if (!stopping_ || !gathered_.empty())
        {
            return;
        }
    }
    cutter_.interrupt();
    damage_.end();
    const MutexLock guard(inletMutex_);
    ended_ = true;
    endedChanged_.notifyAll();
}

void Recorder::take(const EncodedUnitPtr& unit)
{
    now_ = unit->captureTime;
    followWallClock();
    if (failed_)
    {
        // Also ends when the capture times went back.
        const bool over = now_ >= *failed_ + options_.retry || now_ < *failed_ - options_.retry;
        if (!over)
        {
            return;
        }
        failed_.reset();
    }
    cutter_.setLength(segmentLength_);
    cutter_.take(unit);
    if (now_ >= nextFlush_)
    {
        flush();
    }
    startAgainAfterFailure();
}

/// Lets the next attempt start a segment.
void Recorder::startAgainAfterFailure()
{
    if (failed_)
    {
        cutter_.interrupt();
    }
}

void Recorder::followWallClock()
{
    const std::uint32_t steps = std::exchange(dates_, options_.clock->wall().mapping()).steps;
    if (dates_.steps != steps)
    {
        cutter_.cutSoon();
        stream_.source->requestKeyFrame();
    }
}

/// Path for a new segment. After the clock was set back, one of the same microsecond may exist.
/// \param[in,out] begin  of the segment; moved until its path is free
std::string Recorder::freePath(WallTime& begin) const
{
    constexpr int maxTries = 1000;
    std::string path;
    for (int i = 0; i < maxTries; ++i, begin += std::chrono::microseconds(1))
    {
        path = ledger_->directory() + "/" + SegmentPath{stream_.cameraId, stream_.streamId, begin}.toString();
        std::error_code unknown;
        if (!std::filesystem::exists(path, unknown))
        {
            break;
        }
    }
    return path;
}

void Recorder::startSegment(MonotonicTime begin, const Tracks& tracks)
{
    begin_ = begin;
    segment_ = {};
    segment_.cameraId = stream_.cameraId;
    segment_.streamId = stream_.streamId;
    segment_.begin = dates_.at(begin);
    segment_.path = freePath(segment_.begin);
    chooseTracks(tracks);
    if (written_.empty())
    {
        return;
    }
    std::string error;
    if ((hooks_.mayStart && !hooks_.mayStart(error)) || !makeFolder(error))
    {
        return fail(error);
    }
    ledger_->put(segment_);
    writer_ = SegmentWriter::create(segment_.path, {begin, segment_.begin}, written_, error, hooks_.makeRoom);
    if (!writer_)
    {
        ledger_->remove(segment_.path);
        return fail(error);
    }
    tried_ = tried_.value_or(begin);
    unflushed_ = true;
    nextFlush_ = begin + maxUnflushed;
    nextGrow_ = begin + options_.grow;
}

/// Leaves out tracks whose description is malformed.
void Recorder::chooseTracks(const Tracks& tracks)
{
    if (tracks == offered_)
    {
        return;
    }
    offered_ = tracks;
    places_.clear();
    written_.clear();
    for (const auto& track : tracks)
    {
        const bool good = SegmentWriter::accepts(*track);
        places_.push_back(good ? std::make_optional(written_.size()) : std::nullopt);
        if (good)
        {
            written_.push_back(track);
        }
        else
        {
            reportMalformed(isVideo(track->codec) ? "the video's description" : "the audio's description");
        }
    }
}

bool Recorder::makeFolder(std::string& error)
{
    const std::string folder = std::filesystem::path(segment_.path).parent_path().string();
    for (const bool again : {false, true})
    {
        if (RecordingFolder::make(folder, error))
        {
            return true;
        }
        if (!SegmentWriter::isFull(errno) || !hooks_.makeRoom || !hooks_.makeRoom(again))
        {
            return false;
        }
    }
    return RecordingFolder::make(folder, error);
}

void Recorder::reportMalformed(const std::string& what)
{
    if (malformedPause_.isOver())
    {
        Log::warning("{}: {} is malformed and cannot be recorded", *title_.get(), what);
    }
}

void Recorder::writeUnit(std::size_t track, const EncodedUnitPtr& unit)
{
    if (!writer_)
    {
        return;
    }
    const std::optional<std::size_t> place = places_.at(track);
    unflushed_ = true;
    const int leftOut = writer_->leftOut();
    if (place && !writer_->write(*place, *unit))
    {
        return fail(writer_->error());
    }
    if (writer_->leftOut() != leftOut)
    {
        return reportMalformed("some of the media");
    }
    if (place && unit->damaged)
    {
        damage_.add(segment_.begin + (unit->captureTime - begin_));
    }
    segment_.duration = std::max(segment_.duration, unit->captureTime + unit->duration - begin_);
}

void Recorder::flush()
{
    if (!writer_ || !unflushed_)
    {
        return;
    }
    unflushed_ = false;
    nextFlush_ = now_ + maxUnflushed;
    const MonotonicTime start = HostClock::system().now();
    const bool flushed = writer_->flush();
    ServerFigures::instance().recordingWrites.add(HostClock::system().now() - start);
    if (!flushed)
    {
        return fail(writer_->error());
    }
    disk_.sync().add(writer_->file());
    if (const std::string why = syncFailure(); !why.empty())
    {
        return fail(why);
    }
    if (now_ >= nextGrow_)
    {
        nextGrow_ = now_ + options_.grow;
        segment_.bytes = writer_->bytes();
        ledger_->put(segment_);
    }
    // Not at the first write: a nearly full disk accepts some before it fails again.
    if (failing_ && now_ >= *tried_ + options_.retry)
    {
        failing_ = false;
        failPause_.reset();
        Log::info("{}: recording goes on; missing: {}", *title_.get(),
                  IntervalText::of(*lostSince_, dates_.at(*tried_)));
        lostSince_.reset();
    }
}

/// The first failure that DiskSync found, of this file or the one before; empty without one.
std::string Recorder::syncFailure()
{
    for (const SyncedFile::Result& result : {writer_->file()->result(), lastResult_})
    {
        if (result && result->failure != 0)
        {
            return result->path + ": " + std::generic_category().message(result->failure);
        }
    }
    return {};
}

void Recorder::endSegment(Duration duration)
{
    if (!writer_)
    {
        return;
    }
    if (!writer_->close())
    {
        return fail(writer_->error());
    }
    // A single frame may have no duration.
    segment_.duration = std::max(duration, SegmentMeasure::minDuration);
    segment_.bytes = writer_->bytes();
    lastResult_ = writer_->file()->result();
    disk_.sync().add(writer_->file());
    writer_.reset();
    noteEnd();
    if (hooks_.segmentClosed)
    {
        hooks_.segmentClosed();
    }
}

void Recorder::fail(const std::string& why)
{
    if (failPause_.isOver())
    {
        Log::error("{}: recording {}stopped: {}", *title_.get(), failing_ ? "is still " : "", Log::safe(why));
    }
    failing_ = true;
    failed_ = now_;
    tried_.reset();
    lastResult_.reset();
    if (!writer_)
    {
        lostSince_ = lostSince_.value_or(dates_.at(now_));
        return;
    }
    writer_.reset();
    measureUnfinished();
    lostSince_ = lostSince_.value_or(segment_.begin + segment_.duration);
    noteEnd();
}

/// Sets duration and bytes from what a file holds whose writing failed; keeps the known values where it cannot
/// be read.
void Recorder::measureUnfinished()
{
    SegmentMeasure measure;
    const SegmentMeasure::Result result = SegmentMeasure::take(segment_.path, measure);
    if (result == SegmentMeasure::Result::unreadable)
    {
        return;
    }
    // The file holds a header alone.
    if (result == SegmentMeasure::Result::nothing && segment_.duration == Duration::zero())
    {
        ::unlink(segment_.path.c_str());
    }
    segment_.duration = measure.duration;
    segment_.bytes = measure.bytes;
}

void Recorder::noteEnd()
{
    // The file was removed.
    if (segment_.duration == Duration::zero())
    {
        return ledger_->remove(segment_.path);
    }
    segment_.closed = true;
    ledger_->put(segment_);
    publishSegment(segment_, *title_.get());
}

SegmentCutter::Expected Recorder::expected() const
{
    std::vector<SubMediaInfo> tracks;
    if (stream_.source->describe(tracks) != StreamSource::Description::ready)
    {
        return {};
    }
    const auto has = [&](const char* kind)
    {
        return std::any_of(tracks.begin(), tracks.end(),
                           [kind](const SubMediaInfo& track) { return track.mediaType == kind; });
    };
    return {has("video"), has("audio")};
}

}  // namespace refhost

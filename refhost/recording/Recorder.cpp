#include "refhost/recording/Recorder.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <future>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/media/Codec.h"
#include "refhost/recording/RecordingFolder.h"
#include "refhost/recording/SegmentMeasure.h"
#include "refhost/recording/SegmentPath.h"

namespace refhost
{

std::shared_ptr<Recorder> Recorder::start(const Stream& stream, std::shared_ptr<SegmentLedger> ledger,
                                          const Options& options, Hooks hooks)
{
    std::shared_ptr<Recorder> recorder(new Recorder(stream, std::move(ledger), options, std::move(hooks)));
    stream.source->attachMedia(recorder);
    stream.source->acquire();
    return recorder;
}

Recorder::Recorder(const Stream& stream, std::shared_ptr<SegmentLedger> ledger, const Options& options,
                   Hooks hooks)
    : stream_(stream),
      title_(stream.name),
      ledger_(std::move(ledger)),
      options_(options),
      hooks_(std::move(hooks)),
      cutter_(
          options.segmentLength, [this] { return expected(); }, *this),
      dates_(options.clock->wall().mapping())
{
}

Recorder::~Recorder() = default;

void Recorder::stop()
{
    stream_.source->detachMedia(this);
    stream_.source->release();
    std::promise<void> done;
    queue_.post(
        [&]
        {
            cutter_.interrupt();
            done.set_value();
        });
    done.get_future().wait();
    queue_.close();
}

void Recorder::onEncodedUnit(const EncodedUnitPtr& unit)
{
    if (!admits(unit->bytes.size()))
    {
        return;
    }
    const auto takeIt = [this, unit]
    {
        take(unit);
        const MutexLock guard(inletMutex_);
        queued_ -= unit->bytes.size();
    };
    queue_.post(takeIt);
}

void Recorder::onDiscontinuity()
{
    queue_.post([this] { cutter_.interrupt(); });
}

bool Recorder::admits(std::size_t bytes)
{
    const MutexLock guard(inletMutex_);
    if (skipping_ && queued_ > options_.maxQueued / 4)
    {
        return false;
    }
    skipping_ = queued_ + bytes > options_.maxQueued;
    if (skipping_)
    {
        Log::write(slownessReported_ ? Log::Level::debug : Log::Level::warning,
                   title_ + ": the disk is too slow, some of the recording is left out");
        slownessReported_ = true;
        queue_.post([this] { cutter_.interrupt(); });
        return false;
    }
    queued_ += bytes;
    return true;
}

void Recorder::take(const EncodedUnitPtr& unit)
{
    now_ = unit->captureTime;
    followWallClock();
    if (failed_)
    {
        // Also when the source's time went back meanwhile.
        const bool over = now_ >= *failed_ + options_.retry || now_ < *failed_ - options_.retry;
        if (!over)
        {
            return;
        }
        failed_.reset();
    }
    cutter_.take(unit);
    flushWhenDue();
    if (failed_)
    {
        // So that the next try starts a segment.
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

/// A clock that was set back may come to the very microsecond of a segment that is there.
/// \param[in,out] begin  the segment's
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
    const bool mayStart = (!hooks_.mayStart || hooks_.mayStart(error)) && makeFolder(error);
    writer_ = mayStart ? SegmentWriter::create(segment_.path, {begin, segment_.begin}, written_, error,
                                               hooks_.makeRoom)
                       : nullptr;
    if (!writer_)
    {
        return fail(error);
    }
    ledger_->put(segment_);
    tried_ = tried_.value_or(begin);
    nextFlush_ = begin + options_.flush;
    nextWriteOut_ = begin + options_.writeOut;
    nextGrow_ = begin + options_.grow;
}

/// A track whose description is malformed cannot be in the file; the others can.
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
        Log::warning("{}: {} is malformed and cannot be recorded", title_, what);
    }
}

void Recorder::writeUnit(std::size_t track, const EncodedUnitPtr& unit)
{
    if (!writer_)
    {
        return;
    }
    const std::optional<std::size_t> place = places_.at(track);
    const int leftOut = writer_->leftOut();
    if (place && !writer_->write(*place, *unit))
    {
        return fail(writer_->error());
    }
    if (writer_->leftOut() != leftOut)
    {
        return reportMalformed("some of the media");
    }
    segment_.duration = std::max(segment_.duration, unit->captureTime + unit->duration - begin_);
}

void Recorder::flushWhenDue()
{
    if (!writer_ || now_ < nextFlush_)
    {
        return;
    }
    nextFlush_ = now_ + options_.flush;
    const bool writesOut = now_ >= nextWriteOut_;
    nextWriteOut_ = writesOut ? now_ + options_.writeOut : nextWriteOut_;
    if (!(writesOut ? writer_->writeOut() : writer_->flush()))
    {
        return fail(writer_->error());
    }
    if (now_ >= nextGrow_)
    {
        nextGrow_ = now_ + options_.grow;
        segment_.bytes = writer_->bytes();
        ledger_->put(segment_);
    }
    // Not with the first write: a disk that is nearly full takes some before it is full again.
    if (failing_ && now_ >= *tried_ + options_.retry)
    {
        failing_ = false;
        failPause_.reset();
        Log::info("{}: recording goes on", title_);
    }
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
    // Of a single frame nobody may have told how long it lasts.
    segment_.duration = std::max(duration, SegmentMeasure::minDuration);
    segment_.bytes = writer_->bytes();
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
        Log::error("{}: recording {}stopped: {}", title_, failing_ ? "is still " : "", Log::safe(why));
    }
    failing_ = true;
    failed_ = now_;
    tried_.reset();
    if (!writer_)
    {
        return;
    }
    writer_.reset();
    measureUnfinished();
    noteEnd();
}

/// Of a file that the disk has stopped: what it holds, or what is known of it where it cannot be read either.
void Recorder::measureUnfinished()
{
    SegmentMeasure measure;
    const SegmentMeasure::Result result = SegmentMeasure::take(segment_.path, measure);
    if (result == SegmentMeasure::Result::unreadable)
    {
        return;
    }
    // Nothing but the header of a file that was just made.
    if (result == SegmentMeasure::Result::nothing && segment_.duration == Duration::zero())
    {
        ::unlink(segment_.path.c_str());
    }
    segment_.duration = measure.duration;
    segment_.bytes = measure.bytes;
}

void Recorder::noteEnd()
{
    // Without a duration nothing was left of the file.
    if (segment_.duration == Duration::zero())
    {
        return ledger_->remove(segment_.path);
    }
    segment_.closed = true;
    ledger_->put(segment_);
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

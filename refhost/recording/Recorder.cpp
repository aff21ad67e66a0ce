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
          options.segmentNs, [this] { return expected(); }, *this),
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
    nowNs_ = unit->captureTimeNs;
    followWallClock();
    if (failedNs_)
    {
        // Also when the source's time went back meanwhile.
        const bool over = nowNs_ >= *failedNs_ + options_.retryNs || nowNs_ < *failedNs_ - options_.retryNs;
        if (!over)
        {
            return;
        }
        failedNs_.reset();
    }
    cutter_.take(unit);
    flushWhenDue();
    if (failedNs_)
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
/// \param[in,out] wallNs  the segment's begin
std::string Recorder::freePath(std::int64_t& wallNs) const
{
    constexpr int maxTries = 1000;
    constexpr std::int64_t microsecond = 1000;
    std::string path;
    for (int i = 0; i < maxTries; ++i, wallNs += microsecond)
    {
        path =
            ledger_->directory() + "/" + SegmentPath{stream_.cameraId, stream_.streamId, wallNs}.toString();
        std::error_code unknown;
        if (!std::filesystem::exists(path, unknown))
        {
            break;
        }
    }
    return path;
}

void Recorder::startSegment(std::int64_t beginNs, const Tracks& tracks)
{
    beginNs_ = beginNs;
    segment_ = {};
    segment_.cameraId = stream_.cameraId;
    segment_.streamId = stream_.streamId;
    segment_.beginNs = dates_.at(beginNs);
    segment_.path = freePath(segment_.beginNs);
    chooseTracks(tracks);
    if (written_.empty())
    {
        return;
    }
    std::string error;
    const bool mayStart = (!hooks_.mayStart || hooks_.mayStart(error)) && makeFolder(error);
    writer_ = mayStart ? SegmentWriter::create(segment_.path, {beginNs, segment_.beginNs}, written_, error,
                                               hooks_.makeRoom)
                       : nullptr;
    if (!writer_)
    {
        return fail(error);
    }
    ledger_->put(segment_);
    triedNs_ = triedNs_.value_or(beginNs);
    nextFlushNs_ = beginNs + options_.flushNs;
    nextWriteOutNs_ = beginNs + options_.writeOutNs;
    nextGrowNs_ = beginNs + options_.growNs;
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
    segment_.durationNs = std::max(segment_.durationNs, unit->captureTimeNs + unit->durationNs - beginNs_);
}

void Recorder::flushWhenDue()
{
    if (!writer_ || nowNs_ < nextFlushNs_)
    {
        return;
    }
    nextFlushNs_ = nowNs_ + options_.flushNs;
    const bool writesOut = nowNs_ >= nextWriteOutNs_;
    nextWriteOutNs_ = writesOut ? nowNs_ + options_.writeOutNs : nextWriteOutNs_;
    if (!(writesOut ? writer_->writeOut() : writer_->flush()))
    {
        return fail(writer_->error());
    }
    if (nowNs_ >= nextGrowNs_)
    {
        nextGrowNs_ = nowNs_ + options_.growNs;
        segment_.bytes = writer_->bytes();
        ledger_->put(segment_);
    }
    // Not with the first write: a disk that is nearly full takes some before it is full again.
    if (failing_ && nowNs_ >= *triedNs_ + options_.retryNs)
    {
        failing_ = false;
        failPause_.reset();
        Log::info("{}: recording goes on", title_);
    }
}

void Recorder::endSegment(std::int64_t durationNs)
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
    segment_.durationNs = std::max(durationNs, SegmentMeasure::minNs);
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
    failedNs_ = nowNs_;
    triedNs_.reset();
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
    if (result == SegmentMeasure::Result::nothing && segment_.durationNs == 0)
    {
        ::unlink(segment_.path.c_str());
    }
    segment_.durationNs = measure.durationNs;
    segment_.bytes = measure.bytes;
}

void Recorder::noteEnd()
{
    // Without a duration nothing was left of the file.
    if (segment_.durationNs == 0)
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

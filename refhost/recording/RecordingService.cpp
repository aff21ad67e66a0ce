#include "refhost/recording/RecordingService.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "refhost/base/BuildTime.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"
#include "refhost/media/Device.h"
#include "refhost/recording/RecordingRepair.h"

namespace refhost
{
namespace
{

/// 2025: the program is not older. The time of the build would not do: an upgrade moves it.
constexpr WallTime firstRecordings = wallTimeOfUnix(1735689600);

RecordingRetention::Limits limitsOf(const ServerConfig& config)
{
    RecordingRetention::Limits limits;
    limits.maxBytes = config.recording.maxSize;
    limits.maxAge = std::chrono::seconds(config.recording.maxAge);
    limits.clockSince = BuildTime::date();
    limits.datesSince = firstRecordings;
    limits.minFree = FreeSpace::parse(config.recording.minFree).value_or(FreeSpace());
    for (const CameraConfig& camera : config.cameras)
    {
        if (camera.maxSize > 0)
        {
            limits.maxBytesOf.emplace(camera.id, camera.maxSize);
        }
    }
    return limits;
}

bool recordsAnyOf(const CameraConfig& camera)
{
    return std::any_of(camera.streams.begin(), camera.streams.end(),
                       [](const StreamConfig& stream) { return stream.isRecorded(); });
}

std::optional<EventGate::Rolls> rollsOf(RecordMode mode, const StreamConfig& stream)
{
    if (mode != RecordMode::events)
    {
        return std::nullopt;
    }
    return EventGate::Rolls{std::chrono::seconds(stream.preRoll), std::chrono::seconds(stream.postRoll)};
}

/// Looks for an index, or the folder of a camera, by their names alone.
bool holdsRecordings(const std::string& directory)
{
    std::error_code problem;
    for (std::filesystem::directory_iterator entry(directory, problem), end; !problem && entry != end;
         entry.increment(problem))
    {
        const std::string name = entry->path().filename().string();
        std::error_code unreadable;
        const bool camera = name.find_first_not_of("0123456789") == std::string::npos;
        if (name == "index.db" || (camera && entry->is_directory(unreadable)))
        {
            return true;
        }
    }
    return false;
}

/// Makes room on a disk that is too full even for the folder's lock.
bool makeFirstRoom(const std::string& directory)
{
    SegmentLedger nothingWritten(directory, SegmentLedger::Options(), nullptr);
    return RecordingRoom(nothingWritten).make(true);
}

}  // namespace

RecordingService::RecordingService(const ServerConfig& config, std::shared_ptr<StreamDirectory> streams,
                                   const Pauses& pauses)
    : config_(config), streams_(std::move(streams)), retention_(limitsOf(config)), pauses_(pauses)
{
    control_.onSwitch([this] { queue_.post([this] { applySwitches(); }); });
    if (hasWork())
    {
        Device::expectRecordings();
    }
}

RecordingService::~RecordingService()
{
    stop();
}

void RecordingService::start()
{
    if (hasWork())
    {
        queue_.post([this] { open(); });
    }
}

void RecordingService::setConfig(const ServerConfig& config)
{
    queue_.post([this, config] { change(config); });
}

void RecordingService::change(const ServerConfig& config)
{
    const bool worked = attempts_ > 0;
    config_ = config;
    control_.keepOnly(config_.cameras);
    retention_.setLimits(limitsOf(config_));
    if (!worked)
    {
        if (hasWork())
        {
            Device::expectRecordings();
            open();
        }
        return;
    }
    // Otherwise record() does it, once the folder can be used.
    if (ledger_)
    {
        endUnrecorded();
        record();
    }
    retainSoon();
}

void RecordingService::applySwitches()
{
    // Otherwise record() does it, once the folder can be used.
    if (ledger_)
    {
        endUnrecorded();
        record();
    }
}

RecordMode RecordingService::modeOf(const CameraConfig& camera, const StreamConfig& stream) const
{
    return RecordingControl::modeOf(control_.switchOf(camera.id), stream.record);
}

/// Their files are closed by the disk's threads: nobody waits for it.
void RecordingService::endUnrecorded()
{
    const auto isRecorded = [this](const std::shared_ptr<Recorder>& recorder)
    {
        for (const CameraConfig& camera : config_.cameras)
        {
            for (const StreamConfig& stream : camera.streams)
            {
                if (modeOf(camera, stream) != RecordMode::never && recorder->records(camera.id, stream.id) &&
                    recorder->source() == streams_->find(camera.id, stream.id))
                {
                    return true;
                }
            }
        }
        return false;
    };
    const auto gone = std::stable_partition(recorders_.begin(), recorders_.end(), isRecorded);
    for (auto recorder = gone; recorder != recorders_.end(); ++recorder)
    {
        (*recorder)->stop();
        stopped_.push_back(std::move(*recorder));
    }
    recorders_.erase(gone, recorders_.end());
    control_.publish(recorders_);
    dropEnded();
}

void RecordingService::dropEnded()
{
    const auto now = std::chrono::steady_clock::now();
    const auto ended = [now](const std::shared_ptr<Recorder>& recorder) { return recorder->awaitEnd(now); };
    stopped_.erase(std::remove_if(stopped_.begin(), stopped_.end(), ended), stopped_.end());
}

void RecordingService::stop()
{
    if (stopping_.exchange(true))
    {
        return;
    }
    queue_.close();
    end();
    if (Device::recordings() || Device::recordingsExpected())
    {
        Device::setRecordings(nullptr);
    }
    if (!hanging_)
    {
        folder_.reset();
    }
}

/// Ends every segment and closes the index.
void RecordingService::end()
{
    control_.publish({});
    for (const std::shared_ptr<Recorder>& recorder : recorders_)
    {
        recorder->stop();
    }
    recorders_.insert(recorders_.end(), stopped_.begin(), stopped_.end());
    stopped_.clear();
    if (!haveEnded(recorders_, pauses_.end))
    {
        Log::error("the disk of {} does not answer: recordings are left without their end",
                   ledger_->directory());
        hanging_.emplace(Hanging{std::exchange(ledger_, nullptr), std::exchange(room_, nullptr),
                                 std::exchange(recorders_, {}), std::move(disk_)});
        index_.reset();
        return;
    }
    recorders_.clear();
    disk_.reset();
    room_.reset();
    if (ledger_)
    {
        ledger_->close();
        ledger_->flush();
        ledger_.reset();
    }
    index_.reset();
}

bool RecordingService::haveEnded(const std::vector<std::shared_ptr<Recorder>>& recorders,
                                 std::chrono::milliseconds max) const
{
    const auto deadline = std::chrono::steady_clock::now() + max;
    return std::all_of(recorders.begin(), recorders.end(),
                       [&](const std::shared_ptr<Recorder>& recorder)
                       { return recorder->awaitEnd(deadline); });
}

bool RecordingService::stillHangs()
{
    if (hanging_ && haveEnded(hanging_->recorders, std::chrono::milliseconds(0)))
    {
        Log::info("the disk of {} answers again", hanging_->ledger->directory());
        hanging_.reset();
    }
    return hanging_.has_value();
}

bool RecordingService::hasWork() const
{
    return recordsAnything() || holdsRecordings(config_.recording.directory);
}

bool RecordingService::recordsAnything() const
{
    return std::any_of(config_.cameras.begin(), config_.cameras.end(), recordsAnyOf);
}

void RecordingService::open()
{
    ++attempts_;
    if (stillHangs() || !openFolder())
    {
        queue_.post([this] { open(); }, pauses_.retry);
        return;
    }
    leaving_ = false;
    ledger_ = std::make_shared<SegmentLedger>(folder_->path(), SegmentLedger::Options(),
                                              [this] { queue_.post([this] { repair(); }); });
    room_ = std::make_shared<RecordingRoom>(*ledger_);
    disk_ = std::make_unique<RecordingDisk>(RecordingDisk::Options());
    ledger_->setMakeRoom([room = room_](bool again) { return room->make(again); });
    record();
    openIndex();
}

bool RecordingService::openFolder()
{
    if (folder_ && folder_->isUnmounted())
    {
        return false;
    }
    folder_.reset();
    std::string error;
    const std::string path = RecordingFolder::withoutSlash(config_.recording.directory);
    errno = 0;
    folder_ = RecordingFolder::open(path, error);
    if (!folder_ && SegmentWriter::isFull(errno) && recordsAnything() && makeFirstRoom(path))
    {
        folder_ = RecordingFolder::open(path, error);
    }
    if (!folder_ && !failureReported_)
    {
        Log::error("nothing is recorded: {}", Log::safe(error));
    }
    if (!folder_ && Device::recordingsExpected())
    {
        Device::setRecordings(nullptr);
    }
    failureReported_ = failureReported_ || !folder_;
    return folder_ != nullptr;
}

void RecordingService::openIndex()
{
    ++attempts_;
    if (leaving_ || !ledger_)
    {
        return;
    }
    std::string error;
    index_ = RecordingIndex::open(folder_->path(), error);
    // Makes room on a full disk; removes nothing from one that is not full.
    if (!index_ && !stopping_ && recordsAnything() && room_->make(false))
    {
        index_ = RecordingIndex::open(folder_->path(), error);
    }
    if (!index_)
    {
        if (!std::exchange(indexFailureReported_, true))
        {
            Log::error("recordings cannot be listed or played, only recorded: {}", Log::safe(error));
        }
        queue_.post([this] { openIndex(); }, pauses_.retry);
        return;
    }
    if (std::exchange(indexFailureReported_, false))
    {
        Log::info("the index of the recordings can be opened now");
    }
    index_->setComplete(false);
    ledger_->setIndex(index_);
    Device::setRecordings(index_);
    repair();
    if (!std::exchange(retains_, true))
    {
        retainRegularly();
    }
}

void RecordingService::repair()
{
    if (!index_)
    {
        return;
    }
    const RecordingRepair::Result result = RecordingRepair::run(*index_, ledger_.get(), &stopping_);
    if (result.refused > 0)
    {
        queue_.post([this] { repair(); }, pauses_.retry);
    }
    else
    {
        index_->setComplete(true);
    }
    if (result.hasAny())
    {
        Log::info(
            "recordings repaired: {} unfinished measured, {} unknown adopted, {} missing dropped, {} "
            "without anything to play kept as *.damaged, {} left as they are because they cannot be read "
            "now{}",
            result.closed, result.adopted, result.dropped, result.setAside, result.failed,
            result.refused > 0 ? "; the index does not take it all yet" : "");
    }
}

/// Asked by recorders before each segment: a disk may be unmounted while it is recorded to, and the folder
/// below its mount point must not be filled instead.
bool RecordingService::mayStart(std::string& why)
{
    if (folder_->isInPlace())
    {
        return true;
    }
    why = folder_->path() + (folder_->isUnmounted() ? ": its disk is not mounted any more" : " was replaced");
    if (!leaving_.exchange(true))
    {
        queue_.post([this] { leave(); });
    }
    return false;
}

/// Ends the recording in a folder that is gone, and waits for it to return.
void RecordingService::leave()
{
    end();
    Device::setRecordings(nullptr);
    Device::expectRecordings();
    failureReported_ = true;
    open();
}

/// Starts what is to be recorded and is not yet; changes the rest.
void RecordingService::record()
{
    const std::size_t before = recorders_.size();
    for (const CameraConfig& camera : config_.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            const auto present = std::find_if(recorders_.begin(), recorders_.end(),
                                              [&](const std::shared_ptr<Recorder>& recorder)
                                              { return recorder->records(camera.id, stream.id); });
            if (present != recorders_.end())
            {
                (*present)->change(camera.streamName(stream.id),
                                   std::chrono::seconds(config_.recording.segment),
                                   rollsOf(modeOf(camera, stream), stream));
            }
            else if (modeOf(camera, stream) != RecordMode::never)
            {
                startRecorder(camera, stream);
            }
        }
    }
    control_.publish(recorders_);
    if (recorders_.size() > before)
    {
        Log::info("{} recorded in {}{}",
                  recorders_.size() == 1 ? "one stream is" : fmt::format("{} streams are", recorders_.size()),
                  config_.recording.directory, failureReported_ ? ", which can be written now" : "");
    }
}

void RecordingService::startRecorder(const CameraConfig& camera, const StreamConfig& stream)
{
    Recorder::Options options;
    options.segmentLength = std::chrono::seconds(config_.recording.segment);
    options.rolls = rollsOf(modeOf(camera, stream), stream);
    const Recorder::Stream recorded{camera.id, stream.id, streams_->find(camera.id, stream.id),
                                    camera.streamName(stream.id)};
    if (!recorded.source)
    {
        return;
    }
    Recorder::Hooks hooks;
    hooks.segmentClosed = [this] { retainSoon(); };
    hooks.makeRoom = [room = room_](bool again) { return room->make(again); };
    hooks.mayStart = [this](std::string& why) { return mayStart(why); };
    recorders_.push_back(Recorder::start(recorded, ledger_, *disk_, options, std::move(hooks)));
}

void RecordingService::retain()
{
    retainsSoon_ = false;
    dropEnded();
    ++retentions_;
    if (!folder_ || !index_)
    {
        return;
    }
    if (!folder_->isInPlace())
    {
        // Recorders notice by themselves and report it.
        std::string why;
        if (recorders_.empty() && !mayStart(why))
        {
            Log::warning("recordings cannot be reached: {}", Log::safe(why));
        }
        return;
    }
    const HostClock& clock = HostClock::system();
    const WallClock::Mapping dates = clock.wall().mapping();
    const MonotonicTime now = clock.now();
    const RecordingRetention::Outcome outcome =
        retention_.apply(*index_, {dates.at(now), now, dates.steps - dates.stepsBack,
                                   DiskSpace::of(folder_->path()).value_or(DiskSpace())});
    reportClock(outcome);
    if (outcome.removedForRoom > 0 && roomPause_.isOver())
    {
        Log::warning("the disk of {} has less than min-free: the oldest recordings make room",
                     folder_->path());
    }
    if (outcome.removed > 0)
    {
        Log::debug("{} old recordings removed", outcome.removed);
    }
    if (!outcome.problem.empty() && !stuckReported_)
    {
        Log::error("old recordings cannot be removed: {}", Log::safe(outcome.problem));
    }
    stuckReported_ = !outcome.problem.empty();
}

void RecordingService::reportClock(const RecordingRetention::Outcome& outcome)
{
    if (!outcome.clockDoubt.empty() && !std::exchange(clockDoubted_, true))
    {
        Log::warning("nothing is removed by age: {}", outcome.clockDoubt);
    }
    if (outcome.clockDoubt.empty() && std::exchange(clockDoubted_, false))
    {
        Log::info("recordings are removed by age again: the clock is plausible");
    }
    if (outcome.slowly && !retainsSlowly_)
    {
        Log::warning(
            "the clock went forward, and recordings are older than max-age at once: they are removed slowly, "
            "{} now",
            outcome.removed);
    }
    if (!outcome.slowly && retainsSlowly_ && outcome.clockDoubt.empty())
    {
        Log::info("the recordings that were too old at once are removed");
    }
    retainsSlowly_ = outcome.slowly;
}

/// Once for many streams that end their segments together: every look at the limits reads the index.
void RecordingService::retainSoon()
{
    if (!retainsSoon_.exchange(true))
    {
        queue_.post([this] { retain(); }, pauses_.closed);
    }
}

/// Recordings age and open segments grow even if none ends.
void RecordingService::retainRegularly()
{
    retain();
    queue_.post([this] { retainRegularly(); }, pauses_.anyway);
}

}  // namespace refhost

#include "refhost/recording/RecordingService.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"
#include "refhost/device/Device.h"
#include "refhost/recording/RecordingRepair.h"

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1000000000;
constexpr std::int64_t hour = 3600 * second;
constexpr std::int64_t mebibyte = 1048576;

RecordingRetention::Limits limitsOf(const RecordingConfig& config)
{
    return {config.maxSize * mebibyte, config.maxAge * hour};
}

bool recordsAnyOf(const CameraConfig& camera)
{
    return std::any_of(camera.streams.begin(), camera.streams.end(),
                       [](const StreamConfig& stream) { return stream.record; });
}

}  // namespace

RecordingService::RecordingService(const ServerConfig& config, std::shared_ptr<StreamDirectory> streams,
                                   const Pauses& pauses)
    : config_(config), streams_(std::move(streams)), retention_(limitsOf(config.recording)), pauses_(pauses)
{
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

void RecordingService::stop()
{
    queue_.close();
    for (const std::shared_ptr<Recorder>& recorder : std::exchange(recorders_, {}))
    {
        recorder->stop();
    }
    if (index_ || Device::recordingsExpected())
    {
        Device::setRecordings(nullptr);
        index_.reset();
    }
    folder_.reset();
}

bool RecordingService::hasWork() const
{
    std::error_code ignored;
    return recordsAnything() || std::filesystem::exists(config_.recording.directory + "/index.db", ignored);
}

bool RecordingService::recordsAnything() const
{
    return std::any_of(config_.cameras.begin(), config_.cameras.end(), recordsAnyOf);
}

void RecordingService::open()
{
    ++attempts_;
    std::string error;
    if (!folder_)
    {
        folder_ = RecordingFolder::open(config_.recording.directory, error);
    }
    index_ = folder_ ? RecordingIndex::open(config_.recording.directory, error) : nullptr;
    if (!index_)
    {
        if (!failureTold_)
        {
            Log::error("nothing is recorded: {}", Log::safe(error));
        }
        failureTold_ = true;
        Device::setRecordings(nullptr);
        queue_.post([this] { open(); }, pauses_.retry);
        return;
    }
    // At once: what the repair changes is little, and players need not wait for it.
    Device::setRecordings(index_);
    repair();
    retainRegularly();
    record();
}

void RecordingService::repair()
{
    const RecordingRepair::Result result = RecordingRepair::run(*index_);
    if (result.hasAny())
    {
        Log::info(
            "recordings repaired: {} unfinished measured, {} unknown adopted, {} missing dropped, {} "
            "without anything to play kept as *.damaged, {} left as they are because they cannot be read now",
            result.closed, result.adopted, result.dropped, result.setAside, result.failed);
    }
}

void RecordingService::record()
{
    Recorder::Options options;
    options.segmentNs = config_.recording.segment * second;
    for (const CameraConfig& camera : config_.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            if (!stream.record)
            {
                continue;
            }
            const Recorder::Stream recorded{camera.id, stream.id, streams_->find(camera.id, stream.id),
                                            camera.streamName(stream.id)};
            recorders_.push_back(Recorder::start(recorded, index_, options, [this] { retainSoon(); }));
        }
    }
    if (!recorders_.empty())
    {
        Log::info("{} recorded in {}{}",
                  recorders_.size() == 1 ? "one stream is" : fmt::format("{} streams are", recorders_.size()),
                  config_.recording.directory, failureTold_ ? ", which can be written now" : "");
    }
}

void RecordingService::retain()
{
    retainsSoon_ = false;
    ++retentions_;
    const RecordingRetention::Outcome outcome = retention_.apply(*index_, HostClock::system().wallNs());
    if (outcome.removed > 0)
    {
        Log::debug("{} old recordings removed", outcome.removed);
    }
    if (!outcome.problem.empty() && !stuckTold_)
    {
        Log::error("old recordings cannot be removed: {}", Log::safe(outcome.problem));
    }
    stuckTold_ = !outcome.problem.empty();
}

/// Many streams end their segments at about the same time, and each look at the limits reads the index.
void RecordingService::retainSoon()
{
    if (!retainsSoon_.exchange(true))
    {
        queue_.post([this] { retain(); }, pauses_.closed);
    }
}

/// Age passes, and long segments grow, also while none ends.
void RecordingService::retainRegularly()
{
    retain();
    queue_.post([this] { retainRegularly(); }, pauses_.anyway);
}

}  // namespace refhost

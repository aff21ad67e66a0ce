#include "refhost/ingest/IngestLoops.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/capture/FileRun.h"
#include "refhost/capture/PipelineRunner.h"
#include "refhost/ingest/IngestRun.h"

namespace refhost
{
namespace
{

/// Means of reading a camera, tried one after the other: here, by GStreamer over TCP, and over UDP.
constexpr unsigned means = 3;

}  // namespace

IngestLoops::IngestLoops(int count) : count_(static_cast<std::size_t>(std::max(count, 1))) {}

std::unique_ptr<SourceRun> IngestLoops::start(SourceRun::Setup setup)
{
    const SourceConfig& source = setup.config.source;
    const bool readHere = source.kind == SourceConfig::Kind::rtsp && setup.attempt % means == 0 &&
                          source.location.rfind("rtsp://", 0) == 0;
    if (readHere)
    {
        return std::make_unique<IngestRun>(std::move(setup), nextLoop(), connector_, startDelay());
    }
    if (FileRun::mayRead(setup))
    {
        return std::make_unique<FileRun>(std::move(setup));
    }
    if (source.kind == SourceConfig::Kind::rtsp && source.location.rfind("rtsp://", 0) == 0)
    {
        setup.attempt = setup.attempt % means - 1;
    }
    return std::make_unique<PipelineRunner>(std::move(setup));
}

/// Spreads what starts at once.
Duration IngestLoops::startDelay()
{
    constexpr Duration pause = Duration(std::chrono::seconds(1)) / maxStartsPerSecond;
    const MonotonicTime now = HostClock::system().now();
    const MutexLock guard(mutex_);
    const MonotonicTime start = std::max(now, nextStart_);
    nextStart_ = start + pause;
    return start - now;
}

EventLoop& IngestLoops::nextLoop()
{
    const MutexLock guard(mutex_);
    if (loops_.size() < count_)
    {
        loops_.push_back(std::make_unique<EventLoop>(fmt::format("ingest {}", loops_.size())));
        return *loops_.back();
    }
    next_ = (next_ + 1) % count_;
    return *loops_[next_];
}

}  // namespace refhost

#include "refhost/ingest/IngestLoops.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/capture/FileRun.h"
#include "refhost/capture/PipelineRunner.h"
#include "refhost/ingest/IngestRun.h"
#include "refhost/ingest/client/CameraUrl.h"
#include "refhost/net/tls/TlsConnector.h"

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
    const bool camera = source.kind == SourceConfig::Kind::rtsp;
    if (camera && setup.attempt % means == 0)
    {
        std::shared_ptr<StreamConnector> connector = connectorFor(source);
        return std::make_unique<IngestRun>(std::move(setup), nextLoop(), std::move(connector), pauses_,
                                           startDelay());
    }
    if (FileRun::mayRead(setup))
    {
        return std::make_unique<FileRun>(std::move(setup));
    }
    if (camera)
    {
        // By GStreamer, media of an encrypted connection would come over UDP in the clear.
        const bool encrypted = source.location.rfind("rtsps://", 0) == 0;
        setup.attempt = encrypted ? 0 : setup.attempt % means - 1;
    }
    return std::make_unique<PipelineRunner>(std::move(setup));
}

std::shared_ptr<StreamConnector> IngestLoops::connectorFor(const SourceConfig& source)
{
    const std::optional<CameraUrl> url = CameraUrl::parse(source.location);
    if (!url || !url->tls)
    {
        return tcp_;
    }
    const MutexLock guard(mutex_);
    if (!tls_)
    {
        TlsContext::Client options;
        options.verify = false;  // the connector judges
        std::string error;
        tls_ = TlsContext::forClient(options, error);
        if (!tls_)
        {
            throw std::system_error(std::make_error_code(std::errc::io_error), error);
        }
    }
    return std::make_shared<TlsConnector>(resolver_, tls_,
                                          TlsConnector::Trust{source.tlsVerify, source.tlsFingerprint});
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

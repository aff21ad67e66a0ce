#pragma once
// Tested by tests/refhost/ingest/CameraRelay_test.cpp.

#include <cstddef>
#include <memory>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/capture/SourceRun.h"
#include "refhost/ingest/CameraPauses.h"
#include "refhost/net/HostResolver.h"
#include "refhost/net/TcpConnector.h"
#include "refhost/net/tls/TlsContext.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// The few threads that read all cameras, each an event loop.
///
/// Threads: any.
class IngestLoops
{
public:
    /// How many cameras are connected a second at most, so that a thousand do not start, or start again, all
    /// at once.
    static constexpr int maxStartsPerSecond = 250;

    /// Starts no thread yet. \param count  of loops; fewer than 1 counts as 1
    explicit IngestLoops(int count);
    IngestLoops(const IngestLoops&) = delete;
    IngestLoops& operator=(const IngestLoops&) = delete;

    /// Starts to read a stream's source: another camera here, a file by FileRun, everything else by GStreamer.
    /// What cannot be read so, because it has to be decoded, GStreamer reads at the next attempt.
    /// \throws std::system_error as SourceRun::Factory
    /// Requires: this outlives the run, and outlives it by the run's end where it was stopped.
    std::unique_ptr<SourceRun> start(SourceRun::Setup setup);

private:
    Duration startDelay();
    EventLoop& nextLoop();
    std::shared_ptr<StreamConnector> connectorFor(const SourceConfig& source);

    const std::size_t count_;
    HostResolver resolver_;
    const std::shared_ptr<TcpConnector> tcp_ = std::make_shared<TcpConnector>(resolver_);
    CameraPauses pauses_;
    Mutex mutex_;
    std::shared_ptr<const TlsContext> tls_ OV_GUARDED_BY(mutex_);  ///< null until it is needed
    std::vector<std::unique_ptr<EventLoop>> loops_ OV_GUARDED_BY(mutex_);
    std::size_t next_ OV_GUARDED_BY(mutex_) = 0;
    MonotonicTime nextStart_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

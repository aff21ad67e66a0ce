#pragma once
// Tested by tests/refhost/rtsp/session/RtspSession_test.cpp.

#include <cstdint>
#include <memory>
#include <optional>

#include "refhost/base/SmallMutex.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// Whether the client of a session is still there: its last activity, and whether the connection of its last
/// request is gone. Threads: any.
class ClientPresence
{
public:
    /// Counts as activity.
    explicit ClientPresence(MonotonicTime now);

    /// Where the session's transports note what they receive.
    std::shared_ptr<SessionLiveness> liveness() const
    {
        return liveness_;
    }

    /// A request for the session was received.
    /// \param connection  its serial
    void noteRequest(std::uint64_t connection, MonotonicTime now);

    /// A connection ended. Only that of the last request counts.
    void connectionEnded(std::uint64_t connection, MonotonicTime now);

    /// Serial of the connection of the last request; 0 when that connection ended.
    std::uint64_t connection() const;

    /// True `sessionTimeout` after the last activity, or `orphanTimeout` after the end of the connection
    /// without activity since.
    bool expired(MonotonicTime now, Duration sessionTimeout, Duration orphanTimeout) const;

private:
    const std::shared_ptr<SessionLiveness> liveness_ = std::make_shared<SessionLiveness>();
    mutable SmallMutex mutex_;
    std::uint64_t connection_ OV_GUARDED_BY(mutex_) = 0;           // of the last request
    std::optional<MonotonicTime> orphaned_ OV_GUARDED_BY(mutex_);  // the end of that connection
};

}  // namespace refhost

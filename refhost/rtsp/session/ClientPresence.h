#pragma once
// Tested by tests/refhost/rtsp/session/RtspSession_test.cpp.

#include <cstdint>
#include <memory>
#include <optional>

#include "refhost/base/Mutex.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// Whether the client of a session is still there: when it was heard, and whether the connection went from
/// which it named the session last. Times are milliseconds of the monotonic clock. Threads: any.
class ClientPresence
{
public:
    explicit ClientPresence(std::int64_t nowMs);

    /// What the session's transports tell of their client's reports.
    std::shared_ptr<SessionLiveness> liveness() const
    {
        return liveness_;
    }

    /// A request from that connection named the session.
    void named(std::uint64_t connection, std::int64_t nowMs);

    /// A connection ended. Another one than the one that named the session last does not count.
    void connectionEnded(std::uint64_t connection, std::int64_t nowMs);

    /// True when the client was not heard for too long: `sessionTimeoutMs` in general, `orphanTimeoutMs`
    /// after its connection went, unless it was heard since.
    bool expired(std::int64_t nowMs, std::int64_t sessionTimeoutMs, std::int64_t orphanTimeoutMs) const;

private:
    const std::shared_ptr<SessionLiveness> liveness_ = std::make_shared<SessionLiveness>();
    mutable Mutex mutex_;
    std::uint64_t connection_ OV_GUARDED_BY(mutex_) = 0;            // that named the session last
    std::optional<std::int64_t> orphanedMs_ OV_GUARDED_BY(mutex_);  // when that one went
};

}  // namespace refhost

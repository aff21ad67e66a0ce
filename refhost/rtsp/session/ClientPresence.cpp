#include "refhost/rtsp/session/ClientPresence.h"

namespace refhost
{
namespace
{

/// Packets that were under way when the connection ended are no activity after it.
constexpr std::chrono::seconds orphanGrace(1);

}  // namespace

ClientPresence::ClientPresence(MonotonicTime now)
{
    liveness_->noteActivity(now);
}

void ClientPresence::noteRequest(std::uint64_t connection, MonotonicTime now)
{
    liveness_->noteActivity(now);
    const SmallMutexLock guard(mutex_);
    orphaned_.reset();
    connection_ = connection;
}

void ClientPresence::connectionEnded(std::uint64_t connection, MonotonicTime now)
{
    const SmallMutexLock guard(mutex_);
    if (connection_ == connection)
    {
        orphaned_ = now;
    }
}

std::uint64_t ClientPresence::connection() const
{
    const SmallMutexLock guard(mutex_);
    return orphaned_ ? 0 : connection_;
}

bool ClientPresence::expired(MonotonicTime now, Duration sessionTimeout, Duration orphanTimeout) const
{
    const MonotonicTime activity = liveness_->lastActivity();
    const SmallMutexLock guard(mutex_);
    const bool orphan = orphaned_ && activity < *orphaned_ + orphanGrace;
    return now - activity >= sessionTimeout || (orphan && now - *orphaned_ >= orphanTimeout);
}

}  // namespace refhost

#include "refhost/rtsp/session/ClientPresence.h"

namespace refhost
{
namespace
{

// Packets that were on their way when the connection went do not make the client heard again.
constexpr std::int64_t orphanGraceMs = 1000;

}  // namespace

ClientPresence::ClientPresence(std::int64_t nowMs)
{
    liveness_->heard(nowMs);
}

void ClientPresence::named(std::uint64_t connection, std::int64_t nowMs)
{
    liveness_->heard(nowMs);
    const MutexLock guard(mutex_);
    orphanedMs_.reset();
    connection_ = connection;
}

void ClientPresence::connectionEnded(std::uint64_t connection, std::int64_t nowMs)
{
    const MutexLock guard(mutex_);
    if (connection_ == connection)
    {
        orphanedMs_ = nowMs;
    }
}

bool ClientPresence::expired(std::int64_t nowMs, std::int64_t sessionTimeoutMs,
                             std::int64_t orphanTimeoutMs) const
{
    const std::int64_t activityMs = liveness_->lastActivityMs();
    const MutexLock guard(mutex_);
    const bool orphaned = orphanedMs_ && activityMs < *orphanedMs_ + orphanGraceMs;
    return nowMs - activityMs >= sessionTimeoutMs || (orphaned && nowMs - *orphanedMs_ >= orphanTimeoutMs);
}

}  // namespace refhost

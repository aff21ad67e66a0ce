#include "refhost/rtsp/session/SessionAudit.h"

#include <utility>

#include "refhost/base/AuditLog.h"
#include "refhost/base/Log.h"

namespace refhost
{

void SessionAudit::started(const SessionOwner& owner, std::string_view url, std::string_view transport)
{
    if (transport_.empty())
    {
        transport_ = transport;
    }
    if (url_ != nullptr || url.empty() || !Log::enabled(Log::Level::info))
    {
        return;
    }
    url_ = std::make_unique<char[]>(url.size() + 1);
    url.copy(url_.get(), url.size());
    since_ = std::chrono::steady_clock::now();
    AuditLog::sessionStarted({owner.address(), owner.user(), url, transport_});
}

void SessionAudit::count(const RtpTransport& transport)
{
    if (!transport.traits().shared)
    {
        bytes_ += transport.sent.bytes.load(std::memory_order_relaxed);
        lost_ += transport.sent.lost.load(std::memory_order_relaxed);
    }
}

void SessionAudit::ended(const SessionOwner& owner)
{
    const auto url = std::exchange(url_, nullptr);
    if (url != nullptr)
    {
        AuditLog::sessionEnded({owner.address(), owner.user(), url.get(), transport_},
                               std::chrono::steady_clock::now() - since_, {bytes_, lost_});
    }
}

}  // namespace refhost

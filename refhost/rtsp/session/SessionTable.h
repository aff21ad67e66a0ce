#pragma once
// Tested by tests/refhost/rtsp/session/RtspSession_test.cpp, tests/refhost/rtsp/session/SharedSessions_test.cpp.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/access/AccessRules.h"
#include "refhost/base/Mutex.h"
#include "refhost/config/Config.h"
#include "refhost/rtsp/session/AddressLimiter.h"
#include "refhost/rtsp/session/RtspSession.h"

namespace refhost
{

/// The sessions of the server, by id. Sessions are ended through the table, which removes them first, so that
/// each ends once: by TEARDOWN, the end of its connection, its timeout or the server's stop. Threads: any;
/// its lock is never held while a session ends.
class SessionTable
{
public:
    explicit SessionTable(const LimitsConfig& limits);
    ~SessionTable();

    /// Makes a session with a new random id.
    /// \returns null when a limit is reached
    std::shared_ptr<RtspSession> create(const std::string& presentation,
                                        const SafePointer<IRTSPController>& controller,
                                        const MediaRoutes::Route& route, const SessionOwner& owner,
                                        MonotonicTime now);

    /// \returns null for an id that no session has
    std::shared_ptr<RtspSession> find(std::string_view id) const;

    /// Removes a session and ends it.
    void end(const std::shared_ptr<RtspSession>& session);
    /// The same where the client does not expect it.
    /// \param why  for the log, such as "its camera was removed"
    void endUnexpectedly(const std::shared_ptr<RtspSession>& session, std::string_view why);

    /// Calls `report` with the serial of each connection whose client cannot know that its session ended
    /// unexpectedly. \see RtspSession::unawareConnection()
    /// \param report  returns at once; null: nobody any more. Not called after this returns with another one
    void reportUnaware(std::function<void(std::uint64_t connection)> report);
    void endAll();

    /// Ends the sessions whose clients were inactive for too long.
    /// \returns how many
    std::size_t endExpired(MonotonicTime now);

    /// Ends the sessions that need a right which their owner does not have.
    /// \returns how many
    std::size_t endUnpermitted(const AccessRules& rules);

    /// Ends the sessions that `which` names.
    /// \param why  for the log, such as "its camera was removed"
    /// \returns how many
    std::size_t endThose(const std::function<bool(const RtspSession& session)>& which,
                         const std::string& why);

    /// From now on these limits hold, but for the session timeout, which clients know already. Sessions beyond them go
    /// on.
    void setLimits(const LimitsConfig& limits);

    /// \returns how many have not ended yet: 0 once all that they held was given back
    std::size_t count() const;

    /// Every session, in the order in which they were made. Waits for requests that are being handled: not for an event
    /// loop.
    std::vector<SessionSummary> summaries() const;
    /// \returns null when no session has this number
    std::shared_ptr<RtspSession> numbered(std::uint64_t number) const;

    /// What sessions that ended were sent, as SessionSummary counts it.
    struct Past
    {
        std::uint64_t sessions = 0;
        std::uint64_t bytes = 0;
        std::uint64_t lost = 0;
        std::map<int, std::uint64_t> bytesOf;  ///< of each camera that somebody watched
    };
    Past past() const;

private:
    std::vector<std::shared_ptr<RtspSession>> all() const;
    void noteEnd(const RtspSession& ended);

    const Duration sessionTimeout_;
    Mutex reportMutex_;
    std::function<void(std::uint64_t)> reportUnaware_ OV_GUARDED_BY(reportMutex_);
    std::atomic<Duration> orphanTimeout_;
    AddressLimiter quota_;
    std::atomic<std::uint64_t> pastSessions_{0};
    std::atomic<std::uint64_t> pastBytes_{0};
    std::atomic<std::uint64_t> pastLost_{0};
    mutable Mutex mutex_;
    std::unordered_map<std::uint64_t, std::shared_ptr<RtspSession>> sessions_
        OV_GUARDED_BY(mutex_);  // by the id's number
    std::map<int, std::uint64_t> pastBytesOf_ OV_GUARDED_BY(mutex_);
    std::size_t ending_ OV_GUARDED_BY(mutex_) = 0;  // removed, but still giving back what they hold
};

}  // namespace refhost

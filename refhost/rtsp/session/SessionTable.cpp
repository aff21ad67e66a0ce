#include "refhost/rtsp/session/SessionTable.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Log.h"
#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

// The digits of 64 random bits, five bits each: so few that a std::string holds them without other memory.
constexpr std::size_t idLength = 13;
constexpr unsigned bitsOfDigit = 5;
constexpr std::string_view digits = "0123456789ABCDEFGHIJKLMNOPQRSTUV";

std::string textOf(std::uint64_t number)
{
    std::string text(idLength, digits.front());
    for (std::size_t i = idLength; i > 0; --i, number >>= bitsOfDigit)
    {
        text[i - 1] = digits[number % digits.size()];
    }
    return text;
}

/// Accepts only what textOf() writes, so that each session has exactly one id.
std::optional<std::uint64_t> numberOf(std::string_view text)
{
    std::uint64_t number = 0;
    for (const char digit : text)
    {
        const std::size_t value = digits.find(digit);
        if (value == std::string_view::npos)
        {
            return std::nullopt;
        }
        number = number << bitsOfDigit | value;
    }
    return text == textOf(number) ? std::optional(number) : std::nullopt;
}

/// Without the id: whoever knows the id of a session can control it. Under the table's lock: the last line has the
/// last count.
void logCount(const char* event, const RtspSession& session, std::size_t count)
{
    if (Log::enabled(Log::Level::debug))
    {
        Log::debug("a session of {} {}; sessions: {}", Log::safe(session.presentation()), event, count);
    }
}

}  // namespace

SessionTable::SessionTable(const LimitsConfig& limits)
    : sessionTimeout_(std::chrono::seconds(limits.sessionTimeout)),
      orphanTimeout_(Duration(std::chrono::seconds(limits.orphanTimeout))),
      quota_(limits.sessions, limits.sessionsPerAddress)
{
}

SessionTable::~SessionTable()
{
    endAll();
}

std::shared_ptr<RtspSession> SessionTable::create(const std::string& presentation,
                                                  const SafePointer<IRTSPController>& controller,
                                                  const MediaRoutes::Route& route, const SessionOwner& owner,
                                                  MonotonicTime now)
{
    if (!quota_.take(owner.address()))
    {
        return nullptr;
    }
    try
    {
        for (;;)
        {
            std::uint64_t number = 0;
            fillRandom(&number, sizeof number);
            auto session =
                std::make_shared<RtspSession>(textOf(number), presentation, controller, route, owner, now);
            bool added = false;
            {
                const MutexLock lock(mutex_);
                added = sessions_.emplace(number, session).second;
                if (added)
                {
                    logCount("started", *session, sessions_.size() + ending_);
                }
            }
            if (added)
            {
                return session;
            }
        }
    }
    catch (...)
    {
        quota_.giveBack(owner.address());
        throw;
    }
}

std::shared_ptr<RtspSession> SessionTable::find(std::string_view id) const
{
    const auto number = numberOf(id);
    if (!number)
    {
        return nullptr;
    }
    const MutexLock guard(mutex_);
    const auto found = sessions_.find(*number);
    return found == sessions_.end() ? nullptr : found->second;
}

void SessionTable::end(const std::shared_ptr<RtspSession>& session)
{
    bool taken = false;
    {
        const MutexLock guard(mutex_);
        taken = sessions_.erase(*numberOf(session->id())) != 0;
        ending_ += taken ? 1 : 0;
    }
    if (taken)
    {
        quota_.giveBack(session->owner().address());
    }
    session->end();
    if (taken)
    {
        noteEnd(*session);
    }
}

void SessionTable::endUnexpectedly(const std::shared_ptr<RtspSession>& session, std::string_view why)
{
    Log::info("session {} ended: {}", session->logName(), why);
    end(session);
    const std::uint64_t connection = session->unawareConnection();
    const MutexLock guard(reportMutex_);
    if (connection != 0 && reportUnaware_)
    {
        reportUnaware_(connection);
    }
}

void SessionTable::reportUnaware(std::function<void(std::uint64_t connection)> report)
{
    const MutexLock guard(reportMutex_);
    reportUnaware_.swap(report);
}

void SessionTable::endAll()
{
    std::unordered_map<std::uint64_t, std::shared_ptr<RtspSession>> all;
    {
        const MutexLock guard(mutex_);
        all.swap(sessions_);
        ending_ += all.size();
    }
    for (const auto& [number, session] : all)
    {
        quota_.giveBack(session->owner().address());
        session->end();
        noteEnd(*session);
    }
}

std::size_t SessionTable::endExpired(MonotonicTime now)
{
    std::vector<std::shared_ptr<RtspSession>> expired;
    {
        const MutexLock guard(mutex_);
        for (const auto& [number, session] : sessions_)
        {
            if (session->expired(now, sessionTimeout_, orphanTimeout_))
            {
                expired.push_back(session);
            }
        }
    }
    for (const auto& session : expired)
    {
        Log::info("session {} timed out", session->logName());
        end(session);
    }
    return expired.size();
}

std::vector<std::shared_ptr<RtspSession>> SessionTable::all() const
{
    std::vector<std::shared_ptr<RtspSession>> found;
    const MutexLock guard(mutex_);
    found.reserve(sessions_.size());
    for (const auto& [number, session] : sessions_)
    {
        found.push_back(session);
    }
    return found;
}

std::size_t SessionTable::endUnpermitted(const AccessRules& rules)
{
    std::size_t ended = 0;
    for (const std::shared_ptr<RtspSession>& session : all())
    {
        const std::optional<Right> lacked = session->lackedRight(rules);
        if (lacked)
        {
            endUnexpectedly(session, fmt::format("its user lost the right \"{}\"", nameOf(*lacked)));
            ++ended;
        }
    }
    return ended;
}

std::size_t SessionTable::endThose(const std::function<bool(const RtspSession& session)>& which,
                                   const std::string& why)
{
    std::size_t ended = 0;
    for (const std::shared_ptr<RtspSession>& session : all())
    {
        if (which(*session))
        {
            endUnexpectedly(session, why);
            ++ended;
        }
    }
    return ended;
}

void SessionTable::setLimits(const LimitsConfig& limits)
{
    orphanTimeout_ = Duration(std::chrono::seconds(limits.orphanTimeout));
    quota_.setLimits(limits.sessions, limits.sessionsPerAddress);
}

std::size_t SessionTable::count() const
{
    const MutexLock guard(mutex_);
    return sessions_.size() + ending_;
}

void SessionTable::noteEnd(const RtspSession& ended)
{
    const SessionSummary last = ended.summary();
    pastSessions_.fetch_add(1, std::memory_order_relaxed);
    pastBytes_.fetch_add(last.bytes, std::memory_order_relaxed);
    pastLost_.fetch_add(last.lost, std::memory_order_relaxed);
    const MutexLock guard(mutex_);
    if (last.camera && last.bytes > 0)
    {
        pastBytesOf_[*last.camera] += last.bytes;
    }
    --ending_;
    logCount("ended", ended, sessions_.size() + ending_);
}

SessionTable::Past SessionTable::past() const
{
    const MutexLock guard(mutex_);
    return {pastSessions_.load(std::memory_order_relaxed), pastBytes_.load(std::memory_order_relaxed),
            pastLost_.load(std::memory_order_relaxed), pastBytesOf_};
}

std::vector<SessionSummary> SessionTable::summaries() const
{
    std::vector<SessionSummary> found;
    for (const std::shared_ptr<RtspSession>& session : all())
    {
        found.push_back(session->summary());
    }
    std::sort(found.begin(), found.end(),
              [](const SessionSummary& one, const SessionSummary& other)
              { return one.number < other.number; });
    return found;
}

std::shared_ptr<RtspSession> SessionTable::numbered(std::uint64_t number) const
{
    const MutexLock guard(mutex_);
    for (const auto& [id, session] : sessions_)
    {
        if (session->number() == number)
        {
            return session;
        }
    }
    return nullptr;
}

}  // namespace refhost
